#include "quilctl/talk/parameter_client.h"

#include <algorithm>
#include <utility>

#include <ecu/tamu/com/pb_internal_message_adapter.h>
#include <ecu/tamu/pb/messages.pb.h>

#include "quilctl/base/failure.h"
#include "quilctl/base/notes.h"
#include "quilctl/model/variable_view.h"

namespace ecu::ctl {

namespace com = tamu::com;
namespace pb = tamu::pb;

namespace {

constexpr const char* request_topic = "system/quil/request/sysparams";
constexpr const char* answer_topic = "system/sysparams";
constexpr const char* write_topic = "system/sysparams/write";

// How long people are left to wonder what is going on.
constexpr std::chrono::seconds max_silence{2};

}  // namespace

const Parameter* find(const Parameters& parameters, std::uint32_t id) {
  const auto found = std::ranges::find(parameters, id, &Parameter::id);
  return found == parameters.end() ? nullptr : &*found;
}

ParameterTalk::ParameterTalk(const Options& options, std::chrono::duration<double> usual_timeout)
    : talk_(
          options, {answer_topic, daemon_presence}, [this](const Event& event) { take(event); },
          usual_timeout) {}

void ParameterTalk::take(const Event& event) {
  if (event.text == daemon_presence) {
    VariableView view;
    (void)view.take(event.text, event.message);
    on_line_ = view.daemon_on_line();
    return;
  }
  auto list = com::PbInternalMessageAdapter<pb::SystemParameterList>().deserialize(event.message);
  if (!list.ok) {
    note("a message on " + event.text + " cannot be decoded");
    return;
  }
  answer_.emplace();
  for (pb::SystemParameterEntry& entry : *list.body.mutable_entry()) {
    answer_->push_back({entry.ota_id(), std::move(*entry.mutable_value())});
  }
}

void ParameterTalk::ask() {
  answer_.reset();
  (void)talk_.bus().publish(request_topic, {});
}

bool ParameterTalk::wait_for_answer(Conversation::Clock::time_point deadline) {
  return talk_.wait_until([this] { return answer_.has_value() || on_line_ == false; }, deadline);
}

std::optional<Parameters> ParameterTalk::try_read() {
  ask();
  (void)wait_for_answer();
  return std::exchange(answer_, std::nullopt);
}

Parameters ParameterTalk::read() {
  ask();
  const auto end_of_silence = Conversation::Clock::now() + max_silence;
  if (!wait_for_answer(end_of_silence) && Conversation::Clock::now() >= end_of_silence && on_line_) {
    note("waiting for the other side of the ports");
  }
  (void)wait_for_answer();
  if (answer_) {
    return std::move(*answer_);
  }
  if (on_line_ == false) {
    throw Failure(ExitCode::daemon_off_line, "the daemon is off line");
  }
  const std::string no_answer = "no answer within " + talk_.time_limit();
  if (!on_line_) {
    throw Failure(ExitCode::daemon_off_line, no_answer + ", and no daemon says that it is on line");
  }
  throw Failure(ExitCode::time_out, no_answer +
                                        ": the daemon waits for the other side of its ports, or the broker's "
                                        "access rules keep us from it");
}

bool ParameterTalk::is_quiet_for(std::chrono::milliseconds time) {
  answer_.reset();
  return !talk_.wait_until([this] { return answer_.has_value(); }, Conversation::Clock::now() + time);
}

void ParameterTalk::write(const Parameters& parameters) {
  pb::SystemParameterList list;
  for (const Parameter& parameter : parameters) {
    pb::SystemParameterEntry& entry = *list.add_entry();
    entry.set_ota_id(parameter.id);
    entry.set_value(parameter.value);
  }
  auto message = com::PbInternalMessageAdapter<pb::SystemParameterList>().serialize(list);
  if (!message) {
    throw Failure(ExitCode::usage, "the values are too large for one message");
  }
  (void)talk_.bus().publish(write_topic, std::move(*message));
}

}  // namespace ecu::ctl
