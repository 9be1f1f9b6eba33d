#include "support/failing_allocation.h"

#include <cstdlib>
#include <new>

namespace {

thread_local int allocations_left = 0;  // up to the one that fails; 0: none fails

}  // namespace

// NOLINTBEGIN(cppcoreguidelines-owning-memory): operators new and delete are what the check trusts
void* operator new(std::size_t size) {
  if (allocations_left > 0 && --allocations_left == 0) {
    throw std::bad_alloc();
  }
  if (void* const memory = std::malloc(size == 0 ? 1 : size)) {
    return memory;
  }
  throw std::bad_alloc();
}

// The sanitizer's own does not call the one above.
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  try {
    return ::operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}
// NOLINTEND(cppcoreguidelines-owning-memory)

// protobuf does not free the entry that it is adding to a message when memory runs out.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the sanitizer's name
extern "C" const char* __lsan_default_suppressions() {
  return "leak:google::protobuf::Arena::CreateMaybeMessage";
}

namespace tests {

FailingAllocation::FailingAllocation(int nth) noexcept {
  allocations_left = nth;
}

FailingAllocation::~FailingAllocation() {
  allocations_left = 0;
}

}  // namespace tests
