#pragma once

#include <memory>
#include <string>
#include <vector>

namespace ecu::tamu::com::mqtt {

/// What a lookup brought: the host's addresses in numeric form, or why there are none.
struct LookupResult {
  std::vector<std::string> addresses;
  std::string error;
};

/// Looks the addresses of a host up without making anyone wait: a name server that does not answer holds up
/// only a thread that nobody waits for.
class NameLookup {
 public:
  /// Throws std::system_error when no thread can be had.
  explicit NameLookup(std::string host);
  ~NameLookup();

  /// Readable when the result is there.
  [[nodiscard]] int fd() const noexcept;
  /// The result; to be called once `fd` is readable.
  [[nodiscard]] LookupResult take();

 private:
  struct State;
  std::shared_ptr<State> state_;  // shared with the thread
};

/// Looks the addresses up at once, on the calling thread: for addresses, and for names that need no name
/// server.
[[nodiscard]] LookupResult look_up(const std::string& host);

/// Whether the addresses of `host` are known without asking a name server.
[[nodiscard]] bool is_local_knowledge(const std::string& host);

}  // namespace ecu::tamu::com::mqtt
