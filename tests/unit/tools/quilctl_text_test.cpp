#include <gmock/gmock.h>

#include <chrono>
#include <memory>
#include <regex>
#include <set>
#include <sstream>

#include <ecu/quil/environment_daemon.h>

#include "common/input_file.h"
#include "quilctl/base/escaping.h"
#include "quilctl/base/failure.h"
#include "quilctl/base/hexadecimal.h"
#include "quilctl/base/value_input.h"
#include "quilctl/model/times.h"
#include "quilctl/model/variable_catalogue.h"
#include "quilctl/screen/display_width.h"
#include "quilctl/screen/text_table.h"
#include "support/captured_log.h"
#include "support/fake_client.h"
#include "support/temp_dir.h"

namespace {

using namespace ecu::ctl;
using namespace std::string_literals;
using testing::Contains;
using testing::ElementsAre;

TEST(QuilctlText, BytesAreShownUnambiguouslyAndReadBack) {
  const std::pair<std::string, std::string> cases[] = {
      {"plain", "plain"},
      {"grüße 車 🚚", "grüße 車 🚚"},
      {R"(a\x41)", R"(a\\x41)"},
      {"\n\x7f\0"s, R"(\x0a\x7f\x00)"},
      {"\xc2\x9b", R"(\xc2\x9b)"},  // a control character of two bytes
      // A line's end, changes of direction.
      {"\u2028\u202ea\u2069\u200f",  // NOLINT(misc-misleading-bidirectional): to be escaped
       R"(\xe2\x80\xa8\xe2\x80\xaea\xe2\x81\xa9\xe2\x80\x8f)"},
      {"\xc0\xaf", R"(\xc0\xaf)"},                  // overlong
      {"\xed\xa0\x80", R"(\xed\xa0\x80)"},          // a surrogate
      {"\xf4\x90\x80\x80", R"(\xf4\x90\x80\x80)"},  // beyond the last character
      {"ab\xe8\xbb", R"(ab\xe8\xbb)"},              // cut off
  };
  for (const auto& [bytes, shown] : cases) {
    EXPECT_EQ(printable(bytes), shown);
    EXPECT_EQ(from_printable(shown), bytes) << shown;
  }
  std::string all;
  for (int byte = 0; byte < 256; ++byte) {
    all += static_cast<char>(byte);
  }
  EXPECT_EQ(from_printable(printable(all)), all);
  EXPECT_EQ(from_hex(to_hex(all)), all);
  for (const std::string wrong : {R"(\)", R"(\x)", R"(\x1)", R"(\xzz)", R"(\n)"}) {
    EXPECT_EQ(from_printable(wrong), std::nullopt) << wrong;
  }
}

TEST(QuilctlText, IdentifiersAndValuesAreParsedStrictly) {
  EXPECT_EQ(parse_id("17"), 17u);
  EXPECT_EQ(parse_id("0xA009"), 0xa009u);
  EXPECT_EQ(parse_id("4294967295"), 0xffffffffu);
  for (const std::string wrong :
       {"", "0x", "-1", "+1", "a009", "4294967296", "0x100000000", "1 ", " 1", "12abc"}) {
    EXPECT_EQ(parse_id(wrong), std::nullopt) << wrong;
  }
  const tests::TempDir dir;
  const std::string file = dir.write("value", "from\nfile\0"s);
  EXPECT_EQ(value_of_argument("a=b"), "a=b");
  EXPECT_EQ(value_of_argument("hex:0a 0B"), "\x0a\x0b");
  EXPECT_EQ(value_of_argument("hex:"), "");
  EXPECT_EQ(value_of_argument("@" + file), "from\nfile\0"s);
  for (const std::string& wrong : {"hex:0"s, "hex:0g"s, "@" + dir.path("absent"), "@"s, "@" + dir.path("")}) {
    EXPECT_ANY_THROW((void)value_of_argument(wrong)) << wrong;
  }
}

TEST(QuilctlText, TextsAreCutToTheWidthOfTheTerminal) {
  EXPECT_EQ(display_width("grüße"), 5u);
  EXPECT_EQ(display_width("車a"), 3u);
  EXPECT_EQ(cut_to_width("abcdef", 6), "abcdef");
  EXPECT_EQ(cut_to_width("abcdef", 4), "abc…");
  EXPECT_EQ(cut_to_width("車車車", 4), "車…");
  EXPECT_EQ(cut_to_width("abc", 0), "");
  TextTable table({"NAME", "VALUE"});
  table.add({"a", "some long value"});
  table.add({"längst", ""});
  EXPECT_THAT(table.lines(1000), ElementsAre("NAME    VALUE", "a       some long value", "längst  "));
  EXPECT_THAT(table.lines(15), ElementsAre("NAME    VALUE", "a       some l…", "längst  "));
  TextTable with_more({"NAME", "VALUE", "AGE", "SOURCE"}, 2);
  with_more.add({"version", "24.1.3-release", "3 s", "rt/system/version"});
  EXPECT_THAT(with_more.lines(42), Contains("version  24.1.3-release  3 s  rt/system/v…"));
  EXPECT_THAT(with_more.lines(40), Contains("version  24.1.3-release  3 s"));
  EXPECT_THAT(with_more.lines(20), Contains("version  24.1.3-rel…"));
  for (std::size_t width = 0; width < 30; ++width) {
    for (const TextTable& each : {table, with_more}) {
      for (const std::string& line : each.lines(width)) {
        EXPECT_LE(display_width(line), width);
      }
    }
  }
}

TEST(QuilctlText, AgesUseTheLargestUnitThatFits) {
  using namespace std::chrono_literals;
  EXPECT_EQ(age_text(0s), "0 s");
  EXPECT_EQ(age_text(59'999ms), "59 s");
  EXPECT_EQ(age_text(60s), "1 min");
  EXPECT_EQ(age_text(59min), "59 min");
  EXPECT_EQ(age_text(47h), "1 d");
}

TEST(QuilctlCatalogue, HoldsWhatTheDaemonPublishes) {
  std::set<std::pair<std::string, std::string>> published, described;
  const auto client = std::make_shared<tests::FakeClient>();
  ecu::quil::EnvironmentDaemon daemon(client, std::make_unique<ecu::tamu::config::Configuration>());
  const auto log = tests::logged_lines([&] {
    daemon.init();
    for (const std::string& topic : std::set(client->subscribed.begin(), client->subscribed.end())) {
      daemon.message(topic, {});
    }
    daemon.initial_publish();
    daemon.stop();
  });
  const std::regex reception("INFO Received data for EcuVar (.*) \\(from (.*)\\)");
  for (const std::string& line : log) {
    if (std::smatch parts; std::regex_match(line, parts, reception)) {
      published.insert({parts[1], parts[2]});
    }
  }
  for (const auto& publication : client->published) {
    published.insert({publication.topic.substr(std::string_view("system/var/").size()), ""});
  }
  for (const VariableInfo& info : variables()) {
    for (const std::string_view topic : info.sources()) {
      described.insert({std::string(info.name), std::string(topic)});
    }
    if (info.sources().empty()) {
      described.insert({std::string(info.name), ""});
    }
  }
  EXPECT_EQ(described, published);
}

}  // namespace
