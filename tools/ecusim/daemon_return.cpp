#include "ecusim/daemon_return.h"

#include <algorithm>
#include <string_view>

#include <ecu/tamu/com/topics.h>

namespace ecu::sim {

void DaemonReturn::message(const std::string& /*topic*/, const tamu::com::Message& msg) {
  if (!std::ranges::equal(msg.payload, std::string_view(tamu::com::topics::presence_online))) {
    return;
  }
  if (has_been_on_line_) {
    on_return_();
  }
  has_been_on_line_ = true;
}

}  // namespace ecu::sim
