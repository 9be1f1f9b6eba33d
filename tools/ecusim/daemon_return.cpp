#include "ecusim/daemon_return.h"

#include <algorithm>
#include <string_view>

namespace ecu::sim {

void DaemonReturn::message(const std::string& /*topic*/, const tamu::com::Message& msg) {
  constexpr std::string_view on_line = "online";
  if (!std::ranges::equal(msg.payload, on_line)) {
    return;
  }
  if (has_been_on_line_) {
    on_return_();
  }
  has_been_on_line_ = true;
}

}  // namespace ecu::sim
