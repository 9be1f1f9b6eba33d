#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iostream>
#include <system_error>

#include <ecu/tamu/com/topic.h>

#include "quilctl/base/failure.h"
#include "quilctl/base/notes.h"
#include "quilctl/commands/commands.h"
#include "quilctl/model/recording.h"
#include "quilctl/model/values.h"
#include "quilctl/talk/bus_connection.h"
#include "quilctl/talk/monitor_session.h"

namespace ecu::ctl {

namespace com = tamu::com;

namespace {

using Clock = Bus::Clock;
using std::chrono::microseconds;

constexpr const char* all_topics = "#";
constexpr const char* secrets = "system/quil/secstore/#";

// Makes the file of that name its owner's alone, whether it is there already or will be made; a device stays
// as it is.
void keep_from_others(const std::string& path) {
  ::umask(S_IRWXG | S_IRWXO);
  struct stat status {};
  if (::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
      ::chmod(path.c_str(), S_IRUSR | S_IWUSR) != 0) {
    throw Failure(ExitCode::failure, path + ": " + std::generic_category().message(errno));
  }
}

/// Writes messages with the time since the beginning.
class Recorder {
 public:
  explicit Recorder(const Options& options) : options_(options) {}

  /// Opens the file, and so overwrites it.
  void begin(std::chrono::system_clock::time_point at, const std::string& broker) {
    if (options_.file != "-") {
      if (options_.reveal) {
        keep_from_others(options_.file);
      }
      file_.open(options_.file);
      if (!file_) {
        throw Failure(ExitCode::failure, options_.file + ": " + std::generic_category().message(errno));
      }
    }
    begin_ = at;
    out() << recording_header() << "\n# " << iso_time(at) << ", broker " << broker << std::endl;
  }
  void add(const Event& event) {
    const bool is_secret = com::topic_matches(secrets, event.text);
    // The clock of the wall may be set back; a recording's does not go back.
    last_ = std::max(last_, std::chrono::duration_cast<microseconds>(event.at - begin_));
    Recorded message{last_, event.text, event.message.retained, event.message.acknowledged, {}};
    if (options_.reveal || !is_secret) {
      message.payload.emplace(event.message.payload.begin(), event.message.payload.end());
    }
    out() << line_of(message) << std::endl;
    ++count_;
  }
  /// Tells of what befell the recording, in it and to the user; not of an empty text.
  void remark(const std::string& text) {
    if (!text.empty()) {
      note(text);
      out() << "# " << text << std::endl;
    }
  }

  [[nodiscard]] std::size_t count() const noexcept { return count_; }
  [[nodiscard]] std::ostream& out() { return options_.file == "-" ? std::cout : file_; }

 private:
  const Options& options_;
  std::ofstream file_;
  std::chrono::system_clock::time_point begin_;
  microseconds last_{};
  std::size_t count_ = 0;
};

void record_messages(const Options& options, const Bus& bus, LongWatch& watch, Recorder& recorder) {
  while (!watch.was_up()) {
    (void)watch.next();
  }
  // A file that is there already is not lost to a broker that is not.
  recorder.begin(std::chrono::system_clock::now(), bus.broker());
  const auto end = options.duration
                       ? Clock::now() + std::chrono::duration_cast<Clock::duration>(*options.duration)
                       : Clock::time_point::max();
  while (recorder.out() && Clock::now() < end) {
    const auto event = watch.next(end);
    recorder.remark(watch.news());
    if (event && event->kind == Event::Kind::message) {
      recorder.add(*event);
    }
  }
}

}  // namespace

ExitCode record(const Options& options) {
  Recorder recorder(options);
  Bus bus(options.broker);
  bus.subscribe(options.filter.empty() ? all_topics : options.filter, 1);
  bus.connect();
  LongWatch watch(options, bus);
  try {
    record_messages(options, bus, watch, recorder);
  } catch (const Interrupted&) {
    // The usual way for it to end.
  }
  recorder.remark(watch.loss_news());
  note(std::to_string(recorder.count()) + " messages recorded");
  if (!recorder.out() && options.file != "-") {
    throw Failure(ExitCode::failure, options.file + " cannot be written");
  }
  return ExitCode::done;
}

}  // namespace ecu::ctl
