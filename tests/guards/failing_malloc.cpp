#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <new>

#include "guards/allocations.h"

// Preloaded into the program under test: counts its allocations in a file that its tester maps, too, and
// makes one fail.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the names are the C library's
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

namespace {

std::atomic<tests::Allocations*> allocations = nullptr;

[[gnu::constructor]] void map_file() {
  const char* path = std::getenv(tests::allocations_variable);
  const int file = path == nullptr ? -1 : ::open(path, O_RDWR | O_CLOEXEC);
  void* mapped = ::mmap(nullptr, sizeof(tests::Allocations), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  ::close(file);
  if (mapped != MAP_FAILED) {
    allocations = static_cast<tests::Allocations*>(mapped);
  }
}

bool must_fail() noexcept {
  tests::Allocations* shared = allocations;
  if (shared == nullptr || ++shared->count != shared->fail_at) {
    return false;
  }
  errno = ENOMEM;
  return true;
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) {
  return must_fail() ? nullptr : __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
  return must_fail() ? nullptr : __libc_calloc(count, size);
}
void* realloc(void* block, std::size_t size) {
  return size > 0 && must_fail() ? nullptr : __libc_realloc(block, size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) {
  return must_fail() ? nullptr : __libc_memalign(alignment, size);
}
int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
  *block = must_fail() ? nullptr : __libc_memalign(alignment, size);
  return *block == nullptr ? ENOMEM : 0;
}

}  // extern "C"
