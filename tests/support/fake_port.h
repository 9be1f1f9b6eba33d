#pragma once

#include <functional>
#include <vector>

#include <ecu/quil/queuing_port_handler.h>

#include "support/ports.h"

namespace tests {

/// Ports without a far side that record the writes.
class FakePort final : public ecu::quil::QueuingPortHandler {
 public:
  FakePort() : QueuingPortHandler("", "", 1) {}

  [[nodiscard]] bool write(const std::vector<IpcSignal>& signals) override {
    if (during_write) {
      during_write();
    }
    if (accepts) {
      written.insert(written.end(), signals.begin(), signals.end());
    }
    return accepts;
  }

  bool accepts = true;
  std::function<void()> during_write;
  std::vector<IpcSignal> written;
};

}  // namespace tests
