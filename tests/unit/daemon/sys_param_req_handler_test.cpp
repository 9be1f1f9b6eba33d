#include <ecu/quil/sys_param_req_handler.h>
#include <ecu/tamu/com/pb_internal_message_adapter.h>
#include <ecu/tamu/pb/messages.pb.h>

#include "support/fake_client.h"
#include "support/fake_port.h"
#include "support/rt_messages.h"
#include "support/testing.h"

namespace {

using namespace ecu::quil;
using ecu::tamu::com::Message;
using tests::request_for;
namespace pb = ecu::tamu::pb;

constexpr const char* request = "system/quil/request/sysparam";
constexpr const char* request_all = "system/quil/request/sysparams";
constexpr const char* write = "system/sysparams/write";

template <class Body>
Body body_of(const Message& message) {
  return ecu::tamu::com::PbInternalMessageAdapter<Body>().deserialize(message).body;
}

class SysParamReqHandlerTest : public testing::Test {
 protected:
  void receive(const std::vector<SysParamContainer::SysParam>& params) {
    for (const auto& param : params) {
      port->consume(SysParamContainer::to_signal(param));
    }
    port->frame_finished();
  }
  std::vector<std::string> send(const char* topic, const Message& message = {}) {
    return tests::logged_lines([&] { client->last_observer->message(topic, message); });
  }
  static Message list(const std::vector<SysParamContainer::SysParam>& params) {
    return SysParamContainer::to_message(params).value();
  }

  std::shared_ptr<tests::FakeClient> client = std::make_shared<tests::FakeClient>();
  std::shared_ptr<tests::FakePort> port = std::make_shared<tests::FakePort>();
  int callbacks = 0;
  std::unique_ptr<SysParamReqHandler> handler = std::make_unique<SysParamReqHandler>(
      client, port, [this] { ++callbacks; }, 30s, 1ms);
};

TEST_F(SysParamReqHandlerTest, EveryCachedIdentifierIsAnsweredInTheOrderOfTheRequest) {
  receive({{12, "twelve"}, {0xffffffff, "last"}, {7, "seven"}});
  const auto log = send(request, request_for({"12abc", "abc", "-1", "99999999999", "8", " 7", "0x7", "012"}));
  std::string answers;
  for (const auto& [topic, message] : client->published) {
    EXPECT_EQ(topic, "system/sysparam/");
    EXPECT_FALSE(message.retained || message.acknowledged);
    answers += body_of<pb::SystemParameterEntry>(message).value() + " ";
  }
  EXPECT_EQ(answers, "twelve last seven twelve ");
  EXPECT_THAT(
      log,
      ElementsAre(
          "WARNING [SysParam] Unable to convert 'abc' to string, unable to response for this id!",
          "WARNING [SysParam] Unable to convert '99999999999' to string, unable to response for this id!"));
  const std::size_t answered = client->published.size();
  for (const auto& message : {tests::raw_message("x"), tests::framed_by_hand("\x0a\x01"
                                                                             "7\x0a")}) {
    EXPECT_EQ(send(request, message).back(),
              "WARNING [SysParam] SystemParameter request payload could not be deserialized");
  }
  EXPECT_THAT(send("other"),
              ElementsAre("NOTICE [SysParam] Unable to handle sysparam request for topic other"));
  EXPECT_EQ(client->published.size(), answered);
}

TEST_F(SysParamReqHandlerTest, AllParametersAreAnsweredInOneListEvenWhenThereAreNone) {
  send(request_all);
  receive({{11, "one"}, {12, "two"}});
  send(request_all);
  ASSERT_EQ(client->published.size(), 2u);
  EXPECT_EQ(client->published[0].topic, "system/sysparams");
  EXPECT_FALSE(client->published[0].message.retained || client->published[0].message.acknowledged);
  EXPECT_EQ(body_of<pb::SystemParameterList>(client->published[0].message).entry_size(), 0);
  const auto all = body_of<pb::SystemParameterList>(client->published[1].message);
  ASSERT_EQ(all.entry_size(), 2);
  EXPECT_EQ(all.entry(1).ota_id(), 12u);
  EXPECT_EQ(all.entry(1).value(), "two");
}

TEST_F(SysParamReqHandlerTest, WritesGoToThePortOnlyWhileSynchronised) {
  const std::string discarded =
      "INFO [SysParam] Discarded request to write SysParams since they have gone out of sync with local "
      "cache";
  const std::string received = "DEBUG [SysParam] SysParam write instruction received.";
  EXPECT_THAT(send(write, list({{1, "x"}})), ElementsAre(received, discarded));
  receive({{1, "one"}});
  EXPECT_EQ(callbacks, 1);
  EXPECT_EQ(send(write, tests::raw_message("x")).back(),
            "ERROR [SysParam] Unable to extract system-parameters from transport message.");
  port->accepts = false;
  EXPECT_EQ(send(write, list({{1, "x"}})).back(),
            "ERROR [SysParam] Unable to write SysParams to Queueing Port!");
  port->accepts = true;
  send(write, list({{1, "x"}}));
  EXPECT_EQ(port->written.size(), 1u);
  EXPECT_THAT(send(write, list({{1, "y"}})), ElementsAre(received, discarded));
  port->consume(SysParamContainer::to_signal({1, "x"}));
  EXPECT_EQ(send(write, list({{1, "y"}})).back(), discarded);
  EXPECT_THAT(client->published, IsEmpty());
}

TEST_F(SysParamReqHandlerTest, ARequestWaitsForTheAnswerToAWrite) {
  receive({{1, "old"}});
  send(write, list({{1, "new"}}));
  port->consume(SysParamContainer::to_signal({1, "new"}));
  auto answered = std::async(std::launch::async, [this] {
    client->last_observer->message(request, request_for({"1"}));
    client->last_observer->message(request_all, {});
  });
  EXPECT_EQ(answered.wait_for(20ms), std::future_status::timeout);
  port->frame_finished();
  answered.get();
  ASSERT_EQ(client->published.size(), 2u);
  EXPECT_EQ(body_of<pb::SystemParameterEntry>(client->published[0].message).value(), "new");
  EXPECT_EQ(body_of<pb::SystemParameterList>(client->published[1].message).entry(0).value(), "new");
}

TEST_F(SysParamReqHandlerTest, AStopEndsTheWaitAndTheRestOfARequestWithoutAnAnswer) {
  port->consume(SysParamContainer::to_signal({1, "x"}));
  auto unanswered =
      std::async(std::launch::async, [this] { client->last_observer->message(request_all, {}); });
  handler->stop();
  unanswered.get();
  port->frame_finished();
  send(request, request_for({"1"}));
  EXPECT_THAT(client->published, IsEmpty());
}

}  // namespace
