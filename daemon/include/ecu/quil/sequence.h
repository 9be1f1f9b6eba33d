#pragma once

#include <functional>

namespace ecu::quil {

/// Elements that need not be in memory together, because those of one message may take a multiple of its
/// size: each call passes them to `take` one by one, from the first. `take` returns false to end the call,
/// which then returns false, too.
template <class T>
using Sequence = std::function<bool(const std::function<bool(const T&)>& take)>;

}  // namespace ecu::quil
