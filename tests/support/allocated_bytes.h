#pragma once

#include <malloc.h>
#include <unistd.h>

#include <cstddef>
#include <fstream>

namespace tests {

/// The number of bytes that the process has allocated. 0 under sanitizers, which have their own allocator.
inline std::size_t allocated_bytes() {
  const struct mallinfo2 info = ::mallinfo2();
  return info.uordblks + info.hblkhd;
}

/// The resident memory of the process.
inline std::size_t resident_bytes() {
  std::size_t all = 0;
  std::size_t resident = 0;
  std::ifstream("/proc/self/statm") >> all >> resident;
  return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

}  // namespace tests
