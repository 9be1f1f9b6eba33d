#include <ecu/quil/hw_identity_variables.h>
#include <ecu/quil/hw_property_variables.h>

#include "support/rt_messages.h"
#include "support/testing.h"

namespace {

using namespace ecu::quil;

struct Case {
  std::string data;
  std::string value;  // empty: refused
  std::vector<std::string> log;
};

/// Offers one message after another to a variable, which keeps the last one that it took.
template <class Variable>
void check(const char* signal, std::initializer_list<Case> cases) {
  Variable variable;
  std::string value;
  std::uint64_t now = 76, timestamp = 0;
  for (const Case& c : cases) {
    ++now;
    const bool usable = !c.value.empty();
    value = usable ? c.value : value;
    timestamp = usable ? now : timestamp;
    const auto log = tests::logged_lines([&] {
      EXPECT_EQ(variable.extract(tests::Group().bytes(signal, c.data).message(now)), usable)
          << testing::PrintToString(c.data);
    });
    EXPECT_EQ(variable.value(), value) << testing::PrintToString(c.data);
    EXPECT_EQ(variable.timestamp(), timestamp) << testing::PrintToString(c.data);
    EXPECT_EQ(log, c.log) << testing::PrintToString(c.data);
  }
}

std::string serial(std::string_view bytes, std::size_t tail = 0) {
  return std::string(64, 'x') + std::string(bytes) + std::string(tail, 'y');
}

TEST(HWVersion, IsTheFirstCharactersInLowerCase) {
  const std::string unset = "NOTICE [HWVersionVariable] data is empty or all 0xff or null, ignore.";
  const std::string too_short = "NOTICE [HWVersionVariable] Received string too short";
  check<HWVersionVariable>("variant", {{"R08_B1\0\0\0"s, "r08", {"INFO HW Version: r08"}},
                                       {"abc", "abc", {"INFO HW Version: abc"}},
                                       {"ABCD", "abc", {"INFO HW Version: abc"}},
                                       {"A_BC", "a", {"INFO HW Version: a"}},
                                       {"", "", {unset}},
                                       {"\0\0"s, "", {unset}},
                                       {"\xff\xff\xff", "", {unset}},
                                       {"ab\0cd"s, "", {too_short}},
                                       {"\0\xff\xff\xff"s, "", {too_short}}});
}

TEST(HWVariant, IsTheUnchangedText) {
  const std::string unset = "DEBUG [HWVariantVariable] data is empty or all 0xff or null, ignore.";
  check<HWVariantVariable>("variant", {{"R08_B1\0\0"s, "R08_B1", {"INFO HW Variant: 'R08_B1'"}},
                                       {"\xff\xfe", "\xff\xfe", {"INFO HW Variant: '\\xff\\xfe'"}},
                                       {"", "", {unset}},
                                       {"\0"s, "", {unset}},
                                       {"\xff", "", {unset}}});
}

TEST(NetworkVariant, IsTheTextInLowerCase) {
  const std::string unset = "DEBUG [NetworkVariant] data is empty or all 0xff or nill, ignore.";
  check<NetworkVariantVariable>(
      "network_variant", {{"TRUCK_hd\0X"s, "truck_hd", {"INFO NetworkVariant (VehicleVariant): 'truck_hd'"}},
                          {"\xff\xff", "", {unset}},
                          {"\0\0"s, "", {unset}}});
}

TEST(SerialNumber, IsReadFromBytes64To67) {
  const std::string not_enough =
      "ERROR [SerialNumberVariable] Unable to extract S/N from 'data' signal,not enough elements: ";
  const std::string size = "NOTICE Unexpected size of serial number extract: (";
  const std::string number = "DEBUG before stoull: ", serial_number = "INFO Serial Number: ";
  check<SerialNumberVariable>(
      "data",
      {{serial("\xd2\x02\x96\x49"), "123456-7890", {number + "499602d2", serial_number + "123456-7890"}},
       {serial("\xd2\x02\x96\x49", 60), "123456-7890", {number + "499602d2", serial_number + "123456-7890"}},
       {serial("\xfe\xff\xff\xff"), "429496-7294", {number + "fffffffe", serial_number + "429496-7294"}},
       {serial("\x00\xca\x9a\x3b"s), "100000-0000", {number + "3b9aca00", serial_number + "100000-0000"}},
       {serial("\xff\xc9\x9a\x3b"), "", {number + "3b9ac9ff", size + "9) expected: 10, value: '999999999"}},
       {serial("\xff\xff\xff\xff"), "", {"NOTICE Ignoring invalid serial number (0xFFFFFFFF)"}},
       {serial("\xd2\x02\x96"), "", {not_enough + "67"}},
       {"", "", {not_enough + "0"}}});
}

template <class Variable>
void check_reports(const std::string& unpack, const std::string& find, const std::string& topic) {
  Variable variable;
  const auto log = tests::logged_lines([&] {
    EXPECT_FALSE(variable.extract(tests::raw_message("short")));
    EXPECT_FALSE(variable.extract(tests::Group().bytes("other", "x").message()));
  });
  EXPECT_EQ(log, (std::vector<std::string>{
                     "ERROR [tamu.com.messageadapter] Total length is smaller then expected header length",
                     "ERROR " + unpack + " (error 1) message for topic: " + topic,
                     "ERROR " + find + " signal from SignalGroup for topic: " + topic}));
}

TEST(HwVariables, UnusableMessagesAreReportedUnderTheVariablesName) {
  check_reports<SerialNumberVariable>("[SerialNumberVariable] Unable to deserialize",
                                      "[SerialNumberVariable] Unable to extract 'data'", "rt/system/rtc_ee");
  check_reports<HWVersionVariable>("[HWVersionVariable] Unable to unpack",
                                   "[HWVersionVariable] Unable to extract 'variant'", "rt/system/hw_variant");
  check_reports<HWVariantVariable>("[HWVariantVariable] Unable to unpack",
                                   "[HWVariantVariable] Unable to extract 'variant'", "rt/system/hw_variant");
  check_reports<NetworkVariantVariable>("[NetworkVariant] Unable to unpack",
                                        "[NetworkVariant] Unable to extract 'variant'",
                                        "rt/system/network_variant");
  check_reports<HWPropertyHasD8Variable>("[HWPropertyVariable] Unable to unpack",
                                         "[HWPropertyVariable] Unable to extract 'is_d8'",
                                         "rt/system/hw_properties");
}

template <class Variable>
std::string text_of(const std::string& signal, const tests::Group& group) {
  Variable variable;
  const auto log = tests::logged_lines([&] { EXPECT_TRUE(variable.extract(group.message(7))); });
  EXPECT_THAT(log, ElementsAre("INFO HW Property(" + signal + "): '" + variable.value() + "'"));
  EXPECT_EQ(variable.timestamp(), 7u);
  return variable.value();
}

template <class Variable>
std::vector<std::string> texts_of(const std::string& signal, std::initializer_list<double> values) {
  std::vector<std::string> texts;
  for (const double value : values) {
    texts.push_back(text_of<Variable>(signal, tests::Group().value(signal, value)));
  }
  return texts;
}

TEST(HwProperty, ANumberBecomesTheTextOfItsSignal) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_THAT(texts_of<HWPropertyModemTypeVariable>(
                  "modem_type", {-infinity, nan, 0, 1, 2, 3, 4.9, 5, 4294967296.0, infinity}),
              ElementsAre("NONE", "NONE", "NONE", "2G_3G", "LTE_CAT4_L210", "LTE_CAT4_L280", "LTE_CAT6",
                          "UNKNOWN", "UNKNOWN", "UNKNOWN"));
  EXPECT_THAT(texts_of<HWPropertyDivAntennaVariable>("diversity_antenna", {0.999, 1, 2, 3, 4}),
              ElementsAre("NONE", "INTERNAL_R07", "INTERNAL_R08", "EXTERNAL_R07", "UNKNOWN"));
  EXPECT_THAT(texts_of<HWPropertyHasGnssVariable>("is_gnss", {0.0, -0.0, 1.0, 0.5, -1.0, nan}),
              ElementsAre("false", "false", "true", "true", "true", "true"));
}

TEST(HwProperty, ATextEndsAtItsFirstZeroAndIsInLowerCase) {
  for (const auto& [data, text] :
       {std::pair{"DE\0\0"s, "de"s}, {"Truck_9", "truck_9"}, {"\0X"s, ""}, {"", ""}}) {
    EXPECT_EQ(text_of<HWPropertyRegion>("region", tests::Group().bytes("region", data)), text);
    EXPECT_EQ(text_of<HWPropertyVehicleType>("vehicle_type", tests::Group().bytes("vehicle_type", data)),
              text);
  }
}

}  // namespace
