#pragma once

#include <chrono>
#include <string>

#include <ecu/tamu/com/connection_observer.h>
#include <ecu/tamu/com/message.h>

namespace ecu::ctl {

/// An event of the bus.
struct Event {
  enum class Kind {
    up,       // connected: the broker has accepted the login
    down,     // an attempt to connect has failed, or the connection is lost; text: the reason
    refused,  // the broker refuses a subscription; text: its filter
    settled,  // everything that the broker retains for the subscriptions has arrived
    message,  // text: the topic
  };
  Kind kind = Kind::message;
  std::string text;
  tamu::com::Message message;
  std::chrono::system_clock::time_point at;
  tamu::com::ConnectionFailure failure = tamu::com::ConnectionFailure::unreachable;  // of down
};

}  // namespace ecu::ctl
