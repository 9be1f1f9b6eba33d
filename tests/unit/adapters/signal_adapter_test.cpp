#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <ecu/tamu/rt/signal_adapter.h>

#include "support/rt_messages.h"

namespace {

using namespace ecu::tamu::rt;

constexpr const char* properties = "rt/system/hw_properties";

int error_of(const std::string& topic, const ecu::tamu::com::Message& message) {
  const auto result = SignalAdapter::instance().unpack(topic, message);
  return result ? 0 : static_cast<int>(result.error());
}

TEST(SignalAdapter, UnpacksTheSignalsThatTheCatalogueNames) {
  const auto message = tests::Group()
                           .value("is_d8", 1.0)
                           .status(3)
                           .bytes("unheard_of", "x")
                           .bytes("region", "DE")
                           .value("is_d8", 0.5)
                           .message();
  const auto group = SignalAdapter::instance().unpack(properties, message).value();
  EXPECT_EQ(group->signal("unheard_of"), nullptr);
  EXPECT_EQ(group->signal("is_can1"), nullptr);
  ASSERT_NE(group->signal("region"), nullptr);
  EXPECT_EQ(group->signal("region")->data(), (std::vector<std::uint8_t>{'D', 'E'}));
  EXPECT_EQ(group->signal("region")->value_scaled(), 0.0);
  EXPECT_EQ(group->signal("region")->status(), signal_not_available);
  EXPECT_EQ(group->signal("is_d8")->value_scaled(), 0.5);
  EXPECT_EQ(group->signal("is_d8")->status(), signal_not_available);
}

TEST(SignalAdapter, FailsWithTheFramingsErrorsAndOneForUnknownTopics) {
  const auto good = tests::Group().value("is_d8", 1.0).message();
  auto bad_body = good;
  bad_body.payload.pop_back();
  EXPECT_EQ(error_of(properties, good), 0);
  EXPECT_EQ(error_of(properties, tests::raw_message("")), 1);
  EXPECT_EQ(error_of(properties, tests::raw_message(std::string(18, '\xff'))), 2);
  EXPECT_EQ(error_of(properties, bad_body), 5);
  EXPECT_EQ(error_of("rt/system/hw_propertie", good), 6);
}

// The adapter keeps the message it unpacked last; another one must never be taken for it.
TEST(SignalAdapter, TellsMessagesApartThatDifferLittle) {
  const auto value_of = [](const std::string& topic, const ecu::tamu::com::Message& message) {
    const auto group = SignalAdapter::instance().unpack(topic, message).value();
    const Signal* signal = group->signal("data");
    return signal == nullptr ? std::string("none")
                             : std::string(signal->data().begin(), signal->data().end());
  };
  auto message = tests::Group().bytes("data", "a").message(1);
  const auto kept = SignalAdapter::instance().unpack("rt/system/rtc_ee", message).value();
  EXPECT_EQ(value_of("rt/system/rtc_ee", message), "a");
  message.payload.back() = 'b';
  EXPECT_EQ(value_of("rt/system/rtc_ee", message), "b");
  EXPECT_EQ(value_of(properties, message), "none");
  EXPECT_EQ(kept->signal("data")->data().front(), 'a');
}

TEST(SignalAdapter, PacksTheSignalsThatWereSet) {
  const auto& adapter = SignalAdapter::instance();
  auto group = adapter.create_sg("rt/j1939can/tx/rqst_fb_ee").value();
  EXPECT_FALSE(group.set_signal_data("pgn", {}));
  EXPECT_TRUE(group.set_signal_data("parametergroupnumberrqst", std::array<std::uint8_t, 2>{0xec, 0xfe}));
  const auto message = adapter.pack(group).value();
  const auto unpacked = adapter.unpack("rt/j1939can/tx/rqst_fb_ee", message).value();
  const Signal* signal = unpacked->signal("parametergroupnumberrqst");
  ASSERT_NE(signal, nullptr);
  EXPECT_EQ(signal->data(), (std::vector<std::uint8_t>{0xec, 0xfe}));
  EXPECT_EQ(signal->status(), signal_valid);
  EXPECT_FALSE(adapter.create_sg("rt/unheard/of"));
}

}  // namespace
