#pragma once

#include <malloc.h>

#include <cstddef>

namespace tests {

/// The number of bytes that the process has allocated. 0 under sanitizers, which have their own allocator.
inline std::size_t allocated_bytes() {
  const struct mallinfo2 info = ::mallinfo2();
  return info.uordblks + info.hblkhd;
}

}  // namespace tests
