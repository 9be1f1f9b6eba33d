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

/// Asks the daemon for system parameters and hands it new values.
class ParameterTalk {
 public:
  /// Connects; see `Conversation`.
  ParameterTalk(const Options& options, std::chrono::duration<double> usual_timeout);

  /// What the daemon has, in its order. Throws `Failure` when it is off line or does not answer in time; it
  /// does not answer while it waits for the other side of the ports.
  [[nodiscard]] Parameters read();

  /// The same without the failure: nothing when no answer comes in time.
  [[nodiscard]] std::optional<Parameters> try_read();

  /// Those of `ids` that the daemon has once it has handled everything that was sent to it before. `held_id`
  /// is a parameter that it is known to have. Throws as the other one does.
  [[nodiscard]] Parameters read(const std::vector<std::uint32_t>& ids, std::uint32_t held_id);

  /// Tells the daemon to write. What comes of it shows in what is read later.
  void write(const Parameters& parameters);

  [[nodiscard]] std::optional<bool> daemon_on_line() const noexcept { return on_line_; }
  Conversation& conversation() noexcept { return talk_; }

 private:
  void take(const Event& event);
  void take_presence(const Event& event);
  void take_list(const Event& event);
  void take_entry(const Event& event);
  void ask();
  bool wait_for_answer(Conversation::Clock::time_point deadline = Conversation::Clock::time_point::max());
  /// The answer to what was asked; throws as `read` does.
  Parameters answer();

  std::optional<bool> on_line_;
  std::optional<Parameters> answer_;     // complete
  Parameters entries_;                   // of an answer that is not complete yet
  std::optional<std::uint32_t> end_id_;  // the parameter whose entry completes it
  Conversation talk_;                    // last: calls `take` while it is built
};

}  // namespace ecu::ctl
