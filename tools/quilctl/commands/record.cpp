#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iostream>
#include <system_error>

#include <ecu/tamu/com/topic.h>
#include <ecu/tamu/com/topics.h>

#include "common/notes.h"
#include "common/times.h"
#include "quilctl/base/failure.h"
#include "quilctl/commands/commands.h"
#include "quilctl/model/recording.h"
#include "quilctl/talk/monitor_session.h"

namespace ecu::ctl {

namespace com = tamu::com;

namespace {

using Clock = BusConnection::Clock;
using std::chrono::microseconds;

// Restricts the file to its owner, whether it exists or is about to be created. Leaves a device unchanged.
void keep_from_others(const std::string& path) {
  ::umask(S_IRWXG | S_IRWXO);
  struct stat status {};
  if (::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
      ::chmod(path.c_str(), S_IRUSR | S_IWUSR) != 0) {
    throw Failure(ExitCode::failure, path + ": " + std::generic_category().message(errno));
  }
}

/// Writes messages with their time since the beginning.
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
    out() << recording_header << "\n# " << tools::iso_time(at) << ", broker " << broker << std::endl;
  }
  void add(const Event& event) {
    const bool is_secret = com::topic_matches(com::topics::secure_storage_filter, event.text);
    // The system clock may be set back, the times of a recording never decrease.
    last_ = std::max(last_, std::chrono::duration_cast<microseconds>(event.at - begin_));
    Recorded message{last_, event.text, event.message.retained, event.message.acknowledged, {}};
    if (options_.reveal || !is_secret) {
      message.payload.emplace(event.message.payload.begin(), event.message.payload.end());
    }
    out() << line_of(message) << std::endl;
    ++count_;
  }
  /// Reports an event of the recording to the user and in the file, unless the text is empty.
  void remark(const std::string& text) {
    if (!text.empty()) {
      tools::note(text);
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

void record_messages(const Options& options, MonitorSession& session, Recorder& recorder) {
  while (!session.was_up()) {
    (void)session.next();
  }
  // Keeps an existing file when the broker is unreachable.
  recorder.begin(tools::wall_clock_now(), session.bus().broker());
  const auto end = options.duration
                       ? Clock::now() + std::chrono::duration_cast<Clock::duration>(*options.duration)
                       : Clock::time_point::max();
  while (recorder.out() && Clock::now() < end) {
    const auto event = session.next(end);
    recorder.remark(session.notice());
    if (event && event->kind == Event::Kind::message) {
      recorder.add(*event);
    }
  }
}

}  // namespace

ExitCode record(const Options& options) {
  Recorder recorder(options);
  MonitorSession session(options, {options.filter.empty() ? "#" : options.filter}, 1);
  try {
    record_messages(options, session, recorder);
  } catch (const Interrupted&) {
    // The normal way to stop: Ctrl-C.
  }
  recorder.remark(session.loss_notice());
  tools::note(tools::counted(recorder.count(), "message") + " recorded");
  if (!recorder.out() && options.file != "-") {
    throw Failure(ExitCode::failure, options.file + ": cannot be written");
  }
  return ExitCode::done;
}

}  // namespace ecu::ctl
