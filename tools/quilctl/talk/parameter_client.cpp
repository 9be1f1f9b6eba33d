#include "quilctl/talk/parameter_client.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include <ecu/tamu/com/pb_internal_message_adapter.h>
#include <ecu/tamu/com/topics.h>
#include <ecu/tamu/pb/messages.pb.h>

#include "common/notes.h"
#include "quilctl/base/failure.h"
#include "quilctl/model/decoding.h"
#include "quilctl/model/variable_view.h"

namespace ecu::ctl {

namespace com = tamu::com;
namespace pb = tamu::pb;
namespace topics = com::topics;

namespace {

// After this time the user learns what the command is waiting for.
constexpr std::chrono::seconds notice_delay{2};

template <class Body>
std::optional<Body> decoded(const Event& event) {
  auto result = com::PbInternalMessageAdapter<Body>().deserialize(event.message);
  if (!result.ok) {
    tools::note(not_decodable(event.text));
    return std::nullopt;
  }
  return std::move(result.body);
}

}  // namespace

const Parameter* find(const Parameters& parameters, std::uint32_t id) {
  const auto found = std::ranges::find(parameters, id, &Parameter::id);
  return found == parameters.end() ? nullptr : &*found;
}

void request_parameters(RequestSession& session, const std::vector<std::uint32_t>& ids) {
  pb::EcuVariableReq request;
  for (const std::uint32_t id : ids) {
    // The daemon reads an identifier as a signed decimal number of 32 bits.
    request.add_name(std::to_string(static_cast<std::int32_t>(id)));
  }
  if (auto message = com::PbInternalMessageAdapter<pb::EcuVariableReq>().serialize(request)) {
    (void)session.bus().publish(topics::parameter_request, std::move(*message));
  }
}

ParameterClient::ParameterClient(const Options& options, std::chrono::duration<double> default_timeout)
    : session_(
          options, {topics::all_parameters_answer, topics::parameter_answer, topics::daemon_presence},
          [this](const Event& event) { handle(event); }, default_timeout) {}

void ParameterClient::handle(const Event& event) {
  if (event.text == topics::daemon_presence) {
    on_line_ = says_on_line(event.message);
  } else if (event.text == topics::all_parameters_answer) {
    handle_list(event);
  } else {
    handle_entry(event);
  }
}

void ParameterClient::handle_list(const Event& event) {
  auto list = decoded<pb::SystemParameterList>(event);
  if (!list || end_id_) {
    return;
  }
  reply_.emplace();
  for (pb::SystemParameterEntry& entry : *list->mutable_entry()) {
    reply_->push_back({entry.ota_id(), std::move(*entry.mutable_value())});
  }
}

void ParameterClient::handle_entry(const Event& event) {
  auto entry = end_id_ ? decoded<pb::SystemParameterEntry>(event) : std::nullopt;
  if (!entry) {
    return;
  }
  std::erase_if(entries_, [&entry](const Parameter& held) { return held.id == entry->ota_id(); });
  entries_.push_back({entry->ota_id(), std::move(*entry->mutable_value())});
  if (entry->ota_id() == end_id_) {
    reply_ = std::move(entries_);
    end_id_.reset();
  }
}

void ParameterClient::request_all() {
  reply_.reset();
  end_id_.reset();
  (void)session_.bus().publish(topics::all_parameters_request, {});
}

bool ParameterClient::wait_for_reply(RequestSession::Clock::time_point deadline) {
  return session_.wait_until([this] { return reply_.has_value() || on_line_ == false; }, deadline);
}

std::optional<Parameters> ParameterClient::try_read() {
  request_all();
  (void)wait_for_reply();
  return std::exchange(reply_, std::nullopt);
}

Parameters ParameterClient::read() {
  request_all();
  return await_reply();
}

// Replies are broadcast, so a list may be the reply to another client, from before our write. The daemon
// handles requests and writes in order, and replies to a request for chosen parameters with one message for
// each, in the order of the request. The entry of the last one, which the daemon is known to have, shows that
// it has handled our write, even when the other parameters do not exist. Only an older reply to another
// client with the same last parameter can end the wait early; then the values are old, and the caller tries
// again.
Parameters ParameterClient::read(const Parameters& parameters, std::uint32_t held_id) {
  std::vector<std::uint32_t> ids;
  std::ranges::transform(parameters, std::back_inserter(ids), &Parameter::id);
  std::erase(ids, held_id);
  ids.push_back(held_id);
  reply_.reset();
  entries_.clear();
  end_id_ = held_id;
  request_parameters(session_, ids);
  return await_reply();
}

Parameters ParameterClient::await_reply() {
  const auto notice_due = RequestSession::Clock::now() + notice_delay;
  if (!wait_for_reply(notice_due) && RequestSession::Clock::now() >= notice_due && on_line_) {
    tools::note("waiting for the other side of the ports");
  }
  (void)wait_for_reply();
  if (reply_) {
    return std::move(*reply_);
  }
  if (on_line_ == false) {
    throw Failure(ExitCode::daemon_off_line, "the daemon is off line");
  }
  const std::string no_reply = "no reply within " + session_.time_limit();
  if (!on_line_) {
    throw Failure(ExitCode::daemon_off_line, no_reply + "; no daemon has announced that it is on line");
  }
  throw Failure(ExitCode::time_out,
                no_reply +
                    ": the daemon is waiting for the other side of its ports, or the broker's "
                    "access rules deny access");
}

void ParameterClient::write(const Parameters& parameters) {
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
  (void)session_.bus().publish(topics::parameter_write, std::move(*message));
}

}  // namespace ecu::ctl
