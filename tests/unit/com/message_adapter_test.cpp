#include <ecu/tamu/com/pb_internal_message_adapter.h>
#include <ecu/tamu/date_time.h>
#include <ecu/tamu/pb/messages.pb.h>

#include "support/failing_allocation.h"
#include "support/rt_messages.h"
#include "support/testing.h"

namespace {

using namespace ecu::tamu;

using Adapter = com::PbInternalMessageAdapter<pb::EcuVariable>;

std::string framed(std::uint64_t framing, const std::string& body) {
  pb::TXFHeader header;
  header.set_framing(framing);
  header.set_send_time_ns(1);
  return header.SerializeAsString() + body;
}

constexpr std::uint64_t word(std::uint64_t type, std::uint64_t header_length, std::uint64_t body_length) {
  return type | header_length << 16 | body_length << 32;
}

pb::EcuVariable variable(const std::string& value) {
  pb::EcuVariable body;
  body.set_value(value);
  body.set_timestamp(42);
  return body;
}

TEST(MessageAdapter, TheHeaderHoldsTheBodysLengthAndTheTimeSinceBoot) {
  const std::uint64_t before = DateTime::time_since_boot_ns();
  const auto message = Adapter().serialize(variable(std::string(70000, 'v')));
  ASSERT_TRUE(message);
  pb::TXFHeader header;
  ASSERT_TRUE(header.ParseFromArray(message->payload.data(), com::txf_header_size));
  EXPECT_EQ(header.framing(), word(1, 18, message->payload.size() - 18));
  EXPECT_EQ(header.send_time_ns(), message->timestamp);
  EXPECT_GE(message->timestamp, before);
  EXPECT_EQ(Adapter().deserialize(*message).body.value(), std::string(70000, 'v'));
}

template <class Body>
void check_bytes(const Body& body, const std::string& bytes) {
  const auto message = com::PbInternalMessageAdapter<Body>().serialize(body);
  EXPECT_EQ(tests::body_bytes(*message), bytes);
  EXPECT_EQ(tests::header_start(*message),
            "\x09\x01\0\x12\0"s + static_cast<char>(bytes.size()) + "\0\0\0\x11"s);
  const auto read = com::PbInternalMessageAdapter<Body>().deserialize(tests::framed_by_hand(bytes));
  EXPECT_TRUE(read.ok);
  EXPECT_EQ(read.body.SerializeAsString(), body.SerializeAsString());
}

TEST(MessageAdapter, EveryMessageHasTheBytesThatOtherProgramsExpect) {
  pb::EcuVariable variable;
  variable.set_value("ab");
  variable.set_timestamp(300);
  check_bytes(variable,
              "\x0a\x02"
              "ab\x10\xac\x02");
  pb::EcuVariableReq request;
  request.add_name("7");
  request.add_name("xyz");
  check_bytes(request,
              "\x0a\x01"
              "7\x0a\x03xyz");
  pb::SystemParameterList list;
  pb::SystemParameterEntry& entry = *list.add_entry();
  entry.set_ota_id(0xa009);
  entry.set_name("n");
  entry.set_type(5);
  entry.set_value("\0v"s);
  list.add_entry()->set_ota_id(1);
  check_bytes(entry, "\x08\x89\xc0\x02\x12\x01n\x18\x05\x22\x02\0v"s);
  check_bytes(list, "\x0a\x0d\x08\x89\xc0\x02\x12\x01n\x18\x05\x22\x02\0v\x0a\x02\x08\x01"s);
}

TEST(MessageAdapter, WithoutMemoryItRefusesInsteadOfThrowing) {
  const std::string value(100, 'v');
  const auto message = Adapter().serialize(variable(value)).value();
  Adapter::Result result;
  int refused = 0;
  const auto log = tests::logged_lines([&] {
    for (; !result.ok; ++refused) {
      result = [&] {
        const tests::FailingAllocation failing(refused + 1);
        return Adapter().deserialize(message);
      }();
      EXPECT_EQ(static_cast<int>(result.error), result.ok ? 0 : 5);
      EXPECT_EQ(result.body.value(), result.ok ? value : "");
    }
    const tests::FailingAllocation failing(1);
    EXPECT_FALSE(Adapter().serialize(result.body));
  });
  EXPECT_GT(refused, 1);
  std::vector<std::string> expected(static_cast<std::size_t>(refused - 1),
                                    "EMERG [tamu.com.messageadapter] Unable to deserialize protobuf");
  expected.emplace_back("EMERG [tamu.com.messageadapter] Unable to allocate memory for serialization!");
  EXPECT_EQ(log, expected);
}

/// A body whose size is each of these in turn.
class BodyOfSizes final : public google::protobuf::MessageLite {
 public:
  explicit BodyOfSizes(std::vector<std::size_t> sizes) : sizes_(std::move(sizes)) {}
  std::size_t ByteSizeLong() const override { return sizes_.at(calls_++); }
  std::string GetTypeName() const override { return "body"; }
  MessageLite* New(google::protobuf::Arena* /*arena*/) const override { return nullptr; }
  void Clear() override {}
  bool IsInitialized() const override { return true; }
  void CheckTypeAndMergeFrom(const MessageLite& /*other*/) override {}
  int GetCachedSize() const override { return 0; }
  std::uint8_t* _InternalSerialize(std::uint8_t* to,
                                   google::protobuf::io::EpsCopyOutputStream* /*stream*/) const override {
    return to;
  }

