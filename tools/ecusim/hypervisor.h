#pragma once

#include <stop_token>
#include <string>
#include <thread>

#include <ecu/tamu/ipc/queue_port.h>

#include "ecusim/delay_queue.h"
#include "ecusim/fifo.h"
#include "ecusim/scenario.h"

namespace ecu::sim {

/// The far side of the queueing ports, from construction to destruction: makes the two FIFOs, sends what it
/// keeps as soon as the daemon reads, adopts the daemon's writes and answers them. One thread sends, one
/// receives.
class Hypervisor {
 public:
  /// `folder` is where the FIFOs are made, with `access`, under the names of the ports on a unit. Throws
  /// std::system_error when they cannot be made or opened.
  Hypervisor(PortsSetup setup, const std::string& folder, const FifoAccess& access = {});
  ~Hypervisor();
  Hypervisor(const Hypervisor&) = delete;
  Hypervisor& operator=(const Hypervisor&) = delete;

  /// Sends all parameters again, for a daemon that has lost them. Any thread.
  void send_parameters_again();

 private:
  class Storage;

  void send(const std::stop_token& stop);

  // Named from the daemon's point of view.
  const Fifo receive_port_;
  const Fifo send_port_;
  DelayQueue<tamu::com::Payload> frames_;  // synchronises itself
  Storage* storage_ = nullptr;             // synchronises itself; the reader owns it
  tamu::ipc::QueuePortReader<24u, tamu::ipc::signal_t_dyn<24u>> reader_;
  std::jthread receiver_;
  std::jthread sender_;
};

}  // namespace ecu::sim
