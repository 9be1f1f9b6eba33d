#include <fcntl.h>
#include <unistd.h>

#include <ecu/tamu/standard_streams.h>

namespace ecu::tamu {

void open_standard_streams() noexcept {
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
    if (::fcntl(stream, F_GETFD) < 0) {
      // open returns the lowest free number, which is that of the stream.
      (void)!::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
  }
}

}  // namespace ecu::tamu
