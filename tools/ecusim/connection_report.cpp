#include "ecusim/connection_report.h"

#include "common/connection_text.h"
#include "common/notes.h"

namespace ecu::sim {

using tools::note;

void ConnectionReport::connection_up() {
  reported_.clear();
  note("connected to " + broker_);
}

void ConnectionReport::connection_down(tamu::com::ConnectionFailure failure, const std::string& reason) {
  const std::string text = tools::connection_text(broker_, failure, reason);
  if (std::exchange(reported_, text) != text) {
    note(text + "; trying again");
  }
}

void ConnectionReport::subscription_refused(const std::string& filter) {
  note(tools::refusal_text(filter));
}

void ConnectionReport::messages_dropped(const std::string& filter, std::uint64_t count) {
  note(filter + ": " + tools::loss_text(count));
}

}  // namespace ecu::sim
