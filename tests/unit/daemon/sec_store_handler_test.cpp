#include <ecu/quil/sec_store_handler.h>
#include <ecu/quil/sys_param_container.h>

#include "support/fake_client.h"
#include "support/fake_port.h"
#include "support/ports.h"
#include "support/rt_messages.h"
#include "support/temp_dir.h"
#include "support/testing.h"

namespace {

using namespace ecu::quil;

class SecStoreHandlerTest : public testing::Test {
 protected:
  static std::string text(const auto& bytes) { return {bytes.begin(), bytes.end()}; }

  std::shared_ptr<tests::FakeClient> client = std::make_shared<tests::FakeClient>();
  std::shared_ptr<tests::FakePort> port = std::make_shared<tests::FakePort>();
  std::unique_ptr<SecStoreHandler> handler = std::make_unique<SecStoreHandler>(client, port);
};

TEST_F(SecStoreHandlerTest, ASetValueIsWrittenThenEchoed) {
  ecu::tamu::com::Message set = tests::raw_message("hello");
  set.timestamp = 77;
  client->last_observer->message("system/quil/secstore/setremote", set);
  client->last_observer->message("system/quil/secstore/setmaster", tests::raw_message(""));
  ASSERT_EQ(port->written.size(), 2u);
  EXPECT_EQ(port->written[0].id, 3u);
  EXPECT_EQ(text(port->written[0].data), "\x03\0\0\0\x05\0\0\0hello"s);
  EXPECT_EQ(text(port->written[1].data), "\x02\0\0\0\0\0\0\0"s);
  ASSERT_EQ(client->published.size(), 2u);
  const auto& [topic, echo] = client->published[0];
  EXPECT_EQ(topic, "system/quil/secstore/getremote");
  EXPECT_EQ(text(echo.payload), "hello");
  EXPECT_EQ(echo.timestamp, 77u);
  EXPECT_TRUE(echo.acknowledged && echo.retained);
  EXPECT_EQ(client->published[1].topic, "system/quil/secstore/getmaster");
}

TEST_F(SecStoreHandlerTest, AValueThatThePortRefusesIsNotEchoed) {
  port->accepts = false;
  const auto log = tests::logged_lines([this] {
    handler->message("system/quil/secstore/setmaster", tests::raw_message("x"));
    handler->message("system/quil/secstore/getmaster", tests::raw_message("x"));
  });
  EXPECT_THAT(log, ElementsAre("ERROR Unable to write SecStore to Queueing Port!",
                               "NOTICE Message on unexpect topic 'system/quil/secstore/getmaster' received"));
  EXPECT_THAT(client->published, IsEmpty());
}

TEST_F(SecStoreHandlerTest, AValueFromThePortIsPublished) {
  const auto log = tests::logged_lines([this] {
    port->consume(tests::record(2, "\x02\0\0\0\x04\0\0\0hush"s));
    port->consume(tests::record(4, "\x04\0\0\0\x01\0\0\0x"s));
    port->consume(tests::record(3, "abc"));
  });
  ASSERT_EQ(client->published.size(), 1u);
  const auto& [topic, message] = client->published[0];
  EXPECT_EQ(topic, "system/quil/secstore/getmaster");
  EXPECT_EQ(text(message.payload), "hush");
  EXPECT_TRUE(message.acknowledged && message.retained);
  EXPECT_THAT(
      log,
      ElementsAre(
          "NOTICE Reading sec storage. ota id: 2 signal id: 2",
          "ERROR [SysParam] Insufficient signal data to create a SysParam: 3. Expecting at least 4 bytes "
          "for the ota_id",
          "ERROR Couldn't build a param with to_parameter(), returning early from consume(), signal.id: 3"));
}

TEST_F(SecStoreHandlerTest, EitherConsumerOfAPortMayBeDestroyedFirst) {
  const tests::TempDir dir;
  tests::Fifo receive(dir, "receive");
  receive.open();
  for (const bool this_one_first : {false, true}) {
    handler.reset();
    (void)receive.read();
    const auto real_port = std::make_shared<QueuingPortHandler>(receive.path(), "", 1);
    std::optional<SysParamContainer> other(
        std::in_place, real_port, [] {}, std::chrono::seconds(30));
    handler = std::make_unique<SecStoreHandler>(client, real_port);
    real_port->init();
    if (this_one_first) {
      handler.reset();
    } else {
      other.reset();
    }
    receive.write(tests::wire(2, "not for those who went") + tests::end_mark());
  }
  EXPECT_THAT(client->published, IsEmpty());
}

}  // namespace
