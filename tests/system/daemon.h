#pragma once

#include "posix/event.h"
#include "support/broker.h"
#include "support/bus_client.h"
#include "support/datagram_socket.h"
#include "support/process.h"
#include "support/rt_messages.h"
#include "support/temp_dir.h"
#include "support/testing.h"

namespace tests {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool sanitized = true;
#else
inline constexpr bool sanitized = false;
#endif

inline const std::string program = PROGRAM_DIR "/tolquil";
inline const std::string presence_topic = "system/presence/quil";

/// The program with its own configuration file; `environment` is added to this process's.
class Daemon : private TempDir, public Process {
 public:
  explicit Daemon(const std::string& config, const std::vector<std::string>& options = {"-L", "-v"},
                  std::vector<std::string> environment = {})
      : Process(command(write("tolquil.conf", config), options, std::move(environment))) {}
  /// Requests a stop before it is killed, so that everything at its end runs, including the checks of
  /// sanitizers.
  ~Daemon() {
    signal(SIGTERM);
    wait(std::chrono::seconds(4));
  }
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  bool wait_until_connected() { return wait_for_output("] connected to "); }

 private:
  static std::vector<std::string> command(const std::string& file, const std::vector<std::string>& options,
                                          std::vector<std::string> words) {
    words.insert(words.begin(), "/usr/bin/env");
    words.insert(words.end(), {program, "-c", file});
    words.insert(words.end(), options.begin(), options.end());
    return words;
  }
};

/// The settings that select a broker.
inline std::string config_for(int port, const std::string& more = "") {
  return "host = 127.0.0.1\nport = " + std::to_string(port) + '\n' + more;
}

/// A broker, another user of its bus that receives every publication of the daemon, and the settings with
/// which the daemon finds the broker.
class SystemTest : public testing::Test {
 protected:
  SystemTest() { bus.subscribe("system/#"); }

  [[nodiscard]] std::string config(const std::string& more = "") const {
    return config_for(broker.port(), more);
  }

  Broker broker;
  BusClient bus{broker.port()};
};

/// A number from a file of /proc, by its name.
inline long number_in(const std::filesystem::path& file, const std::string& name) {
  std::ifstream status(file);
  for (std::string word; status >> word;) {
    if (word == name + ':') {
      status >> word;
      return std::stol(word);
    }
  }
  return 0;
}

/// The lines of a log without their times.
inline std::vector<std::string> lines_of(const std::string& log) {
  std::istringstream text(log);
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) {
    lines.push_back(line.substr(line.find(' ') + 1));
  }
  return lines;
}

inline ecu::tamu::com::Payload hardware_variant(const std::string& value) {
  return Group().bytes("variant", value).message().payload;
}

/// Whether a message with `value` arrives on `topic` within `time`.
inline bool comes(BusClient& bus, const std::string& topic, const std::string& value,
                  std::chrono::milliseconds time = time_limit) {
  const auto carries = [&value](const BusMessage& message) {
    return message.payload.find(value) != std::string::npos;
  };
  return bus.wait_for(topic, carries, time).has_value();
}

}  // namespace tests
