#include <ecu/quil/hw_property_variables.h>

#include "support/rt_messages.h"
#include "support/testing.h"

namespace {

using namespace ecu::quil;

template <class Variable>
std::string text_of(const std::string& signal, const tests::Group& group) {
  Variable variable;
  const auto log = tests::logged_lines([&] { EXPECT_TRUE(variable.extract(group.message(7))); });
  EXPECT_THAT(log, ElementsAre("INFO HW Property(" + signal + "): '" + variable.value() + "'"));
  EXPECT_EQ(variable.timestamp(), 7u);
  return variable.value();
}

template <class Variable>
void check(const char* signal, std::initializer_list<std::pair<double, const char*>> texts) {
  for (const auto& [value, text] : texts) {
    EXPECT_EQ(text_of<Variable>(signal, tests::Group().value(signal, value)), text) << signal << " " << value;
  }
}

TEST(HwProperty, ANumberBecomesTheTextOfItsSignal) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  check<HWPropertyModemTypeVariable>("modem_type", {{-infinity, "NONE"},
                                                    {nan, "NONE"},
                                                    {0, "NONE"},
                                                    {1, "2G_3G"},
                                                    {2, "LTE_CAT4_L210"},
                                                    {3, "LTE_CAT4_L280"},
                                                    {4.9, "LTE_CAT6"},
                                                    {5, "UNKNOWN"},
                                                    {4294967296.0, "UNKNOWN"},
                                                    {infinity, "UNKNOWN"}});
  check<HWPropertyDivAntennaVariable>("diversity_antenna", {{-1e30, "NONE"},
                                                            {0.999, "NONE"},
                                                            {1, "INTERNAL_R07"},
                                                            {2, "INTERNAL_R08"},
                                                            {3, "EXTERNAL_R07"},
                                                            {4, "UNKNOWN"}});
  check<HWPropertyHasGnssVariable>(
      "is_gnss",
      {{0.0, "false"}, {-0.0, "false"}, {1.0, "true"}, {0.5, "true"}, {-1.0, "true"}, {nan, "true"}});
}

TEST(HwProperty, ATextEndsAtItsFirstZeroAndIsInLowerCase) {
  for (const auto& [data, text] :
       {std::pair{"DE\0\0"s, "de"s}, {"Truck_9", "truck_9"}, {"\0X"s, ""}, {"", ""}}) {
    EXPECT_EQ(text_of<HWPropertyRegion>("region", tests::Group().bytes("region", data)), text);
    EXPECT_EQ(text_of<HWPropertyVehicleType>("vehicle_type", tests::Group().bytes("vehicle_type", data)),
              text);
  }
}

TEST(HwProperty, UnusableMessagesAreReportedAndKeepTheLastValue) {
  HWPropertyHasD8Variable variable;
  variable.extract(tests::Group().value("is_d8", 1).message(5));
  const auto log = tests::logged_lines([&] {
    EXPECT_FALSE(variable.extract(tests::Group().value("is_can1", 1).message(6)));
    EXPECT_FALSE(variable.extract(tests::raw_message("short")));
  });
  EXPECT_THAT(log, ElementsAre("ERROR [HWPropertyVariable] Unable to extract 'is_d8' signal from SignalGroup "
                               "for topic: rt/system/hw_properties",
                               testing::_,
                               "ERROR [HWPropertyVariable] Unable to unpack (error 1) message for topic: "
                               "rt/system/hw_properties"));
  EXPECT_EQ(variable.value(), "true");
  EXPECT_EQ(variable.timestamp(), 5u);
}

}  // namespace