 private:
  const std::vector<std::size_t> sizes_;
  mutable std::size_t calls_ = 0;
};

TEST(MessageAdapter, RefusesABodyThatIsTooLargeOrGrowsMeanwhile) {
  for (const auto& sizes : {std::vector<std::size_t>{std::size_t{1} << 31}, {1, 2}}) {
    const auto log = tests::logged_lines([&] { EXPECT_FALSE(com::frame(BodyOfSizes(sizes), 1)); });
    EXPECT_THAT(log, ElementsAre("ERROR [tamu.com.messageadapter] unable to serialize body!"));
  }
}

TEST(MessageAdapter, AcceptsAnEmptyBodyAndIgnoresBytesAfterTheBody) {
  const std::string body = variable("abc").SerializeAsString();
  const auto empty = Adapter().deserialize(tests::raw_message(framed(word(1, 18, 0), "")));
  EXPECT_TRUE(empty.ok);
  EXPECT_FALSE(empty.body.has_value());
  const auto followed =
      Adapter().deserialize(tests::raw_message(framed(word(1, 18, body.size()), body + "\xff\xff")));
  EXPECT_TRUE(followed.ok);
  EXPECT_EQ(followed.body.value(), "abc");
}

TEST(MessageAdapter, RefusesMalformedMessagesWithTheirCodeAndOneLine) {
  const std::string body = variable("abc").SerializeAsString();
  const std::string too_short =
      "ERROR [tamu.com.messageadapter] Total length is smaller then expected header length\n";
  const std::string bad_header = "ERROR [tamu.com.messageadapter] Unable to decode the header.\n";
  const std::string bad_body = "EMERG [tamu.com.messageadapter] Unable to deserialize protobuf\n";
  const struct {
    std::string what;
    std::string payload;
    int code;
    std::string line;
  } cases[] = {
      {"empty", "", 1, too_short},
      {"17 bytes", framed(word(1, 18, 0), "").substr(0, 17), 1, too_short},
      {"no protobuf", std::string(18, '\xff'), 2, bad_header},
      {"another message", std::string("\x0a\x10") + std::string(16, 'x'), 2, bad_header},
      {"type 0", framed(word(0, 18, body.size()), body), 3,
       "ERROR [tamu.com.messageadapter] ProtocolType is set to not used!\n"},
      {"header length 19", framed(word(1, 19, body.size()), body), 4,
       "ERROR [tamu.com.messageadapter] Specified hdr-len does not comply.\n"},
      {"body one byte short", framed(word(1, 18, body.size()), body.substr(1)), 5, bad_body},
      {"largest body length", framed(word(1, 18, 0x7fffffff), body), 5, bad_body},
      {"negative body length", framed(word(1, 18, 0xffffffff), body), 5, bad_body},
      {"body no protobuf", framed(word(1, 18, 2), "\x0a\x7f"), 5, bad_body},
  };
  for (const auto& c : cases) {
    Adapter::Result result;
    const std::string log =
        tests::logged_by([&] { result = Adapter().deserialize(tests::raw_message(c.payload)); });
    EXPECT_FALSE(result.ok) << c.what;
    EXPECT_EQ(static_cast<int>(result.error), c.code) << c.what;
    EXPECT_FALSE(result.body.has_value()) << c.what;
    EXPECT_THAT(log, testing::EndsWith(" " + c.line)) << c.what;
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << c.what;
  }
}

TEST(MessageAdapter, AdoptsTheProtocolTypeOfTheMessageRead) {
  Adapter adapter;
  EXPECT_TRUE(adapter.deserialize(tests::raw_message(framed(word(7, 18, 0), ""))).ok);
  EXPECT_EQ(adapter.protocol_type(), 7);
  EXPECT_EQ(tests::header_start(*adapter.serialize({})), "\x09\x07\0\x12\0\0\0\0\0\x11"s);
  EXPECT_FALSE(adapter.deserialize(tests::raw_message(framed(word(0, 18, 0), ""))).ok);
  EXPECT_EQ(adapter.protocol_type(), 0);
}

}  // namespace
