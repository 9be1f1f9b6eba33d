#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <fstream>
#include <functional>
#include <optional>
#include <set>
#include <streambuf>
#include <utility>

#include <ecu/tamu/com/topic.h>
#include <ecu/tamu/com/topics.h>

#include "common/input_file.h"
#include "common/notes.h"
#include "quilctl/base/failure.h"
#include "quilctl/commands/commands.h"
#include "quilctl/model/recording.h"
#include "quilctl/talk/request_session.h"

namespace ecu::ctl {

namespace com = tamu::com;
namespace topics = com::topics;

namespace {

using Clock = BusConnection::Clock;

// The delay before a message is published again that the broker was too slow to accept.
constexpr std::chrono::milliseconds overload_pause{5};

// Of the messages that have not come back yet: their number (the bus client holds 256), and the time limit.
constexpr std::size_t max_waiting = 200;
constexpr std::chrono::seconds default_echo_timeout{5};

// 30 years: more than that after the beginning is no time that the clock has.
constexpr std::chrono::duration<double> longest_wait(1e9);

com::Message message_of(const Recorded& recorded, const std::string& payload) {
  return {.acknowledged = recorded.acknowledged,
          .payload = {payload.begin(), payload.end()},
          .retained = recorded.retained};
}

bool is_played(const Options& options, const std::string& topic) {
  return options.filter.empty() ? com::topic_matches(topics::signal_group_filter, topic) &&
                                      !com::topic_matches(topics::vehicle_transmission_filter, topic)
                                : com::topic_matches(options.filter, topic);
}

/// Publishes messages and checks that the broker sends them back: it does not report a denied publication.
class RecordingPlayer {
 public:
  explicit RecordingPlayer(const Options& options)
      : session_(options, {options.filter.empty() ? topics::signal_group_filter : options.filter},
                 [this](const Event& event) { handle_echo(event); }),
        echo_timeout_(options.timeout.value_or(default_echo_timeout)) {
    session_.remove_time_limit();
  }

  RequestSession& session() noexcept { return session_; }

  void publish(const Recorded& recorded) {
    if (waiting_.size() >= max_waiting) {
      wait_until_back(max_waiting / 2);
    }
    while (!session_.bus().publish(recorded.topic, message_of(recorded, *recorded.payload))) {
      session_.process_until(Clock::now() + overload_pause);
    }
    waiting_.emplace(recorded.topic, *recorded.payload);
    ++count_;
    session_.process_until(Clock::now());
  }

  /// Returns when all messages but `rest` have come back; throws `Failure` when they do not.
  void wait_until_back(std::size_t rest = 0) {
    const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(echo_timeout_);
    if (!session_.wait_until([&] { return waiting_.size() <= rest; }, deadline)) {
      const std::string lost = session_.bus().loss_notice();
      throw Failure(
          waiting_.size() == count_ ? ExitCode::refused : ExitCode::time_out,
          std::to_string(waiting_.size()) + " of " + std::to_string(count_) +
              " messages did not come back from the broker; " +
              (lost.empty() ? "its access rules probably deny publishing or receiving them" : lost));
    }
  }

  [[nodiscard]] std::size_t count() const noexcept { return count_; }

 private:
  using TopicAndPayload = std::pair<std::string, std::string>;

  void handle_echo(const Event& event) {
    const auto& payload = event.message.payload;
    (void)waiting_.extract(TopicAndPayload(event.text, {payload.begin(), payload.end()}));
  }

  std::multiset<TopicAndPayload> waiting_;
  std::size_t count_ = 0;
  RequestSession session_;  // calls `handle_echo` from its constructor on
  const std::chrono::duration<double> echo_timeout_;
};

/// Standard input. Calls `wait` before it reads.
class StandardInput final : public std::streambuf {
 public:
  explicit StandardInput(std::function<void()> wait) : wait_(std::move(wait)) {}

 private:
  int_type underflow() override {
    wait_();
    const auto count = ::read(STDIN_FILENO, block_.data(), block_.size());
    if (count < 0) {
      throw tools::input_error("standard input");
    }
    setg(block_.data(), block_.data(), block_.data() + count);
    return count == 0 ? traits_type::eof() : traits_type::to_int_type(block_.front());
  }

  const std::function<void()> wait_;
  std::array<char, 4096> block_{};
};

// Finds an error in any line before the first message is published.
void read_through(std::istream& file, const std::string& name) {
  RecordingReader reader(file, name);
  while (reader.next()) {
  }
  file.clear();
  file.seekg(0);
}

/// The next message; errors say how many messages have been published.
std::optional<Recorded> next(RecordingReader& reader, const RecordingPlayer& player) {
  try {
    return reader.next();
  } catch (const Failure& failure) {
    throw Failure(failure.code(), failure.what() + ("; " + std::to_string(player.count())) +
                                      " messages have been published already");
  }
}

void play(const Options& options, std::istream& input, std::optional<RecordingPlayer>& player) {
  RecordingReader reader(input, options.file);
  player.emplace(options);
  const auto begin = Clock::now();
  while (const auto recorded = next(reader, *player)) {
    if (!recorded->payload || !is_played(options, recorded->topic)) {
      continue;
    }
    if (options.speed > 0) {
      const auto at = std::min(std::chrono::duration<double>(recorded->at) / options.speed, longest_wait);
      player->session().process_until(begin + std::chrono::duration_cast<Clock::duration>(at));
    }
    player->publish(*recorded);
  }
  player->wait_until_back();
}

}  // namespace

ExitCode replay(const Options& options) {
  std::optional<RecordingPlayer> player;
  if (options.file == "-") {
    StandardInput input([&player] {
      if (player) {
        player->session().process_until_readable(STDIN_FILENO);
      }
    });
    std::istream lines(&input);
    lines.exceptions(std::ios::badbit);  // passes on exceptions of the wait
    play(options, lines, player);
  } else {
    std::ifstream file(options.file);
    if (!file) {
      throw tools::input_error(options.file);
    }
    struct stat status {};
    if (::stat(options.file.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
      read_through(file, options.file);
    }
    play(options, file, player);
  }
  tools::note(tools::counted(player->count(), "message") + " published");
  return ExitCode::done;
}

}  // namespace ecu::ctl
