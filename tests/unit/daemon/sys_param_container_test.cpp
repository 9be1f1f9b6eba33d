#include <ctime>

#include <ecu/quil/sys_param_container.h>

#include "support/fake_port.h"
#include "support/testing.h"

namespace {

using namespace ecu::quil;
using State = SysParamContainer::ContainerState;
using Params = std::vector<SysParamContainer::SysParam>;

class SysParamContainerTest : public testing::Test {
 protected:
  void receive(const Params& params) {
    for (const auto& param : params) {
      container.consume(SysParamContainer::to_signal(param));
    }
    container.frame_finished();
  }
  Params cached() const { return container.get_sysparams(); }

  std::shared_ptr<tests::FakePort> port = std::make_shared<tests::FakePort>();
  int callbacks = 0;
  SysParamContainer::Clock::time_point now{};
  SysParamContainer container{port, [this] { ++callbacks; }, 30s, [this] { return now; }};
};

TEST_F(SysParamContainerTest, ARecordCarriesIdentifierLengthAndValue) {
  const auto signal = SysParamContainer::to_signal({0xa009, "TV\0"s});
  EXPECT_EQ(signal.id, 0xa009u);
  EXPECT_EQ(std::string(signal.data.begin(), signal.data.end()), "\x09\xa0\0\0\x03\0\0\0TV\0"s);
  const std::string too_short =
      "ERROR [SysParam] Insufficient signal data to create a SysParam: 3. Expecting at least 4 bytes for the "
      "ota_id";
  const std::string no_payload = "WARNING [SysParam] Creating a Sysparam with no payload. Signal data size: ";
  const struct {
    std::string data;
    bool usable;
    std::string payload, log;
  } cases[] = {{"\x09\xa0\0"s, false, "", too_short},
               {"\x09\xa0\0\0"s, true, "", no_payload + "4"},
               {"\x09\xa0\0\0\x01\0\0\0"s, true, "", no_payload + "8"},
               {"\x09\xa0\0\0\xff\0\0\0x"s, true, "x", ""}};
  for (const auto& c : cases) {
    std::pair<bool, SysParamContainer::SysParam> result;
    const auto log =
        tests::logged_lines([&] { result = SysParamContainer::to_parameter(tests::record(1, c.data)); });
    EXPECT_EQ(result.first, c.usable);
    EXPECT_EQ(result.second.ota_id, c.usable ? 0xa009u : 0u);
    EXPECT_EQ(result.second.payload, c.payload);
    EXPECT_EQ(log, c.log.empty() ? std::vector<std::string>() : std::vector{c.log});
  }
}

TEST_F(SysParamContainerTest, AFrameIsMergedAtItsEndTheLaterRecordOfAnIdentifierWins) {
  container.consume(SysParamContainer::to_signal({5, "old"}));
  container.consume(SysParamContainer::to_signal({6, "six"}));
  container.consume(SysParamContainer::to_signal({5, "new"}));
  EXPECT_EQ(container.get_state(), State::RECEIVING);
  EXPECT_TRUE(container.is_updating());
  EXPECT_THAT(cached(), IsEmpty());
  const auto log = tests::logged_lines([this] { container.frame_finished(); });
  EXPECT_THAT(log,
              ElementsAre("DEBUG [SysParam] frame finished, 2 parameters to merge into SysParamContainer"));
  EXPECT_EQ(container.get_state(), State::SYNCED);
  EXPECT_EQ(cached(), (Params{{5, "new"}, {6, "six"}}));
  EXPECT_EQ(callbacks, 1);
  receive({{7, "seven"}, {5, "newer"}});
  EXPECT_EQ(cached(), (Params{{5, "newer"}, {6, "six"}, {7, "seven"}}));
  container.finished();
  EXPECT_EQ(callbacks, 2);
}

TEST_F(SysParamContainerTest, AFrameAboveTheLimitsIsDroppedUpToItsEnd) {
  constexpr auto most = SysParamContainer::max_params;
  const auto dropped = [this](std::size_t count, const std::string& value) {
    for (std::size_t id = 100; id < 100 + count; ++id) {
      container.consume(SysParamContainer::to_signal({static_cast<std::uint32_t>(id), value}));
    }
    const auto last = tests::logged_lines([&] {
      container.consume(SysParamContainer::to_signal({99, value}));
      container.consume(SysParamContainer::to_signal({98, value}));
      EXPECT_EQ(container.get_state(), State::RECEIVING);
      container.frame_finished();
    });
    EXPECT_THAT(last,
                ElementsAre("INFO [SysParam] Going to handle parameter with id: 63",
                            "ERROR [SysParam] A frame of more than 65536 parameters or 16777216 bytes of "
                            "values is dropped",
                            "DEBUG [SysParam] frame finished, 0 parameters to merge into SysParamContainer"));
  };
  dropped(most, "v");
  EXPECT_EQ(container.get_state(), State::EMPTY);
  receive({{1, "kept"}});
  EXPECT_TRUE(container.update(tests::sequence({{1, "changed"}})));
  dropped(256, std::string(65536, 'x'));
  EXPECT_EQ(container.get_state(), State::SYNCED);
  EXPECT_EQ(cached(), (Params{{1, "kept"}}));
  EXPECT_EQ(callbacks, 1);
  const Params largest(300, {7, std::string(65000, 'x')});  // of one identifier, and so one value
  receive(largest);
  EXPECT_EQ(cached().size(), 2u);
}

TEST_F(SysParamContainerTest, AFrameThatWouldTakeTheCopyAboveTheLimitsIsDropped) {
  const std::string large(65536, 'x');
  const auto numbered = [](std::uint32_t first, std::size_t count, const std::string& value) {
    Params params(count, {first, value});
    for (SysParam& param : params) {
      param.ota_id = first++;
    }
    return params;
  };
  const auto is_refused = [this](const Params& frame) {
    return tests::logged_lines([&] { receive(frame); }).back() ==
           "ERROR [SysParam] A frame after which there would be more than 65536 parameters or 16777216 bytes "
           "of values is dropped";
  };
  EXPECT_FALSE(is_refused(numbered(10, 256, large)));
  EXPECT_TRUE(is_refused({{300, "x"}}));
  EXPECT_TRUE(is_refused({{10, ""}, {11, large + large}, {300, "x"}}));
  EXPECT_EQ(container.get_state(), State::SYNCED);
  EXPECT_EQ(callbacks, 1);
  EXPECT_FALSE(is_refused({{10, ""}, {300, large}}));
  EXPECT_EQ(cached().size(), 257u);
  EXPECT_FALSE(is_refused(numbered(1000, 65279, "")));
  EXPECT_TRUE(is_refused({{10, ""}, {90000, ""}}));
  EXPECT_EQ(cached().size(), 65536u);
}

// In processor time, which other processes do not affect.
TEST_F(SysParamContainerTest, MergeCostIsIndependentOfTheCopysSize) {
  const auto cost = [this](std::uint32_t cached_params) {
    for (std::uint32_t id = 10; id < cached_params; ++id) {
      container.consume(SysParamContainer::to_signal({id, "a value that needs an allocation"}));
    }
    container.frame_finished();
    const std::clock_t start = std::clock();
    for (int i = 0; i < 500; ++i) {
      receive({{10, "value"}});
    }
    return std::clock() - start;
  };
  const std::clock_t few = cost(20);
  EXPECT_LT(cost(20000), 20 * few + CLOCKS_PER_SEC / 10);
}

TEST_F(SysParamContainerTest, TheStateFollowsEveryStep) {
  const auto after = [this](const auto& step) {
    step();
    return container.get_state();
  };
  const auto write = [this](const std::string& value) {
    EXPECT_TRUE(container.update(tests::sequence({{5, value}})));
  };
  EXPECT_EQ(after([] {}), State::EMPTY);
  EXPECT_EQ(after([&] { container.frame_finished(); }), State::EMPTY);
  EXPECT_EQ(after([&] { container.consume(tests::record(5, "abc")); }), State::RECEIVING);
  EXPECT_EQ(after([&] { container.frame_finished(); }), State::RECEIVING);
  EXPECT_EQ(after([&] { receive({{5, "five"}}); }), State::SYNCED);
  EXPECT_EQ(after([&] { write("5"); }), State::UPDATING);
  EXPECT_EQ(after([&] { container.frame_finished(); }), State::UPDATING);
  EXPECT_EQ(after([&] { container.consume(tests::record(2, "secret")); }), State::UPDATING);
  now += 10s;
  EXPECT_EQ(after([&] { write("V"); }), State::UPDATING);
  EXPECT_EQ(after([&] { now += 29s; }), State::UPDATING);
  EXPECT_EQ(after([&] { now += 1s; }), State::UPDATING);  // the one that the second write replaced
  EXPECT_EQ(after([&] { container.consume(SysParamContainer::to_signal({5, "V"})); }), State::RECEIVING);
  EXPECT_EQ(after([&] { container.finished(); }), State::SYNCED);
  write("lost");
  EXPECT_EQ(after([&] { now += 30s - 1ms; }), State::UPDATING);
  const auto log = tests::logged_lines([&] { EXPECT_EQ(after([&] { now += 1ms; }), State::SYNCED); });
  EXPECT_THAT(log, ElementsAre("ERROR [SysParam] System parameter write timed out with no response from RT! "
                               "Returning to state 1"));
}

TEST_F(SysParamContainerTest, OtherRecordsDoNotChangeTheCopy) {
  const auto log = tests::logged_lines([this] {
    for (const std::uint32_t id : {2u, 3u, 4u}) {
      container.consume(tests::record(id, id == 2 ? "secret" : ""));
    }
    EXPECT_EQ(container.get_state(), State::EMPTY);
    container.consume(tests::record(26, "abc"));
  });
  EXPECT_THAT(log, ElementsAre("ERROR [SysParam] IpcSignal data is empty. Signal will not be handled",
                               "INFO [SysParam] Going to handle parameter with id: 1a",
                               HasSubstr("Insufficient signal data")));
}

TEST_F(SysParamContainerTest, OnlyDifferentValuesAreWritten) {
  receive({{5, "five"}, {6, "six"}});
  EXPECT_TRUE(container.update(tests::sequence({{5, "five"}})));
  EXPECT_THAT(port->written, IsEmpty());
  EXPECT_EQ(container.get_state(), State::SYNCED);
  EXPECT_TRUE(container.update(tests::sequence({{5, "five"}, {6, "changed"}, {9, ""}})));
  ASSERT_EQ(port->written.size(), 2u);
  EXPECT_EQ(std::string(port->written[0].data.begin(), port->written[0].data.end()),
            "\x06\0\0\0\x07\0\0\0changed"s);
  EXPECT_EQ(port->written[1].id, 9u);
  EXPECT_EQ(container.get_state(), State::UPDATING);
  receive({{6, "changed"}});
  EXPECT_EQ(container.get_state(), State::SYNCED);
}

TEST_F(SysParamContainerTest, AWriteThatIsRefusedOrAnsweredAtOnceLeavesTheStateOfTheCopy) {
  port->accepts = false;
  EXPECT_FALSE(container.update(tests::sequence({{5, "x"}})));
  EXPECT_EQ(container.get_state(), State::EMPTY);
  receive({{5, "five"}});
  EXPECT_FALSE(container.update(tests::sequence({{5, "x"}})));
  EXPECT_EQ(container.get_state(), State::SYNCED);
  port->accepts = true;
  port->during_write = [this] { receive({{5, "x"}}); };
  EXPECT_TRUE(container.update(tests::sequence({{5, "x"}})));
  EXPECT_EQ(container.get_state(), State::SYNCED);
}

TEST_F(SysParamContainerTest, MessagesCarryListsOfParameters) {
  const Params params{{1, "one"}, {2, "\0\xff"s}, {3, ""}};
  const auto message = SysParamContainer::to_message(params).value();
  Params read;
  const auto sequence = SysParamContainer::from_message_all(message).value();
  for (const bool to_the_end : {true, false}) {
    EXPECT_EQ(sequence([&](const SysParam& param) {
                read.push_back(param);
                return to_the_end || param.ota_id != 2;
              }),
              to_the_end);
  }
  EXPECT_EQ(read, (Params{params[0], params[1], params[2], params[0], params[1]}));
  const auto log = tests::logged_lines([] { EXPECT_FALSE(SysParamContainer::from_message_all({})); });
  EXPECT_EQ(log.back(), "ERROR [SysParam] Unable to deserialize SystemParameterList form com::Message");
}

}  // namespace
