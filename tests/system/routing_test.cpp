#include <ecu/tamu/date_time.h>

#include "system/daemon.h"

namespace tests {
namespace {

using ecu::tamu::DateTime;
using testing::ElementsAre;

const std::string rtc_ee = "rt/system/rtc_ee";
const std::string hw_variant = "rt/system/hw_variant";
const std::string network_variant = "rt/system/network_variant";

std::string serial_record() {
  return std::string(64, '\0') + "\xd2\x02\x96\x49";
}

class RoutingTest : public SystemTest {
 protected:
  RoutingTest() { EXPECT_TRUE(bus.wait_for_text(presence_topic, "online")); }

  void send(const std::string& topic, const Group& group) { bus.publish(topic, group.message().payload); }

  static ecu::tamu::pb::EcuVariable variable(const BusMessage& message) {
    return variable_in(raw_message(message.payload));
  }

  Daemon daemon{config()};
};

TEST_F(RoutingTest, AValueIsPublishedRetainedWithTheTimeOfItsReception) {
  const auto before = DateTime::time_since_boot_ns();
  send(rtc_ee, Group().bytes("data", serial_record()));
  ASSERT_TRUE(bus.wait_for("system/var/serialnumber"));
  const auto after = DateTime::time_since_boot_ns();

  BusClient late(broker.port());
  late.subscribe("system/var/#");
  const auto message = late.wait_for("system/var/serialnumber");
  ASSERT_TRUE(message);
  EXPECT_TRUE(message->retained);
  EXPECT_EQ(variable(*message).value(), "123456-7890");
  EXPECT_GT(variable(*message).timestamp(), before);
  EXPECT_LT(variable(*message).timestamp(), after);
}

TEST_F(RoutingTest, TheLogShowsTheOutcomeOfEachMessage) {
  ASSERT_TRUE(daemon.wait_until_connected());
  const auto lines_before = lines_of(daemon.output()).size();
  bus.publish(hw_variant, "bad");
  send(rtc_ee, Group().bytes("other", serial_record()));
  send(hw_variant + "s", Group().bytes("variant", "R08_B1"));
  send(network_variant, Group());
  send(rtc_ee, Group().bytes("data", serial_record()));
  send(hw_variant, Group().bytes("variant", std::string_view("R08_B1\0\0", 8)));
  send(network_variant, Group().bytes("network_variant", "NET-\x1b"));
  ASSERT_TRUE(bus.wait_for("system/var/vehiclevariant"));
  daemon.signal(SIGTERM);
  ASSERT_EQ(daemon.wait(), 0);

  auto lines = lines_of(daemon.standard_output());
  lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(lines_before));
  // The lines of the VIN requester, whose thread writes them at its own time.
  std::erase_if(lines, [](const std::string& line) { return line.find(" thread") != std::string::npos; });
  EXPECT_THAT(
      lines,
      ElementsAre(
          "INFO Received data for EcuVar hwversion (from rt/system/hw_variant)",
          "ERROR [tamu.com.messageadapter] Total length is smaller then expected header length",
          "ERROR [HWVersionVariable] Unable to unpack (error 1) message for topic: rt/system/hw_variant",
          "DEBUG Unable to extract EcuVar from topic: rt/system/hw_variant",
          "INFO Received data for EcuVar hwvariant (from rt/system/hw_variant)",
          "ERROR [HWVariantVariable] Unable to unpack (error 1) message for topic: rt/system/hw_variant",
          "DEBUG Unable to extract EcuVar from topic: rt/system/hw_variant",
          "INFO Received data for EcuVar serialnumber (from rt/system/rtc_ee)",
          "ERROR [SerialNumberVariable] Unable to extract 'data' signal from SignalGroup for topic: "
          "rt/system/rtc_ee",
          "DEBUG Unable to extract EcuVar from topic: rt/system/rtc_ee",
          "INFO Received data for EcuVar vehiclevariant (from rt/system/network_variant)",
          "ERROR [NetworkVariant] Unable to extract 'variant' signal from SignalGroup for topic: "
          "rt/system/network_variant",
          "DEBUG Unable to extract EcuVar from topic: rt/system/network_variant",
          "INFO Received data for EcuVar serialnumber (from rt/system/rtc_ee)",
          "DEBUG before stoull: 499602d2", "INFO Serial Number: 123456-7890",
          "INFO Received data for EcuVar hwversion (from rt/system/hw_variant)", "INFO HW Version: r08",
          "INFO Received data for EcuVar hwvariant (from rt/system/hw_variant)", "INFO HW Variant: 'R08_B1'",
          "INFO Received data for EcuVar vehiclevariant (from rt/system/network_variant)",
          "INFO NetworkVariant (VehicleVariant): 'net-\\x1b'"));
}

}  // namespace
}  // namespace tests
