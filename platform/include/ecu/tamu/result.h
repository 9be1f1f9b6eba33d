#pragma once

#include <exception>
#include <utility>
#include <variant>

namespace ecu::tamu {

/// Either a value or the error that prevented it. T and E must be different types.
template <class T, class E>
class [[nodiscard]] Result {
 public:
  // NOLINTBEGIN(google-explicit-constructor): `return value;` and `return error;` are the point of the type
  Result(T value) : state_(std::in_place_index<0>, std::move(value)) {}
  Result(E error) : state_(std::in_place_index<1>, std::move(error)) {}
  // NOLINTEND(google-explicit-constructor)

  [[nodiscard]] bool ok() const noexcept { return state_.index() == 0; }
  explicit operator bool() const noexcept { return ok(); }

  /// The value; throws std::bad_variant_access when there is none.
  [[nodiscard]] const T& value() const& { return std::get<0>(state_); }
  [[nodiscard]] T&& value() && { return std::get<0>(std::move(state_)); }
  const T& operator*() const& { return value(); }
  const T* operator->() const { return &value(); }

  /// The error. Must not be called when there is a value, which ends the process.
  [[nodiscard]] const E& error() const noexcept {
    const E* const error = std::get_if<1>(&state_);
    if (error == nullptr) {
      std::terminate();
    }
    return *error;
  }

 private:
  std::variant<T, E> state_;
};

}  // namespace ecu::tamu
