#include <unistd.h>

#include <iostream>
#include <set>
#include <string>

#include <ecu/tamu/com/topics.h>

#include "common/escaping.h"
#include "common/notes.h"
#include "quilctl/fleet/fleet_commands.h"
#include "quilctl/fleet/fleet_source.h"
#include "quilctl/model/values.h"
#include "quilctl/talk/request_session.h"

namespace ecu::ctl::fleet {

namespace com = tamu::com;

namespace {

/// The topics of a unit that the fleet's broker retains.
class UnitTopics {
 public:
  UnitTopics(const Options& options, const std::string& tree)
      : presence_topic_(tree + com::topics::fleet_presence),
        session_(options, {tree + '#'}, [this](const Event& event) { take(event); }) {}

  RequestSession& session() noexcept { return session_; }
  [[nodiscard]] const std::set<std::string>& retained() const noexcept { return retained_; }
  [[nodiscard]] bool is_online() const { return presence_ == com::topics::presence_online; }

  /// The broker does not report a denied publication, but sends back an accepted one. In each `time` at least
  /// one topic must be cleared.
  void clear(std::chrono::duration<double> time) {
    const std::size_t count = retained_.size();
    for (const std::string& topic : retained_) {
      com::Message nothing;
      nothing.acknowledged = true;
      nothing.retained = true;
      (void)session_.bus().publish(topic, std::move(nothing));
    }
    std::size_t left = 0;
    do {
      left = retained_.size();
      session_.set_time_limit(time);
    } while (!session_.wait_until([this] { return retained_.empty(); }) && retained_.size() < left);
    if (!retained_.empty()) {
      throw Failure(retained_.size() == count ? ExitCode::refused : ExitCode::time_out,
                    std::to_string(retained_.size()) + " of " + std::to_string(count) +
                        " topics remain, such as " + *retained_.begin() +
                        ": the broker's access rules deny clearing them, or the unit still publishes");
    }
  }

 private:
  void take(const Event& event) {
    const auto& payload = event.message.payload;
    if (event.text == presence_topic_) {
      presence_.assign(payload.begin(), payload.end());
    }
    if (payload.empty()) {
      retained_.erase(event.text);
    } else {
      retained_.insert(event.text);
    }
  }

  const std::string presence_topic_;
  std::string presence_;
  std::set<std::string> retained_;
  RequestSession session_;  // last: its construction fills in the topics
};

// Without a terminal there is nobody to ask.
bool may_clear(const Options& options, UnitTopics& topics, const std::string& unit) {
  if (topics.is_online()) {
    tools::note(unit +
                " is online: its variables come back with the next change or refresh, its presence with the "
                "next connection");
  }
  if (options.yes) {
    return true;
  }
  std::cerr << "Clear the " << topics.retained().size() << " topics of " << tools::printable(unit)
            << "? [y/N] " << std::flush;
  topics.session().remove_time_limit();
  topics.session().process_until_readable(STDIN_FILENO);
  std::string answer;
  return std::getline(std::cin, answer) && (answer == "y" || answer == "Y" || answer == "yes");
}

}  // namespace

ExitCode retire(const Options& options) {
  const std::string& unit = options.arguments.front();
  require_topic_level(unit);
  require_topic_level(options.fleet_prefix);
  if (!options.yes && ::isatty(STDIN_FILENO) == 0) {
    throw Failure(ExitCode::usage,
                  "nobody can be asked without a terminal: give --yes to clear the topics of " + unit);
  }
  UnitTopics topics(options, options.fleet_prefix + '/' + unit + '/');
  const std::size_t count = topics.retained().size();
  if (count == 0) {
    throw Failure(ExitCode::unknown, "no unit is named '" + unit +
                                         "': nothing is published, or the broker's access rules deny access");
  }
  if (!may_clear(options, topics, unit)) {
    throw Failure(ExitCode::failure, "nothing is cleared");
  }
  topics.clear(options.timeout.value_or(std::chrono::seconds(5)));
  if (options.json) {
    print_json({{"unit", json_value(unit)}, {"cleared", count}});
  } else {
    tools::note(tools::counted(count, "topic") + " of " + unit + " cleared");
  }
  return ExitCode::done;
}

}  // namespace ecu::ctl::fleet
