#pragma once

#include <cstdint>
#include <initializer_list>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace ecu::sim {

/// An error in a text, and its line (from 1).
class Fault : public std::runtime_error {
 public:
  Fault(int line, const std::string& reason) : std::runtime_error(reason), line_(line) {}

  [[nodiscard]] int line() const noexcept { return line_; }

 private:
  int line_;
};

/// A JSON value (RFC 8259) that knows the line it begins on.
struct Json {
  struct Member;
  using Array = std::vector<Json>;
  using Object = std::vector<Member>;  // in the order of the text, each key once

  int line = 1;
  /// A whole number that does not fit into 64 bits is a double.
  std::variant<std::nullptr_t, bool, std::int64_t, double, std::string, Array, Object> value;
};

struct Json::Member {
  int line;
  std::string key;
  Json value;
};

/// Parses a text. Throws `Fault` for invalid JSON, for a key that appears twice in an object, and for values
/// nested deeper than 32.
[[nodiscard]] Json parse_json(std::string_view text);

/// Access by key and type to an object with a known set of keys. Throws a `Fault` with the line of each
/// member that is not as the caller expects. Refers to the value, which must outlive the reader.
class ObjectReader {
 public:
  /// `what` names the object in faults, as in "a message".
  ObjectReader(const Json& value, std::string_view what, std::initializer_list<std::string_view> known_keys);

  [[nodiscard]] int line() const noexcept { return line_; }
  [[nodiscard]] const std::string& what() const noexcept { return what_; }
  /// The member's value, or null.
  [[nodiscard]] const Json* find(std::string_view key) const;
  /// The line of the member's value, or the object's own when there is no such member.
  [[nodiscard]] int line_of(std::string_view key) const;

  /// Each is empty when there is no such member.
  [[nodiscard]] std::optional<bool> flag(std::string_view key) const;
  [[nodiscard]] std::optional<double> number(std::string_view key) const;
  [[nodiscard]] std::optional<std::int64_t> whole_number(std::string_view key, std::int64_t min,
                                                         std::int64_t max) const;
  [[nodiscard]] const std::string* text(std::string_view key) const;
  [[nodiscard]] const Json::Array* list(std::string_view key) const;

  /// A required text.
  [[nodiscard]] const std::string& required_text(std::string_view key) const;
  /// Throws the fault that a member is missing.
  [[noreturn]] void miss(std::string_view member) const;

 private:
  int line_;
  std::string what_;
  const Json::Object* object_;
};

/// `value` as an object; otherwise throws a `Fault` that calls it `what`.
[[nodiscard]] const Json::Object& object_of(const Json& value, std::string_view what);

/// `value` as a text or as a whole number within the range; otherwise throws a `Fault` that calls it `what`.
[[nodiscard]] const std::string& text_of(const Json& value, std::string_view what);
[[nodiscard]] std::int64_t whole_number_of(const Json& value, std::string_view what, std::int64_t min,
                                           std::int64_t max);

}  // namespace ecu::sim
