#pragma once

namespace tests {

/// While it lives, the `nth` allocation with `new` from now on in this thread throws std::bad_alloc.
class FailingAllocation {
 public:
  explicit FailingAllocation(int nth) noexcept;
  ~FailingAllocation();
  FailingAllocation(const FailingAllocation&) = delete;
  FailingAllocation& operator=(const FailingAllocation&) = delete;
};

}  // namespace tests
