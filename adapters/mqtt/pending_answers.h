#pragma once

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "mqtt/connection_listener.h"

namespace ecu::tamu::com::mqtt {

/// The requests sent on a connection that the broker must still answer, in the order of sending.
class PendingAnswers {
 public:
  using Clock = std::chrono::steady_clock;

  enum class Kind { publication, subscription, unsubscription, fence };
  struct Request {
    int mid = 0;
    Kind kind = Kind::publication;
    std::string filter{};                     // of a subscription
    Fence fence = Fence::subscriptions;       // of a fence
    std::optional<Clock::time_point> sent{};  // empty until it has been written
  };

  void add(Request request) {
    publications_ += request.kind == Kind::publication ? 1U : 0U;
    requests_.push_back(std::move(request));
  }

  /// Takes the request that the answer `mid` belongs to; nothing when there is no such request.
  std::optional<Request> take(int mid) {
    const auto found = std::find_if(requests_.begin(), requests_.end(),
                                    [mid](const Request& request) { return request.mid == mid; });
    if (found == requests_.end()) {
      return std::nullopt;
    }
    Request request = std::move(*found);
    requests_.erase(found);
    publications_ -= request.kind == Kind::publication ? 1U : 0U;
    return request;
  }

  /// How many publications wait for their acknowledgement.
  [[nodiscard]] std::size_t publications() const noexcept { return publications_; }

  /// Records that all requests have been written. The broker's time starts only now, because writing a large
  /// message may take long.
  void mark_sent(Clock::time_point now) {
    for (auto request = requests_.rbegin(); request != requests_.rend() && !request->sent; ++request) {
      request->sent = now;
    }
  }

  /// Since when the oldest request has waited; nothing when no written request waits.
  [[nodiscard]] std::optional<Clock::time_point> oldest() const {
    return requests_.empty() ? std::nullopt : requests_.front().sent;
  }

 private:
  std::vector<Request> requests_;
  std::size_t publications_ = 0;
};

}  // namespace ecu::tamu::com::mqtt
