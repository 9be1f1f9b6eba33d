#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include <ecu/quil/sys_param_codec.h>
#include <ecu/tamu/com/message_fields.h>
#include <ecu/tamu/com/pb_internal_message_adapter.h>
#include <ecu/tamu/com/system_parameters.h>
#include <ecu/tamu/logging/logging.h>
#include <ecu/tamu/pb/messages.pb.h>

namespace ecu::quil {

namespace pb = tamu::pb;

namespace {

constexpr auto logger = tamu::logging::module("SysParam");

constexpr std::size_t id_size = sizeof(std::uint32_t);
constexpr std::size_t value_offset = tamu::com::parameter_value_offset;

SysParamMessage result_of(std::optional<tamu::com::Message> message) {
  if (!message) {
    // The framing reports no reason. Only the body can prevent serialization, hence this code.
    return static_cast<int>(tamu::com::err::PbInternalDeserializationError::bad_body);
  }
  return std::move(*message);
}

void fill(pb::SystemParameterEntry& entry, const SysParam& param) {
  entry.set_ota_id(param.ota_id);
  entry.set_value(param.payload);
}

}  // namespace

std::pair<bool, SysParam> to_parameter(const tamu::ipc::IpcSignal& signal) {
  const std::size_t size = signal.data.size();
  if (size < id_size) {
    logger.error("Insufficient signal data to create a SysParam: ", size, ". Expecting at least ", id_size,
                 " bytes for the ota_id");
    return {false, {}};
  }
  SysParam param;
  std::memcpy(&param.ota_id, signal.data.data(), id_size);
  if (size <= value_offset) {
    logger.warning("Creating a Sysparam with no payload. Signal data size: ", size);
  } else {
    param.payload.assign(signal.data.data() + value_offset, size - value_offset);
  }
  return {true, std::move(param)};
}

tamu::ipc::IpcSignal to_signal(const SysParam& param) {
  tamu::ipc::IpcSignal signal;
  signal.id = param.ota_id;
  signal.data.resize(value_offset + param.payload.size());
  const auto length = static_cast<std::uint32_t>(param.payload.size());
  std::memcpy(signal.data.data(), &param.ota_id, id_size);
  std::memcpy(signal.data.data() + id_size, &length, sizeof(length));
  param.payload.copy(signal.data.data() + value_offset, param.payload.size());
  return signal;
}

SysParamMessage to_message(const SysParam& param) {
  pb::SystemParameterEntry entry;
  fill(entry, param);
  return result_of(tamu::com::PbInternalMessageAdapter<pb::SystemParameterEntry>().serialize(entry));
}

// Entry by entry, because the values together may be large.
SysParamMessage to_message(const std::vector<SysParam>& params) {
  const tamu::com::BodyParts parts = [&params](const auto& take) {
    pb::SystemParameterList part;
    pb::SystemParameterEntry& entry = *part.add_entry();
    for (const SysParam& param : params) {
      fill(entry, param);
      take(part);
    }
  };
  return result_of(tamu::com::frame_parts(parts, tamu::com::pb_protocol_type));
}

std::optional<Sequence<SysParam>> from_message_all(const tamu::com::Message& msg) {
  const auto list = tamu::com::MessageFields<pb::SystemParameterList>::of(msg.payload);
  if (!list) {
    logger.error("Unable to deserialize SystemParameterList form com::Message");
    return std::nullopt;
  }
  std::size_t count = 0;
  list->for_each([&count](const pb::SystemParameterList& field) {
    count += static_cast<std::size_t>(field.entry_size());
    return true;
  });
  logger.info(count, " have been deserialized");
  return [list = *list](const auto& take) {
    return list.for_each([&take](pb::SystemParameterList& field) {
      auto& entries = *field.mutable_entry();
      return std::all_of(entries.begin(), entries.end(), [&take](pb::SystemParameterEntry& entry) {
        return take({entry.ota_id(), std::move(*entry.mutable_value())});
      });
    });
  };
}

}  // namespace ecu::quil
