#include <system_error>

#include <ecu/quil/vin_variables.h>

#include "support/rt_messages.h"
#include "support/testing.h"

namespace {

using namespace ecu::quil;

constexpr const char* topic = "rt/j1939can/rx/vi_00";

tests::Group group(const std::string& data, double count) {
  return tests::Group().bytes("data", data).value("nof_bytes", count);
}

TEST(Vin, HasOnlyTheAllowedCharactersOfTheCountedBytes) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  const auto check = [](const std::string& data, const std::string& value,
                        std::initializer_list<double> counts) {
    for (const double count : counts) {
      VinVariable variable("vin", topic);
      EXPECT_EQ(variable.extract(group(data, count).message(8)), !value.empty()) << count;
      EXPECT_EQ(variable.value(), value) << count;
      EXPECT_EQ(variable.timestamp(), value.empty() ? 0u : 8u);
    }
  };
  const std::string vin = "1M8GDM9A_KP042788";
  check(vin, vin, {17, 18, 1e300, infinity});
  check(vin, "1M8", {2.1, 3});
  check(vin, "", {0, -0.0, -1, -infinity, nan});
  check(vin + "*\xff", vin, {17, 18, 19});
  check("a-Z.\x01 *\xe4" + std::string(1, '\0') + "9[`{@/:", "a-Z.9", {15, 99});
  check("  **", "", {4});
  check("", "", {17});
}

TEST(Vin, LogsItsRawBytesAndDroppedCharacters) {
  VinVariable variable("vin", topic);
  const auto log = tests::logged_lines([&] {
    variable.extract(group("A \x0f*Z", 5).message());
    variable.extract(group("A", 0).message());
    variable.extract(group("*", -1.5).message());
    variable.extract(tests::Group().value("nof_bytes", 1).message());
    variable.extract(tests::Group().bytes("data", "A").message());
    variable.extract(tests::raw_message(""));
  });
  const std::string at = std::string(" for topic: ") + topic;
  EXPECT_THAT(log,
              ElementsAre("DEBUG Vehicle_id(5) RAW: 4120f2a5a",
                          "DEBUG Threw away 3 chars from VIN [<pos>,<val>]: [1,0x20] [2,0xf] [3,0x2a] ",
                          "INFO Vehicle ID: AZ",  //
                          "INFO Ignoring VIN with zero length",
                          "DEBUG Vehicle_id(-1.5) RAW: ", "INFO Ignoring VIN with invalid data",
                          "ERROR [VinVariable] Unable to extract 'data' signal from SignalGroup" + at,
                          "ERROR [VinVariable] Unable to extract 'nof_bytes'signal from SignalGroup" + at,
                          testing::_, "ERROR [VinVariable] Unable to deserialize (error 1) message" + at));
}

struct Shared {
  std::shared_ptr<std::mutex> mutex = std::make_shared<std::mutex>();
  std::shared_ptr<std::condition_variable> condition = std::make_shared<std::condition_variable>();
  std::shared_ptr<std::atomic_bool> running = std::make_shared<std::atomic_bool>(true);

  [[nodiscard]] std::unique_ptr<VinVariable> variable(unsigned required) const {
    return std::make_unique<VinVariableJ1939Ecu>("00", mutex, condition, running, required);
  }
};

bool offer(VinVariable& variable, char vin) {
  return vin == '?' ? variable.extract(tests::raw_message("")) : variable.extract(group({vin}, 1).message());
}

TEST(VinConfirmation, NeedsIdenticalConsecutiveReceptions) {
  // The receptions, one character for each VIN, and those that confirm a VIN; ?: a refused reception.
  const auto check = [](unsigned required, const std::string& received, const std::string& expected) {
    const Shared shared;
    const auto variable = shared.variable(required);
    std::string confirmed;
    for (const char vin : received) {
      EXPECT_EQ(*shared.running, confirmed.find_first_not_of('.') == std::string::npos);
      confirmed += offer(*variable, vin) ? vin : '.';
    }
    EXPECT_EQ(confirmed, expected) << required << " " << received;
  };
  check(0, "AAAAAAA", ".A.A.A.");
  check(1, "AA?", ".A.");
  check(2, "ABB", "..B");
  check(2, "ABABB", "....B");
  check(2, "A?AA", "...A");
  check(3, "AAAAAA", "..A..A");
  check(3, "AA?AAA", ".....A");
  check(3, "AABAAA", ".....A");
  check(5, "AAAABAAAAA", ".........A");
  check(5, "??AAAA?", ".......");
}

TEST(VinConfirmation, LogsTheCountAndNeedsTheMutex) {
  Shared shared;
  const auto variable = shared.variable(1);
  const auto log = tests::logged_lines([&] {
    offer(*variable, 'A');
    offer(*variable, 'A');
  });
  EXPECT_THAT(log, Contains("DEBUG Received 2/2 to confirm VIN :A; m_prev_msg = A"));
  shared.mutex.reset();
  EXPECT_THAT([&] { offer(*shared.variable(2), 'A'); },
              testing::Throws<std::system_error>(testing::Property(
                  &std::system_error::code, testing::Eq(std::errc::operation_not_permitted))));
}

}  // namespace
