#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "quilctl/base/options.h"
#include "quilctl/talk/request_session.h"

namespace ecu::ctl {

/// A system parameter.
struct Parameter {
  std::uint32_t id = 0;
  std::string value;  // any bytes
};

using Parameters = std::vector<Parameter>;

/// The parameter with that identifier; null when there is none.
[[nodiscard]] const Parameter* find(const Parameters& parameters, std::uint32_t id);

/// Requests these parameters, which the daemon answers one by one.
void request_parameters(RequestSession& session, const std::vector<std::uint32_t>& ids);

/// Requests system parameters from the daemon and writes new values.
class ParameterClient {
 public:
  /// Connects; see `RequestSession`.
  explicit ParameterClient(const Options& options,
                           std::chrono::duration<double> default_timeout = std::chrono::seconds(5));

  /// All parameters of the daemon, in its order. Throws `Failure` when the daemon is off line or does not
  /// reply in time. It does not reply while it waits for the other side of the ports.
  [[nodiscard]] Parameters read();

  /// Like `read`, but returns std::nullopt instead of throwing `Failure`.
  [[nodiscard]] std::optional<Parameters> try_read();

  /// Those of `parameters` that exist once the daemon has handled what was published before this call, with
  /// the daemon's values. `held_id` must be a parameter that the daemon has. Throws as `read()` does.
  [[nodiscard]] Parameters read(const Parameters& parameters, std::uint32_t held_id);

  /// Requests a write. Read the parameters to learn its result.
  void write(const Parameters& parameters);

  [[nodiscard]] std::optional<bool> daemon_on_line() const noexcept { return on_line_; }
  RequestSession& session() noexcept { return session_; }

 private:
  void handle(const Event& event);
  void handle_list(const Event& event);
  void handle_entry(const Event& event);
  void request_all();
  bool wait_for_reply(RequestSession::Clock::time_point deadline = RequestSession::Clock::time_point::max());
  /// The reply to the last request; throws as `read` does.
  Parameters await_reply();

  std::optional<bool> on_line_;
  std::optional<Parameters> reply_;      // complete
  Parameters entries_;                   // of a reply that is not complete yet
  std::optional<std::uint32_t> end_id_;  // the parameter whose entry completes it
  RequestSession session_;               // last: its construction calls `handle`
};

}  // namespace ecu::ctl
