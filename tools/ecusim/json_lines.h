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

/// What is wrong with a text, and on which line (from 1).
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
  /// A whole number beyond 64 bits is a double.
  std::variant<std::nullptr_t, bool, std::int64_t, double, std::string, Array, Object> value;
};

struct Json::Member {
  int line;
  std::string key;
  Json value;
};

/// Parses a whole text. Throws `Fault` for what is no JSON, for a key that an object holds twice, and for
/// values nested deeper than 32.
[[nodiscard]] Json parse_json(std::string_view text);

/// Access by key and type to an object of which every key is known beforehand. Whatever is not as the caller
/// asks is thrown as a `Fault` on the line where it stands. Refers to the value, which must outlive it.
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

  /// A text that must be there.
  [[nodiscard]] const std::string& required_text(std::string_view key) const;
  /// Throws the fault that a member is missing.
  [[noreturn]] void miss(std::string_view member) const;

 private:
  int line_;
  std::string what_;
  const Json::Object* object_;
};

/// `value` as an object; throws `Fault` naming it as `what` when it is none.
[[nodiscard]] const Json::Object& object_of(const Json& value, std::string_view what);

/// The texts and whole numbers in `value`; throws `Fault` naming it as `what` when it is none or out of
/// range.
[[nodiscard]] const std::string& text_of(const Json& value, std::string_view what);
[[nodiscard]] std::int64_t whole_number_of(const Json& value, std::string_view what, std::int64_t min,
                                           std::int64_t max);

}  // namespace ecu::sim
