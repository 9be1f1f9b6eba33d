#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <ecu/tamu/com/message_fields.h>

namespace ecu::tamu::com {

std::size_t first_field_size(std::span<const std::uint8_t> message) noexcept {
  using google::protobuf::internal::WireFormatLite;

  // Deeper than the parser allows groups to nest: the parser decides what is malformed.
  const int max_depth = 2 * google::protobuf::io::CodedInputStream::GetDefaultRecursionLimit();

  google::protobuf::io::CodedInputStream input(message.data(), static_cast<int>(message.size()));
  input.SetRecursionLimit(max_depth);
  const std::uint32_t tag = input.ReadTag();
  return tag != 0 && WireFormatLite::SkipField(&input, tag)
             ? static_cast<std::size_t>(input.CurrentPosition())
             : 0;
}

}  // namespace ecu::tamu::com
