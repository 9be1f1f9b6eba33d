#pragma once

#include <optional>
#include <utility>
#include <vector>

#include <ecu/quil/sequence.h>
#include <ecu/quil/sys_params.h>
#include <ecu/tamu/com/message.h>
#include <ecu/tamu/ipc/ipc_signal.h>
#include <ecu/tamu/result.h>

/// The two forms in which system parameters travel: records of the queueing ports, and framed protobuf
/// messages on the bus. None of these functions keeps anything; any thread may call them.
namespace ecu::quil {

/// A framed message, or the adapter's error code.
using SysParamMessage = tamu::Result<tamu::com::Message, int>;

/// The parameter that a record carries. The record's length field is ignored: the value extends to the end of
/// the record. Logs an ERROR line and returns false if the record is too short for an identifier.
[[nodiscard]] std::pair<bool, SysParam> to_parameter(const tamu::ipc::IpcSignal& signal);

/// The record of `param`, whose signal identifier is the parameter's.
[[nodiscard]] tamu::ipc::IpcSignal to_signal(const SysParam& param);

/// One `SystemParameterEntry`, or one `SystemParameterList`, with identifiers and values.
[[nodiscard]] SysParamMessage to_message(const SysParam& param);
[[nodiscard]] SysParamMessage to_message(const std::vector<SysParam>& params);

/// The parameters of a `SystemParameterList`, which are read from `msg` one by one, in each call of the
/// sequence again. Nothing, after an ERROR line, for another message.
[[nodiscard]] std::optional<Sequence<SysParam>> from_message_all(const tamu::com::Message& msg);

}  // namespace ecu::quil
