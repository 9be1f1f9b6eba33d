#include "quilctl/talk/parameter_client.h"

#include <algorithm>
#include <utility>

#include <ecu/tamu/com/pb_internal_message_adapter.h>
#include <ecu/tamu/com/topics.h>
#include <ecu/tamu/pb/messages.pb.h>

#include "quilctl/base/failure.h"
#include "quilctl/base/notes.h"
#include "quilctl/model/variable_view.h"

namespace ecu::ctl {

namespace com = tamu::com;
namespace pb = tamu::pb;
namespace topics = com::topics;

namespace {

// How long people are left to wonder what is going on.
constexpr std::chrono::seconds max_silence{2};

template <class Body>
std::optional<Body> decoded(const Event& event) {
  auto result = com::PbInternalMessageAdapter<Body>().deserialize(event.message);
  if (!result.ok) {
    note("a message on " + event.text + " cannot be decoded");
    return std::nullopt;
  }
  return std::move(result.body);
}

// A request names parameters in decimal, as signed numbers of 32 bits.
std::string name_of(std::uint32_t id) {
  return std::to_string(static_cast<std::int32_t>(id));
}

}  // namespace

const Parameter* find(const Parameters& parameters, std::uint32_t id) {
  const auto found = std::ranges::find(parameters, id, &Parameter::id);
  return found == parameters.end() ? nullptr : &*found;
}

ParameterTalk::ParameterTalk(const Options& options, std::chrono::duration<double> usual_timeout)
    : talk_(
          options, {topics::all_parameters_answer, topics::parameter_answer, daemon_presence},
          [this](const Event& event) { take(event); }, usual_timeout) {}

void ParameterTalk::take(const Event& event) {
  if (event.text == daemon_presence) {
    take_presence(event);
  } else if (event.text == topics::all_parameters_answer) {
    take_list(event);
  } else {
    take_entry(event);
  }
}

void ParameterTalk::take_presence(const Event& event) {
  VariableView view;
  (void)view.take(event.text, event.message);
  on_line_ = view.daemon_on_line();
}

void ParameterTalk::take_list(const Event& event) {
  auto list = decoded<pb::SystemParameterList>(event);
  if (!list || end_id_) {
    return;
  }
  answer_.emplace();
  for (pb::SystemParameterEntry& entry : *list->mutable_entry()) {
    answer_->push_back({entry.ota_id(), std::move(*entry.mutable_value())});
  }
}

void ParameterTalk::take_entry(const Event& event) {
  auto entry = end_id_ ? decoded<pb::SystemParameterEntry>(event) : std::nullopt;
  if (!entry) {
    return;
  }
  std::erase_if(entries_, [&entry](const Parameter& held) { return held.id == entry->ota_id(); });
  entries_.push_back({entry->ota_id(), std::move(*entry->mutable_value())});
  if (entry->ota_id() == end_id_) {
    answer_ = std::move(entries_);
    end_id_.reset();
  }
}

void ParameterTalk::ask() {
  answer_.reset();
  end_id_.reset();
  (void)talk_.bus().publish(topics::all_parameters_request, {});
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
  return answer();
}

// The daemon handles requests and writes in the order in which they come, and answers a request for chosen
// parameters with a message for each, in the order of the request. So the entry of the last one, which it is
// known to have, shows that the write before the request has been handled, whether or not the others have
// entries.
Parameters ParameterTalk::read(const std::vector<std::uint32_t>& ids, std::uint32_t held_id) {
  pb::EcuVariableReq request;
  for (const std::uint32_t id : ids) {
    if (id != held_id) {
      request.add_name(name_of(id));
    }
  }
  request.add_name(name_of(held_id));
  auto message = com::PbInternalMessageAdapter<pb::EcuVariableReq>().serialize(request);
  answer_.reset();
  entries_.clear();
  end_id_ = held_id;
  if (message) {
    (void)talk_.bus().publish(topics::parameter_request, std::move(*message));
  }
  return answer();
}

Parameters ParameterTalk::answer() {
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
  (void)talk_.bus().publish(topics::parameter_write, std::move(*message));
}

}  // namespace ecu::ctl
