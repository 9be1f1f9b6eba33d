#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iostream>
#include <system_error>

#include <ecu/tamu/com/topic.h>

#include "bus.h"
#include "commands.h"
#include "conversation.h"
#include "long_watch.h"
#include "notes.h"
#include "recording.h"
#include "values.h"

namespace ecu::ctl {

namespace com = tamu::com;

namespace {

using Clock = Bus::Clock;
using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr const char* all_topics = "#";
constexpr const char* real_time_side = "rt/#";
constexpr const char* secrets = "system/quil/secstore/#";

// How long to wait before a message is offered again that the broker was too slow for.
constexpr milliseconds overload_pause{5};

template <class Stream>
void open(Stream& file, const std::string& path) {
  file.open(path);
  if (!file) {
    throw Failure(ExitCode::failure, path + ": " + std::generic_category().message(errno));
  }
}

/// Writes messages with the time since the first event.
class Recorder {
 public:
  Recorder(const Options& options, std::ostream& out) : reveal_(options.reveal), out_(out) {}

  void begin(std::chrono::system_clock::time_point at, const std::string& broker) {
    begin_ = at;
    out_ << recording_header() << "\n# " << iso_time(at) << ", broker " << broker << std::endl;
  }
  void add(const Event& event) {
    const bool is_secret = com::topic_matches(secrets, event.text);
    // The clock of the wall may be set back; a recording's does not go back.
    last_ = std::max(last_, std::chrono::duration_cast<microseconds>(event.at - begin_));
    Recorded message{last_, event.text, event.message.retained, event.message.acknowledged, {}};
    if (reveal_ || !is_secret) {
      message.payload.emplace(event.message.payload.begin(), event.message.payload.end());
    }
    out_ << line_of(message) << std::endl;
    ++count_;
  }
  void remark(const std::string& text) { out_ << "# " << text << std::endl; }

  [[nodiscard]] std::size_t count() const noexcept { return count_; }

 private:
  const bool reveal_;
  std::ostream& out_;
  std::chrono::system_clock::time_point begin_;
  microseconds last_{};
  std::size_t count_ = 0;
};

void record_messages(const Options& options, Bus& bus, Recorder& recorder, const std::ostream& out) {
  LongWatch watch(options, bus);
  recorder.begin(std::chrono::system_clock::now(), bus.broker());
  const auto end = options.duration
                       ? Clock::now() + std::chrono::duration_cast<Clock::duration>(*options.duration)
                       : Clock::time_point::max();
  while (out && Clock::now() < end) {
    const auto event = watch.next(end);
    if (!watch.news().empty()) {
      note(watch.news());
      recorder.remark(watch.news());
    }
    if (event && event->kind == Event::Kind::message) {
      recorder.add(*event);
    }
  }
}

void publish(Conversation& talk, const std::string& topic, const com::Message& message) {
  while (!talk.bus().publish(topic, message)) {
    talk.listen_until(Clock::now() + overload_pause);
  }
}

com::Message message_of(const Recorded& recorded, const std::string& payload) {
  com::Message message;
  message.acknowledged = recorded.acknowledged;
  message.retained = recorded.retained;
  message.payload.assign(payload.begin(), payload.end());
  return message;
}

}  // namespace

ExitCode record(const Options& options) {
  std::ofstream file;
  if (options.file != "-") {
    open(file, options.file);
  }
  std::ostream& out = options.file == "-" ? std::cout : file;
  Recorder recorder(options, out);
  Bus bus(options.broker);
  bus.subscribe(options.filter.empty() ? all_topics : options.filter, 1);
  bus.connect();
  try {
    record_messages(options, bus, recorder, out);
  } catch (const Interrupted&) {
    // The usual way for it to end.
  }
  note(std::to_string(recorder.count()) + " messages recorded");
  return out ? ExitCode::done : ExitCode::failure;
}

ExitCode replay(const Options& options) {
  std::ifstream file;
  if (options.file != "-") {
    open(file, options.file);
  }
  RecordingReader reader(options.file == "-" ? std::cin : file, options.file);
  const std::string filter = options.filter.empty() ? real_time_side : options.filter;
  Conversation talk(options, {}, [](const Event&) {});
  talk.allow_any_time();
  const auto begin = Clock::now();
  std::size_t count = 0;
  while (const auto recorded = reader.next()) {
    if (!recorded->payload || !com::topic_matches(filter, recorded->topic)) {
      continue;
    }
    if (options.speed > 0) {
      const auto at = std::chrono::duration<double>(recorded->at) / options.speed;
      talk.listen_until(begin + std::chrono::duration_cast<Clock::duration>(at));
    }
    publish(talk, recorded->topic, message_of(*recorded, *recorded->payload));
    ++count;
  }
  note(std::to_string(count) + " messages published");
  return ExitCode::done;
}

}  // namespace ecu::ctl
