#pragma once

#include <bit>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "fuzz/fuzz.h"

/// A reader of the protobuf wire format that shares nothing with the library.
namespace fuzz {

/// One signal of a group in the wire format.
struct WireSignal {
  std::optional<std::string> name;
  std::vector<std::uint8_t> data;
  double value = 0.0;
  std::uint32_t status = 0;
};

/// Walks over the fields of one message.
class WireReader {
 public:
  using Bytes = std::span<const std::uint8_t>;

  enum class Type : std::uint8_t { varint = 0, fixed64, bytes, group, end_group, fixed32 };

  struct Field {
    std::uint32_t number = 0;
    Type type = Type::varint;
    std::uint64_t scalar = 0;
    Bytes bytes;
  };

  /// `depth` is how deep messages and groups may still nest.
  WireReader(Bytes bytes, int depth) : rest_(bytes), depth_(depth) {}

  [[nodiscard]] bool done() const noexcept { return rest_.empty(); }
  [[nodiscard]] int depth() const noexcept { return depth_; }

  /// The next field; nothing when it is malformed. A group is skipped.
  std::optional<Field> next() {
    auto field = tag();
    if (!field || field->type == Type::end_group) {
      return std::nullopt;
    }
    return content(*field) ? field : std::nullopt;
  }

 private:
  std::optional<std::uint64_t> varint(std::size_t max_size) {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < max_size && i < rest_.size(); ++i) {
      number |= std::uint64_t{rest_[i] & 0x7fU} << (7 * i);
      if (rest_[i] < 0x80) {
        rest_ = rest_.subspan(i + 1);
        return number;
      }
    }
    return std::nullopt;
  }

  std::optional<Field> tag() {
    const auto number = varint(5);
    if (!number || static_cast<std::uint32_t>(*number) >> 3U == 0 || (*number & 7U) > 5) {
      return std::nullopt;
    }
    return Field{static_cast<std::uint32_t>(*number) >> 3U, static_cast<Type>(*number & 7U), 0, {}};
  }

  bool content(Field& field) {
    switch (field.type) {
      case Type::varint:
        return scalar(field, varint(10));
      case Type::fixed64:
        return scalar(field, fixed(8));
      case Type::fixed32:
        return scalar(field, fixed(4));
      case Type::bytes:
        return length_delimited(field);
      case Type::group:
        return group(field.number);
      case Type::end_group:
        break;
    }
    return false;
  }

  static bool scalar(Field& field, std::optional<std::uint64_t> number) {
    field.scalar = number.value_or(0);
    return number.has_value();
  }

  std::optional<std::uint64_t> fixed(std::size_t size) {
    if (rest_.size() < size) {
      return std::nullopt;
    }
    const std::uint64_t number = number_of(rest_.first(size));
    rest_ = rest_.subspan(size);
    return number;
  }

  bool length_delimited(Field& field) {
    const auto size = varint(5);
    if (!size || *size > rest_.size()) {
      return false;
    }
    field.bytes = rest_.first(*size);
    rest_ = rest_.subspan(*size);
    return true;
  }

  bool group(std::uint32_t number) {
    if (--depth_ < 0) {
      return false;
    }
    for (auto field = tag(); field; field = tag()) {
      if (field->type == Type::end_group) {
        ++depth_;
        return field->number == number;
      }
      if (!content(*field)) {
        break;
      }
    }
    return false;
  }

  Bytes rest_;
  int depth_;
};

/// How deep the library lets messages nest.
inline constexpr int max_depth = 100;

inline std::optional<WireSignal> read_signal(WireReader::Bytes bytes) {
  WireSignal signal;
  for (WireReader reader(bytes, max_depth - 1); !reader.done();) {
    const auto field = reader.next();
    if (!field) {
      return std::nullopt;
    }
    using Type = WireReader::Type;
    if (field->number == 1 && field->type == Type::bytes) {
      signal.name.emplace(field->bytes.begin(), field->bytes.end());
    } else if (field->number == 2 && field->type == Type::bytes) {
      signal.data.assign(field->bytes.begin(), field->bytes.end());
    } else if (field->number == 3 && field->type == Type::fixed64) {
      signal.value = std::bit_cast<double>(field->scalar);
    } else if (field->number == 4 && field->type == Type::varint) {
      signal.status = static_cast<std::uint32_t>(field->scalar);
    }
  }
  return signal.name ? std::optional(signal) : std::nullopt;
}

/// The signals of a group in their order; nothing when the bytes are not a group.
inline std::optional<std::vector<WireSignal>> read_signal_group(WireReader::Bytes bytes) {
  std::vector<WireSignal> signals;
  for (WireReader reader(bytes, max_depth); !reader.done();) {
    const auto field = reader.next();
    if (!field) {
      return std::nullopt;
    }
    if (field->number == 1 && field->type == WireReader::Type::bytes) {
      auto signal = read_signal(field->bytes);
      if (!signal) {
        return std::nullopt;
      }
      signals.push_back(std::move(*signal));
    }
  }
  return signals;
}

}  // namespace fuzz
