#include <cmath>

#include <ecu/tamu/date_time.h>

#include "quilctl/base/failure.h"
#include "quilctl/model/decoding.h"
#include "quilctl/model/recording.h"
#include "quilctl/model/variable_view.h"
#include "support/rt_messages.h"
#include "support/testing.h"

namespace {

using namespace ecu::ctl;
namespace com = ecu::tamu::com;
namespace pb = ecu::tamu::pb;
using tests::framed;
using tests::variable_message;

TEST(QuilctlDecoding, ShowsEveryByteOfAMessage) {
  com::Message message = variable_message("a\xff");
  const std::string unknown = "\x28\x05";  // field 5
  message.payload.insert(message.payload.end(), unknown.begin(), unknown.end());
  const Json surplus = decode("system/var/x", message, false);
  EXPECT_EQ(surplus["kind"], "EcuVariable");
  EXPECT_EQ(surplus["framing"]["protocol_type"], 1);
  EXPECT_EQ(surplus["fields"], (Json{{"value", {{"hex", "61ff"}}}, {"timestamp", 7}}));
  EXPECT_EQ(surplus["surplus"]["hex"], "2805");
  message.payload[5] = static_cast<std::uint8_t>(message.payload[5] + unknown.size());  // the body's length
  EXPECT_EQ(decode("system/var/x", message, false)["unknown_fields"]["hex"], "2805");

  pb::SystemParameterList list;
  list.add_entry()->set_ota_id(17);
  list.add_entry()->set_value("v");
  EXPECT_EQ(decode("system/sysparams/write", framed(list), false)["fields"],
            (Json{{"entry", {{{"ota_id", 17}, {"hex_id", "0x11"}}, {{"value", "v"}}}}}));
  const Json group =
      decode("rt/unknown", tests::Group().bytes("d", "\x01\x02").value("v", 1.5).status(3).message(), false);
  EXPECT_EQ(group["fields"]["signal"][0], (Json{{"name", "d"}, {"data", {{"hex", "0102"}}}}));
  EXPECT_EQ(group["fields"]["signal"][1]["status_name"], "valid");
  const auto odd = tests::Group().bytes("padded", "R08\0\0"s).value("none", NAN).value("below", -HUGE_VAL);
  const Json signals = decode("rt/unknown", odd.message(), false)["fields"]["signal"];
  EXPECT_EQ(signals[0]["text"], "R08");
  EXPECT_EQ(signals[1]["value"], "nan");
  EXPECT_EQ(signals[2]["value"], "-inf");
  std::ostringstream text;
  print_decoded(text, group);
  print_decoded(text, decode("system/quil/request/sysparam", tests::request_for({"40969", "\xff"}), false));
  EXPECT_THAT(text.str(), HasSubstr("  signal:\n    -\n      name: d\n      data: hex 0102\n"));
  EXPECT_THAT(text.str(), HasSubstr("  name:\n    - 40969\n    - hex ff\n"));
}

TEST(QuilctlDecoding, AFaultIsDescribedAndThePayloadShown) {
  com::Message no_type = variable_message("x");
  no_type.payload[1] = no_type.payload[2] = 0;
  com::Message cut = variable_message("x");
  cut.payload.pop_back();
  const std::pair<com::Message, std::string> cases[] = {
      {tests::raw_message("short"), "shorter than a header (18 bytes)"},
      {tests::raw_message(std::string(18, 'x')), "malformed header"},
      {no_type, "protocol type 0 in the header: not used"},
      {cut, "body is shorter than the header says, or malformed"},
  };
  for (const auto& [message, fault] : cases) {
    const Json decoded = decode("system/var/x", message, false);
    EXPECT_EQ(decoded["fault"], fault);
    EXPECT_EQ(decoded["payload"]["hex"].get<std::string>().size(), 2 * message.payload.size());
    EXPECT_FALSE(decoded.contains("fields"));
  }
  EXPECT_EQ(decode("some/topic", tests::raw_message("text"), false)["payload"], "text");
}

TEST(QuilctlVariableView, DistinguishesNoValueAnEmptyValueAndAFaultyMessage) {
  using Change = VariableView::Change;
  VariableView view;
  EXPECT_EQ(view.take("system/var/a", framed(pb::EcuVariable())), Change::changed);
  EXPECT_EQ(view.find("a")->value, std::nullopt);
  EXPECT_EQ(view.take("system/var/a", variable_message("")), Change::changed);
  EXPECT_EQ(view.find("a")->value, "");
  EXPECT_EQ(view.take("system/var/vehicleid", variable_message("")), Change::changed);
  EXPECT_EQ(view.with_value(), 1u) << "a is not in the catalogue";
  EXPECT_EQ(view.take("system/var/a", variable_message("", 8)), Change::none);
  EXPECT_EQ(view.find("a")->timestamp, 8u);
  EXPECT_EQ(view.take("system/var/a", tests::raw_message("junk")), Change::faulty);
  EXPECT_EQ(view.find("a")->value, "");
  EXPECT_EQ(view.take("system/var/a", {}), Change::changed);
  EXPECT_EQ(view.find("a"), nullptr);
  EXPECT_EQ(view.take("system/other", variable_message("x")), Change::other);
}

TEST(QuilctlUnitClock, IsSetByLiveMessagesOnly) {
  UnitClock clock;
  com::Message message = variable_message("x");
  message.timestamp = ecu::tamu::DateTime::time_since_boot_ns();
  message.retained = true;
  clock.take(message);
  EXPECT_EQ(clock.age_of(0), std::nullopt);
  message.retained = false;
  for (int byte = 10; byte < 18; ++byte) {  // sent when the unit was up for 0x10101010'10101010 ns
    message.payload[static_cast<std::size_t>(byte)] = 0x10;
  }
  clock.take(message);
  const std::uint64_t sent = 0x1010101010101010;
  EXPECT_GE(clock.age_of(sent - 5'000'000'000).value(), 5'000'000'000u);
  EXPECT_LT(clock.age_of(sent - 5'000'000'000).value(), 65'000'000'000u);
  EXPECT_EQ(clock.age_of(sent + 600'000'000'000), 0u);
  for (int byte = 10; byte < 18; ++byte) {
    message.payload[static_cast<std::size_t>(byte)] = 0xf0;
  }
  clock.take(message);
  EXPECT_EQ(clock.age_of(0), 0x7fff'ffff'ffff'ffff) << "more than a duration holds";
}

std::vector<Recorded> read(const std::string& text) {
  std::istringstream input(text);
  RecordingReader reader(input, "file");
  std::vector<Recorded> all;
  while (auto message = reader.next()) {
    all.push_back(*message);
  }
  return all;
}

const std::string header = std::string(recording_header) + "\n";

TEST(QuilctlRecording, EveryMessageIsReadAsItWasWritten) {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) {
    bytes += static_cast<char>(byte);
  }
  using std::chrono::microseconds;
  const Recorded cases[] = {
      {microseconds(0), "a/b", false, false, ""},
      {microseconds(1), "odd \"topic\" \\ 車", true, false, "text with \" and \\ and grüße"},
      {microseconds(999'999), "a", false, true, bytes},
      {microseconds(1'000'000), " ", true, true, "one\nline"},
      {microseconds(123'456'789'012), "system/quil/secstore/getmaster", true, true, std::nullopt},
  };
  std::string text = header;
  for (const Recorded& message : cases) {
    text += line_of(message) + '\n';
  }
  const auto all = read(text);
  ASSERT_EQ(all.size(), std::size(cases));
  for (std::size_t i = 0; i < all.size(); ++i) {
    EXPECT_EQ(line_of(all[i]), line_of(cases[i]));
    EXPECT_EQ(all[i].topic, cases[i].topic);
    EXPECT_EQ(all[i].payload, cases[i].payload);
  }
}

TEST(QuilctlRecording, EditsAreAcceptedAndErrorsNameTheirLine) {
  const auto edited =
      read(header + "\n# remark\r\n  5 \"t\"   qos1 retained\t\"x\"  \n5.5 \"t\" hex: 00 ff\n");
  ASSERT_EQ(edited.size(), 2u);
  EXPECT_EQ(line_of(edited[0]), "5.000000 \"t\" retained qos1 \"x\"");
  EXPECT_EQ(line_of(edited[1]), "5.500000 \"t\" hex:00ff");
  for (const std::string line :
       {R"(x "t" "x")", R"(-1 "t" "x")", R"(1.0000001 "t" "x")", R"(1.-1 "t" "x")", R"(1 t "x")", R"(1 "t)",
        R"(1 "" "x")", R"(1 "a/#" "x")", R"(1 "t")", R"(1 "t" "x" y)", R"(1 "t" hex:0)", R"(1 "t" hex:0g)",
        R"(1 "t" "\n")", R"(1 "t" loud "x")", R"(99999999999 "t" "x")", R"(0.5 "t" "x")"}) {
    try {
      (void)read((header + "1 \"t\" \"first\"\n").append(line));
      ADD_FAILURE() << line;
    } catch (const Failure& failure) {
      EXPECT_THAT(failure.what(), testing::StartsWith("file:3: ")) << line;
    }
  }
  EXPECT_THROW((void)read(""), Failure);
  EXPECT_THROW((void)read("1 \"t\" \"x\"\n"), Failure);
}

}  // namespace
