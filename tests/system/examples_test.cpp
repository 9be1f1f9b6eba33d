#include "system/daemon.h"

namespace tests {
namespace {

/// The parameter is a program of examples/.
class ExamplesTest : public SystemTest, public testing::WithParamInterface<std::string> {
 public:
  ~ExamplesTest() override {
    example.signal(SIGTERM);
    example.wait();
  }

 protected:
  /// In a folder with the messages for Python, with the tools of this build. "timeout" passes the signal that
  /// ends it on to all processes of a shell script.
  ExamplesTest()
      : example({"/usr/bin/env", "PATH=" PROGRAM_DIR ":" SOURCE_DIR "/examples:/usr/bin:/bin",
                 "PYTHONPATH=" + python_messages(), "/usr/bin/timeout", "100", GetParam(), "127.0.0.1",
                 std::to_string(broker.port())}) {}
  [[nodiscard]] std::string python_messages() const {
    Process protoc({"/usr/bin/protoc", "--proto_path=" SOURCE_DIR "/platform/proto",
                    "--python_out=" + dir.path(""), "ecu/tamu/pb/messages.proto"});
    EXPECT_EQ(protoc.wait(), 0);
    return dir.path("");
  }
  /// As often as the daemon wants it confirmed.
  static void publish_vin(BusClient& vehicle, std::string_view vin) {
    for (int i = 0; i < 5; ++i) {
      vehicle.publish(
          "rt/j1939can/rx/vi_00",
          Group().bytes("data", vin).value("nof_bytes", static_cast<double>(vin.size())).message().payload);
    }
  }

  void expect_output(const std::string& text) {
    EXPECT_TRUE(example.wait_for_output(text)) << "no " << text << "in\n" << example.output();
  }

  TempDir dir;
  Process example;
};

TEST_P(ExamplesTest, PrintsTheVinAndItsChangesAndWhyThereIsNone) {
  std::optional<Daemon> daemon(config());
  ASSERT_TRUE(bus.wait_for_text(presence_topic, "online"));
  expect_output("no value yet\n");
  publish_vin(bus, "1M8GDM9AXKP042788");
  expect_output("1M8GDM9AXKP042788\n");
  publish_vin(bus, "WDB9634031L738254");
  expect_output("WDB9634031L738254\n");
  publish_vin(bus, "WDB9634031L738254");
  broker.stop();
  if (GetParam() != "vin-mosquitto.sh") {  // which cannot tell
    expect_output("no connection\n");
  }
  broker.start();
  BusClient vehicle(broker.port());
  vehicle.subscribe(presence_topic);
  ASSERT_TRUE(vehicle.wait_for_text(presence_topic, "online"));
  publish_vin(vehicle, "YV2RT40A8HB828261");
  expect_output("YV2RT40A8HB828261\n");
  daemon.reset();
  expect_output("daemon off line\n");
  daemon.emplace(config());
  EXPECT_TRUE(example.wait_for_output("YV2RT40A8HB828261\n", 2)) << example.output();
  const auto lines = lines_of(example.output());
  EXPECT_EQ(std::ranges::adjacent_find(lines), lines.end()) << "only changes\n" << example.output();
}

INSTANTIATE_TEST_SUITE_P(All, ExamplesTest,
                         testing::Values("vin.py", "vin-by-hand.py", CPP_EXAMPLE, "vin-quilctl.sh",
                                         "vin-mosquitto.sh"),
                         [](const auto& each) {
                           std::string name = each.param.substr(each.param.rfind('/') + 1);
                           std::ranges::replace_if(
                               name, [](char c) { return std::isalnum(c) == 0; }, '_');
                           return name;
                         });

}  // namespace
}  // namespace tests
