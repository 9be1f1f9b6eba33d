#pragma once

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "mqtt/connection_listener.h"

namespace ecu::tamu::com::mqtt {

/// What was sent on a connection and has to be answered by the broker, in the order of sending.
class PendingAnswers {
 public:
  using Clock = std::chrono::steady_clock;

  enum class Kind { publication, subscription, unsubscription, fence };
  struct Request {
    int mid = 0;
    Kind kind = Kind::publication;
    std::string filter{};                     // of a subscription
    Fence fence = Fence::subscriptions;       // of a fence
    std::optional<Clock::time_point> sent{};  // nothing until it has been written
  };

  void add(Request request) {
    publications_ += request.kind == Kind::publication ? 1U : 0U;
    requests_.push_back(std::move(request));
  }

  /// Takes the request that the answer `mid` is for; nothing when none waits for it.
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

  /// All of them have been written. A large message may take long on its way out, which is not the broker's
  /// delay.
  void mark_sent(Clock::time_point now) {
    for (auto request = requests_.rbegin(); request != requests_.rend() && !request->sent; ++request) {
      request->sent = now;
    }
  }

  /// Since when the oldest has waited; nothing when none waits.
  [[nodiscard]] std::optional<Clock::time_point> oldest() const {
    return requests_.empty() ? std::nullopt : requests_.front().sent;
  }

 private:
  std::vector<Request> requests_;
  std::size_t publications_ = 0;
};

}  // namespace ecu::tamu::com::mqtt
