#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>

#include <ecu/tamu/com/connection_observer.h>

#include "mqtt/outbox.h"

namespace ecu::tamu::com::mqtt {

/// Finds the publications for which a broker ends the connection, such as one that exceeds its packet limit
/// or is on a denied topic, and withholds each until its topic has a different payload or a retest passes.
/// quarantine.cpp describes the search. Has no lock: one thread at a time uses it.
class Quarantine {
 public:
  using Clock = std::chrono::steady_clock;

  /// After this time a loss is not attributed to the last publication.
  static constexpr std::chrono::seconds right_after{5};
  /// After this time without a further loss, or after this number of topics that pass their test, all others
  /// are trusted again.
  static constexpr std::chrono::seconds search_time{300};
  static constexpr std::size_t max_passed = 4096;
  /// The pauses before a topic that was set aside several times in a row is tested again.
  static constexpr std::chrono::seconds first_pause{1};
  static constexpr std::chrono::seconds longest_pause{300};

  /// After `retest_after`, one of the messages that are set aside is tested again, and the next one at once
  /// if it passes. The pause doubles with each one that fails, to at most 512 times the first. 0: only a
  /// different payload is tested.
  explicit Quarantine(std::chrono::seconds retest_after = {})
      : retest_after_(retest_after), retest_pause_(retest_after) {}

  enum class Handling {
    send,
    test,            ///< Send it and a fence, and nothing more while `testing`.
    fence_and_test,  ///< The same after another fence, because messages before it were not tested.
    withhold         ///< Do not send it.
  };

  /// Whether `handle` says `send` for every publication.
  [[nodiscard]] bool suspects_nothing() const noexcept { return !searching_ && suspects_.empty(); }

  /// How to handle the next publication.
  [[nodiscard]] Handling handle(const PublicationPtr& publication, Clock::time_point now);

  /// Call on each new connection. When it returns true, send a fence after the subscriptions, and no
  /// publication while `testing`: a broker that ends the connection for another reason does so before.
  [[nodiscard]] bool connection_made(Clock::time_point now) noexcept;

  /// Whether the answer to a fence is awaited: no publication may be sent.
  [[nodiscard]] bool testing() const noexcept { return awaits_broker_ || under_test_ != nullptr; }

  /// The broker has answered a fence: everything sent before it has passed.
  void fence_answered(Clock::time_point now);

  /// True when the loss set a publication aside, so that the client may reconnect at once.
  bool connection_lost(ConnectionFailure failure, Clock::time_point now);

  /// The broker cannot be reached, so the losses before had another cause than a publication, and the broker
  /// that comes back may accept more: a retest is due.
  void attempt_failed();

  /// A withheld publication whose pause is over, for `handle`; null when there is no such publication.
  [[nodiscard]] PublicationPtr take_due(Clock::time_point now);
  /// When `take_due` returns one; `max` when no publication waits.
  [[nodiscard]] Clock::time_point due() const;

 private:
  struct Digest {
    std::size_t size = 0;
    std::size_t hash = 0;
    bool operator==(const Digest&) const = default;
  };
  struct Suspect {
    /// The connection was lost for a message of this size. One that is smaller than before is not withheld
    /// until the larger one is retried, but tested.
    void lost_for(std::size_t bytes, Clock::time_point now) {
      retry_at = bytes < size ? std::min(retry_at, now) : retry_at;
      size = bytes;
    }

    std::size_t size = 0;             // of the message for which the connection was lost last
    int losses = 0;                   // under test, since a message was set aside or one of that size passed
    unsigned times_set_aside = 0;     // since it became a suspect
    std::optional<Digest> set_aside;  // these bytes are withheld until the retest
    std::uint64_t turn = 0;           // rises with each failure; the lowest is retested first
    Clock::time_point retry_at{};     // different messages of at least that size are withheld until then
    PublicationPtr withheld;          // the newest of them
  };

  static Digest digest_of(const Publication& publication);
  [[nodiscard]] bool has_passed(const Publication& publication) const;
  Handling begin_test(const PublicationPtr& publication);
  void end_search() noexcept;
  void end_overdue_search(Clock::time_point now) noexcept;
  void clear_of_suspicion(const Publication& passed, Clock::time_point now);
  void set_aside(const Publication& publication, Suspect& suspect, Clock::time_point now);
  void await_retest(Suspect& suspect, Clock::time_point now);

  const std::chrono::seconds retest_after_;
  int losses_ = 0;  // each within `search_time` of the one before
  Clock::time_point last_loss_;
  bool searching_ = false;
  bool awaits_broker_ = false;    // nothing was published on this connection yet
  bool sent_untested_ = false;    // since the last fence
  bool awaits_untested_ = false;  // the fence between these and the publication under test
  std::unordered_map<std::size_t, std::size_t> passed_;  // hash of the topic: largest size in this search
  std::map<std::string, Suspect> suspects_;              // by topic
  PublicationPtr under_test_;
  Clock::time_point last_sent_;
  std::pair<std::string, std::size_t> last_untested_;  // topic and size, during a search
  int topics_found_ = 0;  // in a row, each within `right_after` of the one before
  Clock::time_point last_found_;

  PublicationPtr retest_;  // the result of `take_due` that is to be tested again
  std::uint64_t last_turn_ = 0;
  std::chrono::seconds retest_pause_;
  Clock::time_point retest_due_;
};

}  // namespace ecu::tamu::com::mqtt
