#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace ecu::tamu::com::mqtt {

/// The result of a lookup: the host's addresses in numeric form, or the reason for their absence.
struct LookupResult {
  std::vector<std::string> addresses;
  std::string error;
};

/// Looks up the addresses of a host on the calling thread.
using Resolver = std::function<LookupResult(const std::string& host)>;

/// Looks up the addresses of a host on a separate thread, which no other thread waits for: a name server that
/// does not answer blocks only that one.
class NameLookup {
 public:
  /// Throws std::system_error when no thread can be created.
  NameLookup(std::string host, Resolver resolve);
  ~NameLookup();

  /// Readable when the result is available.
  [[nodiscard]] int fd() const noexcept;
  /// The result. Call it once, when `fd` is readable.
  [[nodiscard]] LookupResult take();

 private:
  struct State;
  std::shared_ptr<State> state_;  // shared with the thread
};

/// Asks the system's resolver. Blocks as long as a name server does not answer.
[[nodiscard]] LookupResult look_up(const std::string& host);

/// The addresses of `host` that are known without the system's resolver, which may ask a name server even for
/// "localhost"; empty when they must be looked up.
[[nodiscard]] std::vector<std::string> known_addresses(const std::string& host);

}  // namespace ecu::tamu::com::mqtt
