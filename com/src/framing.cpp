#include <limits>
#include <stdexcept>

#include <ecu/tamu/com/framing.h>
#include <ecu/tamu/date_time.h>
#include <ecu/tamu/logging/logging.h>
#include <ecu/tamu/pb/messages.pb.h>

namespace ecu::tamu::com {

namespace {

using Error = err::PbInternalDeserializationError;

constexpr auto logger = logging::module("tamu.com.messageadapter");

constexpr unsigned header_length_shift = 16;
constexpr unsigned body_length_shift = 32;

std::uint64_t framing_word(std::uint16_t protocol_type, std::size_t body_size) {
  return protocol_type | (std::uint64_t{txf_header_size} << header_length_shift) |
         (std::uint64_t{body_size} << body_length_shift);
}

void write(const google::protobuf::MessageLite& message, std::span<std::uint8_t> room, const char* failure) {
  if (!message.SerializeToArray(room.data(), static_cast<int>(room.size()))) {
    throw std::runtime_error(failure);
  }
}

template <class Parts>
Payload encode(const Parts& parts, std::uint16_t protocol_type, std::uint64_t now) {
  std::size_t body_size = 0;
  parts([&body_size](const google::protobuf::MessageLite& part) { body_size += part.ByteSizeLong(); });
  if (body_size > std::numeric_limits<std::int32_t>::max()) {
    throw std::runtime_error("unable to serialize body!");
  }
  pb::TXFHeader header;
  header.set_framing(framing_word(protocol_type, body_size));
  header.set_send_time_ns(now);

  Payload payload(txf_header_size + body_size);
  write(header, std::span(payload).first(txf_header_size), "unable to serialize TXFheader!");
  std::span<std::uint8_t> room = std::span(payload).subspan(txf_header_size);
  parts([&room](const google::protobuf::MessageLite& part) {
    write(part, room, "unable to serialize body!");
    room = room.subspan(static_cast<std::size_t>(part.GetCachedSize()));
  });
  return payload;
}

template <class Parts>
std::optional<Message> frame_body(const Parts& parts, std::uint16_t protocol_type) noexcept {
  try {
    const std::uint64_t now = DateTime::time_since_boot_ns();
    return make_message(now, encode(parts, protocol_type, now));
  } catch (const std::runtime_error& failure) {
    logger.error(failure.what());
  } catch (...) {
    logger.log(logging::Level::emerg, "Unable to allocate memory for serialization!");
  }
  return std::nullopt;
}

// protobuf's own ParseFromArray writes to standard error when a required field is missing.
bool parse(google::protobuf::MessageLite& message, std::span<const std::uint8_t> bytes) noexcept {
  try {
    return message.ParsePartialFromArray(bytes.data(), static_cast<int>(bytes.size())) &&
           message.IsInitialized();
  } catch (...) {
    return false;
  }
}

Error report(Error error) noexcept {
  using logging::Level;

  switch (error) {
    case Error::success:
      break;
    case Error::too_short:
      logger.log(Level::error, "Total length is smaller then expected header length");
      break;
    case Error::bad_header:
      logger.log(Level::error, "Unable to decode the header.");
      break;
    case Error::protocol_not_used:
      logger.log(Level::error, "ProtocolType is set to not used!");
      break;
    case Error::bad_header_length:
      logger.log(Level::error, "Specified hdr-len does not comply.");
      break;
    case Error::bad_body:
      logger.log(Level::emerg, "Unable to deserialize protobuf");
      break;
  }
  return error;
}

Result<std::span<const std::uint8_t>, Error> check_frame(std::span<const std::uint8_t> payload,
                                                         std::uint16_t& protocol_type) noexcept {
  if (payload.size() < txf_header_size) {
    return Error::too_short;
  }
  pb::TXFHeader header;
  if (!parse(header, payload.first(txf_header_size))) {
    return Error::bad_header;
  }
  const std::uint64_t framing = header.framing();
  protocol_type = static_cast<std::uint16_t>(framing);
  if (protocol_type == 0) {
    return Error::protocol_not_used;
  }
  if (static_cast<std::uint16_t>(framing >> header_length_shift) != txf_header_size) {
    return Error::bad_header_length;
  }
  const auto body_size = static_cast<std::int32_t>(framing >> body_length_shift);
  const std::span<const std::uint8_t> rest = payload.subspan(txf_header_size);
  if (body_size < 0 || static_cast<std::size_t>(body_size) > rest.size()) {
    return Error::bad_body;
  }
  return rest.first(static_cast<std::size_t>(body_size));
}

}  // namespace

std::optional<Message> frame(const google::protobuf::MessageLite& body,
                             std::uint16_t protocol_type) noexcept {
  return frame_body([&body](const auto& take) { take(body); }, protocol_type);
}

std::optional<Message> frame_parts(const BodyParts& parts, std::uint16_t protocol_type) noexcept {
  return frame_body(parts, protocol_type);
}

Result<std::span<const std::uint8_t>, Error> framed_body(std::span<const std::uint8_t> payload,
                                                         std::uint16_t& protocol_type) noexcept {
  auto body = check_frame(payload, protocol_type);
  if (!body) {
    report(body.error());
  }
  return body;
}

Error refuse_body() noexcept {
  return report(Error::bad_body);
}

Error unframe(std::span<const std::uint8_t> payload, google::protobuf::MessageLite& body,
              std::uint16_t& protocol_type) noexcept {
  return report(unframe_quietly(payload, body, protocol_type));
}

Error unframe_quietly(std::span<const std::uint8_t> payload, google::protobuf::MessageLite& body,
                      std::uint16_t& protocol_type) noexcept {
  const auto bytes = check_frame(payload, protocol_type);
  if (!bytes) {
    return bytes.error();
  }
  return parse(body, *bytes) ? Error::success : Error::bad_body;
}

}  // namespace ecu::tamu::com
