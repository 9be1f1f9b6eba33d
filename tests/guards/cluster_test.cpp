#include <nlohmann/json.hpp>

#include "system/daemon.h"

// Uplinks on a cluster of three brokers, whose nodes are killed. Runs where the name "fleet" has the
// addresses of the nodes; see scripts/test-cluster.
namespace tests {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

constexpr int units = 20;
constexpr auto recovery_limit = seconds(30);

/// A node of the cluster. Its folder outlives its process.
class Node {
 public:
  explicit Node(int number) : address("127.0.0." + std::to_string(number)) { start(); }
  void start() {
    process_.emplace(std::vector<std::string>{"/usr/bin/env", "NODE=" + address,
                                              "STORE=" + dir_.path("store"), NATS_SERVER, "-c",
                                              SOURCE_DIR "/tests/guards/cluster.conf"});
  }
  void kill() { process_.reset(); }
  [[nodiscard]] std::string log() const { return process_ ? process_->output() : "killed"; }

  /// The number of MQTT connections to it.
  [[nodiscard]] int connections() const {
    constexpr const char* established = " 01 ";
    const std::string own = ": 0" + address.substr(address.rfind('.') + 1) + "00007F:075B ";
    std::ifstream table("/proc/self/net/tcp");
    int found = 0;
    for (std::string line; std::getline(table, line);) {
      found += line.find(own) != std::string::npos && line.find(established) != std::string::npos ? 1 : 0;
    }
    return found;
  }

  const std::string address;

 private:
  TempDir dir_;
  std::optional<Process> process_;
};

/// A unit: its bus, and its uplink.
class Unit {
 public:
  explicit Unit(const std::string& name)
      : uplink_(
            {PROGRAM_DIR "/tolquil-uplink", "-l", "INFO", "-c",
             dir_.write("uplink.conf",
                        "host = fleet\nmin_interval = 0\nreconnect_spread = 5\nrepeat_after = 5\nunit = " +
                            name + "\nbus_host = " + broker_.socket_path() + '\n')}) {
    bus_.publish("system/presence/quil", "online", true);
  }
  /// As the daemon publishes a variable.
  void publish(const std::string& variable, const std::string& value) {
    bus_.publish("system/var/" + variable, variable_message(value).payload, true);
  }
  [[nodiscard]] std::string log() const { return uplink_.output(); }

 private:
  TempDir dir_;
  Broker broker_;
  BusClient bus_{broker_.port()};
  Process uplink_;
};

class ClusterTest : public testing::Test {
 public:
  ~ClusterTest() override {
    if (HasFailure()) {
      for (const Node& node : nodes_) {
        std::cerr << "--- node " << node.address << '\n' << node.log() << '\n';
      }
      for (const auto& unit : units_) {
        std::cerr << "--- uplink\n" << unit->log() << '\n';
      }
    }
  }

 protected:
  using Values = std::map<std::string, std::string>;

  ClusterTest() {
    for (int number = 1; number <= units; ++number) {
      const std::string tree = "fleet/" + name_of(number) + '/';
      units_.push_back(std::make_unique<Unit>(name_of(number)));
      expected_[tree + "presence"] = expected_[tree + "daemon"] = "online";
    }
  }

  static std::string name_of(int number) { return "unit-" + std::to_string(number); }

  /// Each unit's daemon publishes `value` for each of its variables.
  void change(const std::string& value) {
    for (int number = 1; number <= units; ++number) {
      for (const char* variable : {"vehicleid", "hwversion", "topversion", "region", "kernelversion"}) {
        units_[static_cast<std::size_t>(number - 1)]->publish(variable, value);
        expected_["fleet/" + name_of(number) + "/var/" + variable] = value;
      }
    }
  }

  /// Reads at each of the nodes, with new connections, until it has all that the units have sent last.
  void expect_values(const std::vector<const Node*>& nodes, const std::string& when) {
    std::vector<std::future<Values>> reads;
    reads.reserve(nodes.size());
    for (const Node* node : nodes) {
      reads.push_back(std::async(std::launch::async, [&, node] { return read_until_complete(*node, when); }));
    }
    for (auto& read : reads) {
      EXPECT_THAT(differences(read.get()), IsEmpty());
    }
  }

  [[nodiscard]] std::vector<std::string> differences(Values values) const {
    std::vector<std::string> differences;
    for (const auto& [topic, value] : expected_) {
      if (values[topic] != value) {
        differences.push_back(topic + ": '" + values[topic] + "' instead of '" + value + '\'');
      }
    }
    return differences;
  }

  Values read_until_complete(const Node& node, const std::string& when) const {
    const auto begin = Clock::now();
    const auto age = [begin] { return std::chrono::duration_cast<seconds>(Clock::now() - begin); };
    Values values;
    do {
      values = read(node);
    } while (!differences(values).empty() && age() < recovery_limit);
    std::cout << when + ", " + node.address + " has " + (differences(values).empty() ? "all" : "not all") +
                     " values after " + std::to_string(age().count()) + " s\n"
              << std::flush;
    return values;
  }

  /// What the node has retained, as far as it tells within a few seconds: a broker without a leader may not
  /// answer.
  [[nodiscard]] Values read(const Node& node) const {
    Process reader({"/usr/bin/mosquitto_sub", "-h", node.address, "-t", "fleet/#", "-v", "--retained-only",
                    "-C", std::to_string(expected_.size() + units), "-W", "3"});
    reader.wait();
    Values values;
    std::istringstream lines(reader.standard_output());
    for (std::string topic, payload; lines >> topic && std::getline(lines >> std::ws, payload);) {
      values[topic] = value_in(payload);
    }
    return values;
  }
  static std::string value_in(const std::string& payload) {
    const auto json = nlohmann::json::parse(payload, nullptr, false);
    return json.is_object() ? json.value("value", "") : payload;
  }

  /// The node that most units are connected to.
  Node& busiest_node() { return *std::ranges::max_element(nodes_, {}, &Node::connections); }

  [[nodiscard]] std::vector<const Node*> others(const Node& one) const {
    std::vector<const Node*> others;
    for (const Node& node : nodes_) {
      if (&node != &one) {
        others.push_back(&node);
      }
    }
    return others;
  }

  std::array<Node, 3> nodes_{Node(1), Node(2), Node(3)};
  std::vector<std::unique_ptr<Unit>> units_;
  Values expected_;
};

TEST_F(ClusterTest, NothingIsLostWhenTheNodeOfTheUnitsIsKilled) {
  change("first");
  expect_values({&nodes_[0], &nodes_[1], &nodes_[2]}, "after the start");
  ASSERT_FALSE(HasFailure());
  for (const std::string round : {"second", "third"}) {
    Node& killed = busiest_node();
    const std::string name =
        killed.address + " with " + std::to_string(killed.connections()) + " connections";
    change("before the " + round);
    killed.kill();
    change(round);
    expect_values(others(killed), "after the loss of " + name);
    killed.start();
    expect_values({&killed}, "after its return");
    ASSERT_FALSE(HasFailure());
  }
}

}  // namespace
}  // namespace tests
