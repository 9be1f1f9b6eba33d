#include "quilctl/model/recording.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <sstream>
#include <string>

#include <ecu/tamu/com/topic.h>

#include "fuzz/fuzz.h"
#include "quilctl/base/failure.h"

// Reads recordings, and writes and reads messages.
namespace {

using namespace ecu::ctl;

Recorded read_back(const Recorded& message) {
  std::istringstream text(std::string(recording_header) + '\n' + line_of(message) + '\n');
  RecordingReader reader(text, "text");
  const auto again = reader.next();
  fuzz::require(again.has_value() && !reader.next(), "one line is one message");
  return *again;
}

void require_survival(const Recorded& message) {
  const Recorded again = read_back(message);
  fuzz::require(again.at == message.at && again.topic == message.topic &&
                    again.retained == message.retained && again.acknowledged == message.acknowledged &&
                    again.payload == message.payload,
                "a message survives its recording");
}

void read_text(const std::string& text) {
  std::istringstream stream(text);
  try {
    RecordingReader reader(stream, "text");
    while (const auto message = reader.next()) {
      require_survival(*message);
    }
  } catch (const Failure& failure) {
    fuzz::require(*failure.what() != '\0', "a failure says why");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  if (input.ConsumeBool()) {
    const bool with_header = input.ConsumeBool();
    read_text((with_header ? std::string(recording_header) + '\n' : "") +
              input.ConsumeRemainingBytesAsString());
    return 0;
  }
  Recorded message;
  message.at =
      std::chrono::microseconds(input.ConsumeIntegralInRange<std::int64_t>(0, 1'000'000'000'000'000));
  message.topic = input.ConsumeRandomLengthString(64);
  message.retained = input.ConsumeBool();
  message.acknowledged = input.ConsumeBool();
  if (input.ConsumeBool()) {
    message.payload = input.ConsumeRemainingBytesAsString();
  }
  if (ecu::tamu::com::is_topic_name(message.topic)) {
    require_survival(message);
  }
  return 0;
}
