#include "ecusim/scenario.h"

#include "support/testing.h"

namespace ecu::sim {
namespace {

using tamu::com::Payload;

// The signal is on line 3.
std::string with_signal(const std::string& signal) {
  return "{\"messages\": [\n{\"topic\": \"t\", \"signals\": [\n" + signal + "\n]}]}";
}

// The message's members are on line 2.
std::string with_message(const std::string& members) {
  return "{\"messages\": [{\n" + members + "\n}]}";
}

// The members are on line 2.
std::string with_vehicle(const std::string& members) {
  return "{\"messages\": [], \"vehicle\": {\n" + members + "\n}}";
}
std::string with_ports(const std::string& members) {
  return "{\"messages\": [], \"ports\": {\n" + members + "\n}}";
}

tamu::pb::Signal signal_of(const std::string& text) {
  const Scenario scenario = parse_scenario(with_signal(text));
  return std::get<tamu::pb::SignalGroup>(scenario.messages.at(0).content).signal(0);
}

TEST(ScenarioTest, SignalDataIsReadInEveryForm) {
  const std::pair<const char*, std::string> cases[] = {
      {R"({"name": "s", "text": ""})", ""},
      {R"({"name": "s", "text": "a\u0000b"})", std::string("a\0b", 3)},
      {R"({"name": "s", "hex": "00 fFA0  1b"})", std::string("\x00\xff\xa0\x1b", 4)},
      {R"({"name": "s", "bytes": [0, 255]})", std::string("\x00\xff", 2)},
      {R"({"name": "s", "text": "ab", "pad_to": 4})", std::string("ab\0\0", 4)},
      {R"({"name": "s", "text": "ab", "offset": 1, "pad_to": 4, "pad_with": 255})",
       "\xff"
       "ab\xff"},
      {R"({"name": "s", "pad_to": 2, "pad_with": 46})", ".."},
  };
  for (const auto& [text, data] : cases) {
    const tamu::pb::Signal signal = signal_of(text);
    EXPECT_TRUE(signal.has_data() && !signal.has_value()) << text;
    EXPECT_EQ(signal.data(), data) << text;
    EXPECT_EQ(signal.status(), 3U) << text;
  }
}

TEST(ScenarioTest, SignalWithoutDataHasValueAndStatusOnly) {
  const tamu::pb::Signal signal = signal_of(R"({"name": "s", "value": -1.5, "status": 2})");
  EXPECT_FALSE(signal.has_data());
  EXPECT_EQ(signal.value(), -1.5);
  EXPECT_EQ(signal.status(), 2U);
  EXPECT_EQ(signal_of(R"({"name": "s", "value": 7})").value(), 7.0);
}

TEST(ScenarioTest, MessageWithoutPeriodIsSentOnce) {
  const auto publication = [](const char* members) {
    return parse_scenario(with_message(members)).messages.at(0);
  };
  const Publication once = publication(R"("topic": "t", "at_ms": 5, "raw": "00 ff", "retain": true)");
  EXPECT_EQ(once.at, 5ms);
  EXPECT_EQ(once.times, 1);
  EXPECT_TRUE(once.retain);
  EXPECT_EQ(std::get<Payload>(once.content), (Payload{0x00, 0xff}));
  EXPECT_EQ(publication(R"("topic": "t", "every_ms": 5, "signals": [])").times, std::nullopt);
  EXPECT_EQ(publication(R"("topic": "t", "every_ms": 5, "times": 2, "signals": [])").times, 2);
}

TEST(ScenarioTest, BuiltInScenarioHasTheUnitsIdentity) {
  const Scenario scenario = parse_scenario(default_scenario());
  EXPECT_GE(scenario.expect.size(), 4U);
  const auto& identity = std::get<tamu::pb::SignalGroup>(scenario.messages.at(0).content);
  EXPECT_EQ(scenario.messages.at(0).topic, "rt/system/rtc_ee");
  EXPECT_EQ(identity.signal(0).data().substr(64, 4), "\xd2\x02\x96\x49");
}

TEST(ScenarioTest, FaultNamesLineAndReason) {
  const std::tuple<int, const char*, std::string> cases[] = {
      {3, "unexpected end of input", "{\n\"messages\":\n["},
      {2, "unexpected ','", "{\n\"messages\": ,\n[]}"},
      {3, "expected end of input", "{\"messages\": []}\n\nx"},
      {1, "nested too deeply", std::string(100'000, '[')},
      {1, "a scenario must be an object", "[]"},
      {1, "a scenario needs \"messages\"", "{\n\"expect\": {}\n}"},
      {3, "\"messages\" is given twice", "{\"messages\": [],\n\"expect\": {},\n\"messages\": []}"},
      {2, "\"mesages\" is not a key of a scenario", "{\n\"mesages\": []}"},
      {2, "\"messages\" must be a list", "{\"messages\":\n5\n}"},
      {3, "an expected value must be a text", "{\"expect\": {\"a\": \"\",\n\"b\":\n1}, \"messages\": []}"},
      {1, "a message needs \"topic\"", with_message(R"("raw": "")")},
      {2, "\"topic\" must be a topic to publish on", with_message(R"("topic": "rt/#", "raw": "")")},
      {1, R"(either "signals" or "raw")", with_message(R"("topic": "t", "raw": "", "signals": [])")},
      {2, "\"raw\" must be pairs of hex", with_message(R"("topic": "t", "raw": "0")")},
      {2, "\"at_ms\" must be a whole number from 0", with_message(R"("topic": "t", "raw": "", "at_ms": -1)")},
      {2, "\"at_ms\" must be a whole number", with_message(R"("topic": "t", "raw": "", "at_ms": 1.5)")},
      {2, "\"at_ms\" must be", with_message(R"("topic": "t", "raw": "", "at_ms": 18446744073709551615)")},
      {3, "\"every_ms\" must be a whole number from 1",
       with_message("\"topic\": \"t\", \"raw\": \"\",\n\"every_ms\": 0")},
      {3, R"("times" needs "every_ms")", with_message("\"topic\": \"t\", \"raw\": \"\",\n\"times\": 2")},
      {2, "\"retain\" must be true or false", with_message(R"("topic": "t", "raw": "", "retain": 1)")},
      {2, "\"evry_ms\" is not a key of a message", with_message(R"("topic": "t", "evry_ms": 1)")},
      {3, "\"pad\" is not a key of a signal", with_signal(R"({"name": "s", "pad": 1})")},
      {3, "only one of", with_signal(R"({"name": "s", "text": "", "bytes": []})")},
      {4, "\"hex\" must be pairs of hex", with_signal("{\"name\": \"s\",\n\"hex\": \"0 0\"}")},
      {5, "a byte must be a whole number from 0 to 255",
       with_signal("{\"name\": \"s\", \"bytes\": [1,\n2,\n256]}")},
      {3, "\"pad_to\" is less than the 2 bytes", with_signal(R"({"name": "s", "text": "ab", "pad_to": 1})")},
      {3, "\"pad_with\" needs", with_signal(R"({"name": "s", "text": "ab", "pad_with": 1})")},
      {3, "\"value\" must be a number", with_signal(R"({"name": "s", "value": "1"})")},
      {3, "\"status\" must be a whole number from 0 to 3", with_signal(R"({"name": "s", "status": 4})")},
      {2, R"("source_address" must be "00")", with_vehicle(R"("vin": "", "source_address": "0")")},
      {2, R"("change_after" needs "answers")",
       with_vehicle(R"("vin": "", "source_address": "00", "change_after": {"vin": ""})")},
      {2, R"("second" needs "source_address")",
       with_vehicle(R"("vin": "", "source_address": "00", "second": {"vin": ""})")},
      {2, R"("no_mark" is not a key of "ports")", with_ports(R"("no_mark": true)")},
      {2, "\"id\" must be a number of 32 bits", with_ports(R"("parameters": [{"id": 4294967296}])")},
      {2, "\"id\" must be a number of 32 bits", with_ports(R"("parameters": [{"id": "0x100000000"}])")},
      {2, "\"id\" must be a number of 32 bits", with_ports(R"("parameters": [{"id": "0x9 "}])")},
      {2, R"(use "master" and "remote")", with_ports(R"("parameters": [{"id": 3}])")},
      {2, "a parameter has more than 65504 bytes",
       with_ports(R"("parameters": [{"id": 1, "text": ")" + std::string(65'505, 'x') + "\"}]")},
      {2, "\"master\" takes only one of", with_ports(R"("master": {"text": "", "hex": ""})")},
  };
  for (const auto& [line, reason, text] : cases) {
    try {
      static_cast<void>(parse_scenario(text));
      ADD_FAILURE() << "accepted: " << text;
    } catch (const Fault& fault) {
      EXPECT_THAT(fault.what(), HasSubstr(reason)) << text.substr(0, 200);
      EXPECT_EQ(fault.line(), line) << text.substr(0, 200);
    }
  }
}

}  // namespace
}  // namespace ecu::sim
