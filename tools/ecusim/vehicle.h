#pragma once

#include <memory>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include <ecu/tamu/com/transport_client.h>

#include "ecusim/delay_queue.h"
#include "ecusim/scenario.h"

namespace ecu::sim {

/// The vehicle's control units: answers the requests for the vehicle identification number (parameter group
/// 0xFEEC of SAE J1939) during its lifetime, on its own thread. Answers are lost without a connection.
class Vehicle {
 public:
  /// Subscribes to the requests.
  Vehicle(VehicleSetup setup, std::shared_ptr<tamu::com::ITransportClient> client);
  ~Vehicle();
  Vehicle(const Vehicle&) = delete;
  Vehicle& operator=(const Vehicle&) = delete;

 private:
  class Requests;
  using Answers = std::vector<ControlUnit>;

  void answer(const std::stop_token& stop);

  const std::shared_ptr<tamu::com::ITransportClient> client_;
  DelayQueue<Answers> answers_;  // synchronises itself
  const std::shared_ptr<Requests> requests_;
  std::jthread thread_;  // last: ends before the members that it uses
};

}  // namespace ecu::sim
