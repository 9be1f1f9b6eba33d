#include "posix/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "posix/unique_fd.h"

namespace ecu::tamu::posix {

std::string why_unreadable(const std::string& path) {
  const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0) {
    return std::strerror(errno);
  }
  return S_ISREG(status.st_mode) ? "" : "not a regular file";
}

}  // namespace ecu::tamu::posix
