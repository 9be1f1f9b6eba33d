#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include <ecu/quil/uboot_version.h>
#include <ecu/quil/value_text.h>
#include <ecu/tamu/logging/logging.h>

namespace ecu::quil {

namespace logging = tamu::logging;

namespace {

constexpr auto logger = logging::module("UBootVersionVariable");

constexpr std::string_view uboot_name = "U-Boot";
constexpr const char* unknown_version = "Unknown";
constexpr off_t version_address = UBOOT_ADDRESS;
static_assert(version_address % 4096 == 0, "only whole pages can be mapped");

// Beyond the end of a regular file, which a container may have in place of the device, mapping succeeds but
// reading ends the process.
bool ends_early(int fd) {
  struct stat status {};
  return ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_size <= version_address;
}

// The text in the page at `version_address`.
std::optional<std::string> map_text(const char* device) {
  const auto page_size = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  const int fd = ::open(device, O_RDONLY | O_SYNC);
  if (fd < 0) {
    logger.log(logging::Level::alert, "Could not open U-Boot device");
    return std::nullopt;
  }
  const void* const page =
      ends_early(fd) ? MAP_FAILED : ::mmap(nullptr, page_size, PROT_READ, MAP_PRIVATE, fd, version_address);
  if (page == MAP_FAILED) {
    logger.error("Can't map memory");
    return std::nullopt;
  }
  return text_until_zero(std::span(static_cast<const std::uint8_t*>(page), page_size));
}

}  // namespace

std::string uboot_version(std::string_view text) {
  if (!text.starts_with(uboot_name)) {
    return unknown_version;
  }
  // Without a dash the start wraps to 0, and the version is the "U" before the name's own dash. By that,
  // readers of the variable recognize such a boot loader.
  const std::size_t start = text.find('-', uboot_name.size()) + 1;
  return std::string(text.substr(start, text.find('-', start) - start));
}

std::string read_uboot_version(const char* device) {
  const auto text = map_text(device);
  if (!text) {
    return unknown_version;
  }
  std::string version = uboot_version(*text);
  if (text->starts_with(uboot_name)) {
    logging::info("UBootVersion (original string): ", *text);
  }
  return version;
}

}  // namespace ecu::quil
