#include <ecu/tamu/rt/signal_adapter.h>

#include "support/allocated_bytes.h"
#include "support/failing_allocation.h"
#include "support/rt_messages.h"
#include "support/testing.h"

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

TEST(SignalAdapter, ReportsTheErrorsOfTheFramingAndUnknownTopics) {
  const auto good = tests::Group().value("is_d8", 1.0).message();
  auto bad_body = good;
  bad_body.payload.pop_back();
  EXPECT_EQ(error_of(properties, good), 0);
  EXPECT_EQ(error_of(properties, tests::raw_message("")), 1);
  EXPECT_EQ(error_of(properties, tests::raw_message(std::string(18, '\xff'))), 2);
  EXPECT_EQ(error_of(properties, bad_body), 5);
  EXPECT_EQ(error_of("rt/system/hw_propertie", good), 6);
}

TEST(SignalAdapter, ReadsTheBytesThatTheRealTimeSideSends) {
  const auto message = tests::framed_by_hand(
      "\x0a\x14\x0a\x04"
      "data\x12\x01\xff\x19\0\0\0\0\0\0\xf0\x3f\x20\x03\x0a\x0b\x0a\x09nof_bytes"s);
  const auto group = SignalAdapter::instance().unpack("rt/j1939can/rx/vi_00", message).value();
  const Signal& data = *group->signal("data");
  EXPECT_EQ(data.data(), (std::vector<std::uint8_t>{0xff}));
  EXPECT_EQ(data.value_scaled(), 1.0);
  EXPECT_EQ(data.status(), 3u);
  EXPECT_EQ(group->signal("nof_bytes")->status(), 0u);
}

TEST(SignalAdapter, RefusesMalformedGroupsAndSkipsUnknownFields) {
  const auto error = [](const std::string& body) {
    return error_of("rt/io/kl15", tests::framed_by_hand(body));
  };
  const std::string kl15 = "\x0a\x06\x0a\x04kl15";
  for (const std::string& good :
       {""s, kl15, "\x10\x01\x1a\x03xyz\x21" + "12345678"s + kl15 + "-1234", "\x0b\x0a\x01z\x0c" + kl15,
        "\x0a\x09\x0a\x04kl15\x3a\x01u"s, "\x0d" + "1234"s}) {
    EXPECT_EQ(error(good), 0) << testing::PrintToString(good);
  }
  for (const std::string& bad :
       {"\x0a"s, "\x0a\x07\x0a\x04kl15"s, "\x0a\0"s, "\x0a\x02\x20\x03"s, "\x0a\xff\xff\xff\xff\x0f"s,
        "\x0a\x03\x0a\x04k"s, "\0\0"s, "\x0c"s, "\x0b"s, "\x1a\x04xyz"s, kl15 + "\x80",
        "\x0a\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\x01"s}) {
    EXPECT_EQ(error(bad), 5) << testing::PrintToString(bad);
  }
}

TEST(SignalAdapter, ReleasesTheMemoryOfLargeMessages) {
  const auto unpack = [](int signals, std::size_t size) {
    tests::Group group;
    for (int i = 0; i < signals; ++i) {
      group.bytes("data", std::string(size, 'x'));
    }
    EXPECT_EQ(error_of("rt/system/rtc_ee", group.message()), 0);
  };
  unpack(1, 1);
  const std::size_t before = tests::allocated_bytes();
  unpack(1, 250'000);
  unpack(2'000, 100);
  unpack(1, 1);
  EXPECT_LT(tests::allocated_bytes(), before + 65536);
}

// The adapter keeps the message it unpacked last; it must never confuse another one with it.
TEST(SignalAdapter, DistinguishesSimilarMessages) {
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

TEST(SignalAdapter, UnpacksAMessageAtTheNextAttemptAfterMemoryRanOut) {
  const auto message = tests::Group().bytes("data", std::string(100, 'x')).message(5);
  bool unpacked = false;
  for (int nth = 1; !unpacked; ++nth) {
    (void)error_of("rt/io/kl15", tests::raw_message(""));
    try {
      const tests::FailingAllocation failing(nth);
      unpacked = error_of("rt/system/rtc_ee", message) == 0;
    } catch (const std::bad_alloc&) {
    }
    EXPECT_EQ(error_of("rt/system/rtc_ee", message), 0) << nth;
  }
}

TEST(SignalAdapter, PacksTheSignalsThatWereSet) {
  const auto& adapter = SignalAdapter::instance();
  auto group = adapter.create_sg("rt/j1939can/tx/rqst_fb_ee").value();
  EXPECT_FALSE(group.set_signal_data("pgn", {}));
  EXPECT_TRUE(group.set_signal_data("parametergroupnumberrqst", std::array<std::uint8_t, 2>{0xec, 0xfe}));
  const auto message = adapter.pack(group).value();
  EXPECT_EQ(tests::body_bytes(message), "\x0a\x20\x0a\x18parametergroupnumberrqst\x12\x02\xec\xfe\x20\x03");
  EXPECT_FALSE(adapter.create_sg("rt/unheard/of"));
}

}  // namespace
