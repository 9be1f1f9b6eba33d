#pragma once

#include <chrono>
#include <memory>
#include <stop_token>
#include <thread>
#include <vector>

#include <ecu/tamu/com/transport_client.h>

#include "ecusim/scenario.h"

namespace ecu::sim {

/// Publishes messages by their schedule, on its own thread, from construction to destruction.
///
/// A message that the client refuses because there is no connection is published again every 100 ms.
/// Meanwhile all other messages wait, so that they keep their order. Periods that pass meanwhile are skipped.
class Player {
 public:
  Player(std::vector<Publication> messages, std::shared_ptr<tamu::com::ITransportClient> client);

 private:
  using Clock = std::chrono::steady_clock;

  struct Entry {
    Publication publication;
    Clock::time_point due;
  };

  void play(const std::stop_token& stop);
  bool publish(const Publication& publication) const;
  /// Sets when `entry`, just published, is due again; false when it is not.
  static bool reschedule(Entry& entry);

  const std::shared_ptr<tamu::com::ITransportClient> client_;
  std::vector<Entry> schedule_;  // of the thread alone
  std::jthread thread_;          // last: ends before the members that it uses
};

}  // namespace ecu::sim
