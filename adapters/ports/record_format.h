#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include <ecu/tamu/ipc/ipc_signal.h>
#include <ecu/tamu/ipc/queue_port.h>

/// The bytes of a queueing port. All integers are little-endian.
///
///   offset  size  content
///        0     2  magic 0x51 0x50
///        2     1  kind: 1 a record, 2 the end of a frame
///        3     1  flag
///        4     4  id
///        8     8  stamp
///       16     4  payload length
///       20     4  CRC-32 (IEEE 802.3) over bytes 0 to 19 and the payload
///       24     n  payload
///
/// At the end of a frame flag, id, stamp and length are 0.
namespace ecu::tamu::ipc {

using Record = signal_t_dyn<24u>;

inline constexpr char first_magic_byte = 0x51;
inline constexpr std::size_t crc_offset = 20;
inline constexpr std::size_t max_record_size = Record::header_size + Record::max_payload_size;

/// Replaces `bytes` with the record of `signal`, whose payload must not exceed `Record::max_payload_size`.
void encode_record(const IpcSignal& signal, std::vector<char>& bytes);

/// The mark at the end of a frame.
[[nodiscard]] std::span<const char> end_of_frame() noexcept;

/// The size of the record or mark that begins with `bytes`; nothing when no record can begin with them. While
/// the header is incomplete, the size of a header. Does not check the CRC.
[[nodiscard]] std::optional<std::size_t> announced_size(std::span<const char> bytes) noexcept;

/// The CRC in the header of a record, which must be complete.
[[nodiscard]] std::uint32_t announced_crc(std::span<const char> record) noexcept;

[[nodiscard]] bool is_end_of_frame(std::span<const char> record) noexcept;

/// Decodes a whole record; `signal` keeps its allocation.
void decode_record(std::span<const char> record, IpcSignal& signal);

}  // namespace ecu::tamu::ipc
