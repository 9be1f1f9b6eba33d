#include "ecusim/json_lines.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>

namespace ecu::sim {

namespace {

constexpr std::size_t max_depth = 32;

std::string in_quotes(std::string_view key) {
  return '"' + std::string(key) + '"';
}

// Counts the lines before the character read last: the parser reads one character past the end of a number,
// and that may be the end of the line.
class LineCounter {
 public:
  void read(char character) {
    line_ += at_line_end_ ? 1 : 0;
    at_line_end_ = character == '\n';
  }
  [[nodiscard]] int line() const { return line_; }

 private:
  int line_ = 1;
  bool at_line_end_ = false;
};

class CountingIterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  CountingIterator(pointer position, LineCounter& lines) : position_(position), lines_(&lines) {}

  reference operator*() const { return *position_; }
  CountingIterator& operator++() {
    lines_->read(*position_);
    ++position_;
    return *this;
  }
  bool operator==(const CountingIterator& other) const { return position_ == other.position_; }

 private:
  pointer position_;
  LineCounter* lines_;
};

// Without the library's own identifier and, where it gives one, its position.
std::string reason(std::string_view text) {
  text.remove_prefix(text.find("] ") + 2);
  if (text.starts_with("parse error")) {
    text.remove_prefix(text.find(": ") + 2);
  }
  return std::string(text);
}

class TreeBuilder final : public nlohmann::json_sax<nlohmann::json> {
 public:
  explicit TreeBuilder(const LineCounter& lines) : lines_(lines) {}

  Json take() { return std::move(root_); }

  bool null() override { return add(nullptr); }
  bool boolean(bool value) override { return add(value); }
  bool number_integer(number_integer_t value) override { return add(value); }
  bool number_unsigned(number_unsigned_t value) override {
    return value <= std::numeric_limits<std::int64_t>::max() ? add(static_cast<std::int64_t>(value))
                                                             : add(static_cast<double>(value));
  }
  bool number_float(number_float_t value, const string_t& /*token*/) override { return add(value); }
  bool string(string_t& value) override { return add(std::move(value)); }
  bool binary(binary_t& /*value*/) override { return false; }

  bool start_object(std::size_t /*size*/) override { return open(Json::Object{}); }
  bool key(string_t& key) override {
    auto& object = std::get<Json::Object>(open_.back()->value);
    if (std::ranges::find(object, key, &Json::Member::key) != object.end()) {
      throw Fault(lines_.line(), in_quotes(key) + " is given twice");
    }
    object.push_back({lines_.line(), std::move(key), {}});
    return true;
  }
  bool end_object() override { return close(); }
  bool start_array(std::size_t /*size*/) override { return open(Json::Array{}); }
  bool end_array() override { return close(); }

  bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                   const nlohmann::json::exception& error) override {
    throw Fault(lines_.line(), reason(error.what()));
  }

 private:
  template <class T>
  bool add(T value) {
    place({lines_.line(), std::move(value)});
    return true;
  }

  template <class Container>
  bool open(Container container) {
    if (open_.size() == max_depth) {
      throw Fault(lines_.line(), "values are nested too deeply");
    }
    open_.push_back(&place({lines_.line(), std::move(container)}));
    return true;
  }

  bool close() {
    open_.pop_back();
    return true;
  }

  Json& place(Json value) {
    if (open_.empty()) {
      return root_ = std::move(value);
    }
    Json& parent = *open_.back();
    if (auto* const array = std::get_if<Json::Array>(&parent.value)) {
      return array->emplace_back(std::move(value));
    }
    return std::get<Json::Object>(parent.value).back().value = std::move(value);
  }

  const LineCounter& lines_;
  Json root_;
  std::vector<Json*> open_;  // from the root inwards; only the innermost grows, so all stay where they are
};

template <class T>
const T& as(const Json& value, std::string_view what, const char* type) {
  if (const T* const found = std::get_if<T>(&value.value)) {
    return *found;
  }
  throw Fault(value.line, std::string(what) + " must be " + type);
}

}  // namespace

Json parse_json(std::string_view text) {
  LineCounter lines;
  TreeBuilder builder(lines);
  nlohmann::json::sax_parse(CountingIterator(text.data(), lines),
                            CountingIterator(text.data() + text.size(), lines), &builder);
  return builder.take();
}

const Json::Object& object_of(const Json& value, std::string_view what) {
  return as<Json::Object>(value, what, "an object");
}

const std::string& text_of(const Json& value, std::string_view what) {
  return as<std::string>(value, what, "a text");
}

std::int64_t whole_number_of(const Json& value, std::string_view what, std::int64_t min, std::int64_t max) {
  const auto* const number = std::get_if<std::int64_t>(&value.value);
  if (number == nullptr || *number < min || *number > max) {
    throw Fault(value.line, std::string(what) + " must be a whole number from " + std::to_string(min) +
                                " to " + std::to_string(max));
  }
  return *number;
}

ObjectReader::ObjectReader(const Json& value, std::string_view what,
                           std::initializer_list<std::string_view> known_keys)
    : line_(value.line), what_(what), object_(&object_of(value, what)) {
  for (const Json::Member& member : *object_) {
    if (std::ranges::find(known_keys, member.key) == known_keys.end()) {
      throw Fault(member.line, in_quotes(member.key) + " is not a key of " + what_);
    }
  }
}

const Json* ObjectReader::find(std::string_view key) const {
  const auto member = std::ranges::find(*object_, key, &Json::Member::key);
  return member == object_->end() ? nullptr : &member->value;
}

int ObjectReader::line_of(std::string_view key) const {
  const Json* const value = find(key);
  return value == nullptr ? line_ : value->line;
}

std::optional<bool> ObjectReader::flag(std::string_view key) const {
  const Json* const value = find(key);
  return value == nullptr ? std::nullopt : std::optional(as<bool>(*value, in_quotes(key), "true or false"));
}

std::optional<double> ObjectReader::number(std::string_view key) const {
  const Json* const value = find(key);
  if (value == nullptr) {
    return std::nullopt;
  }
  if (const auto* const whole = std::get_if<std::int64_t>(&value->value)) {
    return static_cast<double>(*whole);
  }
  return as<double>(*value, in_quotes(key), "a number");
}

std::optional<std::int64_t> ObjectReader::whole_number(std::string_view key, std::int64_t min,
                                                       std::int64_t max) const {
  const Json* const value = find(key);
  return value == nullptr ? std::nullopt : std::optional(whole_number_of(*value, in_quotes(key), min, max));
}

const std::string* ObjectReader::text(std::string_view key) const {
  const Json* const value = find(key);
  return value == nullptr ? nullptr : &text_of(*value, in_quotes(key));
}

const Json::Array* ObjectReader::list(std::string_view key) const {
  const Json* const value = find(key);
  return value == nullptr ? nullptr : &as<Json::Array>(*value, in_quotes(key), "a list");
}

const std::string& ObjectReader::required_text(std::string_view key) const {
  const std::string* const found = text(key);
  if (found == nullptr) {
    miss(in_quotes(key));
  }
  return *found;
}

void ObjectReader::miss(std::string_view member) const {
  throw Fault(line_, what_ + " needs " + std::string(member));
}

}  // namespace ecu::sim
