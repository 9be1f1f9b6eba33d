#include <fcntl.h>
#include <gmock/gmock.h>

#include <cstdarg>
#include <limits>
#include <mutex>
#include <sstream>
#include <thread>

#include <ecu/tamu/logging/logging.h>

#include "logging/line_builder.h"
#include "support/captured_log.h"

using namespace ecu::tamu;
using namespace ecu::tamu::logging;
using namespace std::chrono_literals;
using testing::EndsWith;
using testing::MatchesRegex;
using tests::logged_by;

namespace {
std::mutex syslog_lock;
std::string syslog_identity;   // guarded by syslog_lock
std::string last_syslog_line;  // guarded by syslog_lock
}  // namespace

// In place of the C library's, so that a test sees what the system log is given.
extern "C" void openlog(const char* identity, int, int facility) {
  const std::lock_guard lock(syslog_lock);
  syslog_identity = identity + (" " + std::to_string(facility));
}
extern "C" void syslog(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const std::lock_guard lock(syslog_lock);
  last_syslog_line = std::to_string(priority) + " " + va_arg(arguments, const char*);
  va_end(arguments);
}

TEST(LoggingTest, StreamLineIsTimeLevelModuleAndText) {
  EXPECT_THAT(
      logged_by([] { module("a\nb").error("x", 7); }),
      MatchesRegex("[0-9]{4}(-[0-9]{2}){2}T[0-9]{2}(:[0-9]{2}){2}\\.[0-9]{3}Z ERROR \\[a\\\\x0ab] x7\n"));
}

TEST(LoggingTest, SyslogGetsPriorityIdentityAndFacility) {
  logging::module("m").warning("100%s\n");
  const std::lock_guard lock(syslog_lock);
  EXPECT_EQ(last_syslog_line, R"(4 [m] 100%s\x0a)");
  EXPECT_EQ(syslog_identity, "tolquil 24");  // LOG_DAEMON
}

TEST(LoggingTest, LevelFollowsAKnownNameInEitherCaseAndKeepsOffAnUnknownOne) {
  configure_logging("eRRor");
  EXPECT_THAT(logged_by([] { warning("w"), error("e"); }), MatchesRegex("[^\n]* ERROR e\n"));
  configure_logging("debug");
  for (const char* const name : {"LOUD", "INF", "INFOS", "6"}) {
    EXPECT_THAT(logged_by([name] { configure_logging(name); }), testing::HasSubstr(" WARNING "));
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
      {"\xc2\x80\xdf\xbf\xe0\xa0\x80\xed\x9f\xbf", "\xc2\x80\xdf\xbf\xe0\xa0\x80\xed\x9f\xbf"},
      {"\xee\x80\x80\xf0\x90\x80\x80\xf4\x8f\xbf\xbf", "\xee\x80\x80\xf0\x90\x80\x80\xf4\x8f\xbf\xbf"},
      {"\x80x\xffy\xe2\x82z\xc3z\xe2\x82", R"(\x80x\xffy\xe2\x82z\xc3z\xe2\x82)"},  // out of place, cut short
      {"\xc1\xbf\xe0\x9f\xbf\xf0\x8f\xbf\xbf", R"(\xc1\xbf\xe0\x9f\xbf\xf0\x8f\xbf\xbf)"},  // overlong
      {"\xed\xa0\x80", R"(\xed\xa0\x80)"},                                                  // surrogate
      {"\xf4\x90\x80\x80\xf5\x80\x80\x80", R"(\xf4\x90\x80\x80\xf5\x80\x80\x80)"},          // above U+10FFFF
  };
  for (const auto& [field, text] : cases) {
    LineBuilder line;
    line.append(field);
    EXPECT_EQ(line.line(), text);
  }
}

TEST(LoggingTest, TimeIsUtcToTheMillisecond) {
  LineBuilder line;
  line.append_time(std::chrono::sys_time<std::chrono::milliseconds>(1835481599009ms));
  EXPECT_EQ(line.line(), "2028-02-29T23:59:59.009Z");
}

TEST(LoggingTest, LinesOfSeveralThreadsNeverMixThoughLongerThanAPipeTakesAtOnce) {
  constexpr std::size_t lines_each = 20, length = 9000;
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

TEST(LoggingTest, LineThatCannotBeWrittenIsLostAndLeavesErrnoAlone) {
  EXPECT_EQ(logged_by([] {
              ::dup2(posix::UniqueFd(::open("/dev/full", O_WRONLY)).get(), STDOUT_FILENO);
              errno = ENOENT;
              notice("lost");
              EXPECT_EQ(errno, ENOENT);
            }),
            "");
}
