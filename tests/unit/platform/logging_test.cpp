#include <fcntl.h>

#include <ecu/tamu/logging/logging.h>

#include "logging/line_builder.h"
#include "support/testing.h"

using namespace ecu::tamu;
using namespace ecu::tamu::logging;
using testing::EndsWith;
using testing::MatchesRegex;
using tests::logged_by;

TEST(LoggingTest, StreamLineIsTimeLevelModuleAndText) {
  EXPECT_THAT(
      logged_by([] { module("a\nb").error("x", 7); }),
      MatchesRegex("[0-9]{4}(-[0-9]{2}){2}T[0-9]{2}(:[0-9]{2}){2}\\.[0-9]{3}Z ERROR \\[a\\\\x0ab] x7\n"));
}

TEST(LoggingTest, LevelFollowsAKnownNameInEitherCaseAndIgnoresAnUnknownOne) {
  configure_logging("eRRor");
  EXPECT_THAT(logged_by([] { warning("w"), error("e"); }), MatchesRegex("[^\n]* ERROR e\n"));
  configure_logging("debug");
  for (const char* const name : {"LOUD", "INF", "INFOS", "6"}) {
    EXPECT_THAT(logged_by([name] { configure_logging(name); }), HasSubstr(" WARNING "));
    EXPECT_EQ(get_log_level(), Level::debug);
  }
  configure_logging("");
  EXPECT_EQ(get_log_level(), Level::notice);
}

TEST(LoggingTest, NumbersAreWrittenAsStreamsWriteThemAndOnlyPrintableTextUnescaped) {
  const std::pair<Field, const char*> cases[] = {
      {-17, "-17"},
      {std::numeric_limits<std::int64_t>::min(), "-9223372036854775808"},
      {std::numeric_limits<std::uint64_t>::max(), "18446744073709551615"},
      {hex(0xab, 4), "00ab"},
      {hex(~std::uint64_t{0}), "ffffffffffffffff"},
      {17.0, "17"},
      {1234567.0, "1.23457e+06"},
      {-std::numeric_limits<double>::max(), "-1.79769e+308"},
      {std::string_view("a\0b\x1f ~\x7f", 7), R"(a\x00b\x1f ~\x7f)"},
      {"\xc2\xa0\xdf\xbf\xe0\xa0\x80\xed\x9f\xbf", "\xc2\xa0\xdf\xbf\xe0\xa0\x80\xed\x9f\xbf"},
      {"a\xc2\x80\xc2\x9b\xc2\x9f", R"(a\xc2\x80\xc2\x9b\xc2\x9f)"},  // control characters
      {"\xee\x80\x80\xf0\x90\x80\x80\xf4\x8f\xbf\xbf", "\xee\x80\x80\xf0\x90\x80\x80\xf4\x8f\xbf\xbf"},
      {"\x80x\xffy\xe2\x82z\xc3z\xe2\x82", R"(\x80x\xffy\xe2\x82z\xc3z\xe2\x82)"},  // out of place, cut short
      {"\xc1\xbf\xe0\x9f\xbf\xf0\x8f\xbf\xbf", R"(\xc1\xbf\xe0\x9f\xbf\xf0\x8f\xbf\xbf)"},  // overlong
      {"\xed\xa0\x80", R"(\xed\xa0\x80)"},                                                  // surrogate
      {"\xf4\x90\x80\x80\xf5\x80\x80\x80", R"(\xf4\x90\x80\x80\xf5\x80\x80\x80)"},          // above U+10FFFF
  };
  for (const auto& [field, text] : cases) {
    LineBuilder line;
    line.append(field);
    EXPECT_EQ(line.finish(""), text);
  }
}

TEST(LoggingTest, TimeIsUtcToTheMillisecondAndLocalInTheSystemLogOnALeapDayAndBeyond2038) {
  ::setenv("TZ", "EAST-2", 1);
  ::tzset();
  const std::tuple<Timestamp, const char*, const char*> cases[] = {
      {{1835481599, 9}, "2028-02-29T23:59:59.009Z", "Mar  1 01:59:59"},
      {{2147483648, 0}, "2038-01-19T03:14:08.000Z", "Jan 19 05:14:08"},
      {{4102437599, 0}, "2099-12-31T21:59:59.000Z", "Dec 31 23:59:59"},
      {{4107542400, 999}, "2100-03-01T00:00:00.999Z", "Mar  1 02:00:00"},  // no leap year
      {{253402300799, 10}, "9999-12-31T23:59:59.010Z", "Jan  1 01:59:59"},
  };
  for (const auto& [time, utc, local] : cases) {
    LineBuilder line, system_line;
    line.append_time(time);
    system_line.append_local_time(time);
    EXPECT_EQ(line.finish(""), utc);
    EXPECT_EQ(system_line.finish(""), local);
  }
  ::unsetenv("TZ");
  ::tzset();
}

TEST(LoggingTest, LineIsCutAt4KiBBetweenCharactersAndCountsTheBytesLeftOut) {
  // A line's text holds 4032 bytes; the rest is for the number of bytes left out and the newline.
  const auto repeated = [](std::string_view text, std::size_t times) {
    std::string all;
    for (std::size_t i = 0; i < times; ++i) {
      all += text;
    }
    return all;
  };
  const std::string full(4032, 'x');
  const std::pair<std::string, std::string> cases[] = {
      {full, full},
      {full + "y", full + "... (1 byte left out)"},
      {std::string(200'000, 'x'), full + "... (195968 bytes left out)"},
      {repeated("\x01", 1009), repeated(R"(\x01)", 1008) + "... (1 byte left out)"},
      {"12" + repeated("\x01", 1009), "12" + repeated(R"(\x01)", 1007) + "... (2 bytes left out)"},
      {repeated("\xe2\x82\xac", 1345), repeated("\xe2\x82\xac", 1344) + "... (3 bytes left out)"},
      {"1" + repeated("\xe2\x82\xac", 1344) + "2",
       "1" + repeated("\xe2\x82\xac", 1343) + "... (4 bytes left out)"},
  };
  for (const auto& [text, shown] : cases) {
    LineBuilder line;
    line.append(text);
    EXPECT_EQ(line.finish(""), shown);
  }
  LineBuilder line;
  line.append(full), line.append(12345), line.append("z"), line.append(std::string_view(""));
  EXPECT_EQ(line.finish("\n"), full + "... (6 bytes left out)\n");
}

TEST(LoggingTest, LinesOfSeveralThreadsNeverMix) {
  constexpr std::size_t lines_each = 20, length = 4000;
  std::istringstream output(logged_by([] {
    std::vector<std::jthread> threads;
    for (const char letter : {'a', 'b', 'c', 'd'}) {
      threads.emplace_back([text = std::string(length, letter)] {
        for (std::size_t i = 0; i < lines_each; ++i) {
          notice(text);
        }
      });
    }
  }));
  std::size_t count = 0;
  for (std::string line; std::getline(output, line); ++count) {
    ASSERT_THAT(line, EndsWith("Z NOTICE " + std::string(length, line.back())));
  }
  EXPECT_EQ(count, 4 * lines_each);
}

TEST(LoggingTest, LineThatCannotBeWrittenIsLostAndKeepsErrno) {
  EXPECT_EQ(logged_by([] {
              ::dup2(posix::UniqueFd(::open("/dev/full", O_WRONLY)).get(), STDOUT_FILENO);
              errno = ENOENT;
              notice("lost");
              EXPECT_EQ(errno, ENOENT);
            }),
            "");
  EXPECT_THAT(logged_by([] { notice("written"); }), HasSubstr(" 1 line lost: "));
}
