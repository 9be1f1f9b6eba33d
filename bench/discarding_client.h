#pragma once

#include <cstdint>
#include <string>

#include "support/fake_client.h"

namespace tests {

/// A client without a broker that only counts publications.
class DiscardingClient final : public FakeClient {
 public:
  ecu::tamu::com::PublishResult publish(const std::string& /*topic*/, Message /*message*/) override {
    ++published_count_;
    return ecu::tamu::com::PublishResult::success;
  }
  [[nodiscard]] std::uint64_t published() const noexcept { return published_count_; }

 private:
  std::uint64_t published_count_ = 0;
};

}  // namespace tests
