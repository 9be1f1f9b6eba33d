#pragma once

#include <algorithm>
#include <functional>
#include <utility>
#include <vector>

#include <ecu/quil/queuing_port_handler.h>
#include <ecu/quil/sys_params.h>

#include "support/ports.h"

namespace tests {

/// Ports without a far side that record the writes.
class FakePort final : public ecu::quil::QueuingPortHandler {
 public:
  FakePort() : QueuingPortHandler("", "", 1) {}

  [[nodiscard]] bool write(std::size_t count, const ecu::quil::Sequence<IpcSignal>& signals) override {
    if (during_write) {
      during_write();
    }
    const std::size_t before = written.size();
    const bool done = accepts && signals([this](const IpcSignal& signal) {
                        written.push_back(signal);
                        return true;
                      });
    return done && written.size() == before + count;
  }

  bool accepts = true;
  std::function<void()> during_write;
  std::vector<IpcSignal> written;
};

/// The parameters of a list.
inline ecu::quil::Sequence<ecu::quil::SysParam> sequence(std::vector<ecu::quil::SysParam> params) {
  return [params = std::move(params)](const auto& take) { return std::ranges::all_of(params, take); };
}

}  // namespace tests
