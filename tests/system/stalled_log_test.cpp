#include <sys/resource.h>

#include <filesystem>

#include "support/ports.h"
#include "system/daemon.h"

namespace tests {
namespace {

/// A daemon that logs at DEBUG to a full pipe without a reader.
class StalledLogTest : public SystemTest {
 protected:
  StalledLogTest() {
    log.open();
    log.write(std::string(1 << 20, '.'));
  }

  [[nodiscard]] std::vector<std::string> into_log(std::vector<std::string> environment = {}) const {
    environment.insert(environment.end(), {"/bin/sh", "-c", "exec \"$@\" >" + log.path(), "sh"});
    return environment;
  }

  void expect_variable() {
    bus.publish("rt/system/hw_variant", hardware_variant("R08_B1"));
    EXPECT_TRUE(bus.wait_for("system/var/hwvariant"));
  }

  TempDir dir;
  Fifo log{dir, "log"};
};

TEST_F(StalledLogTest, DelaysNothingAndReceivesTheNumberOfLostLinesOnceItIsReadAgain) {
  Daemon daemon(config(), {"-L", "-v"}, into_log());
  ASSERT_TRUE(bus.wait_for_text(presence_topic, "online"));
  expect_variable();
  EXPECT_EQ(log.read().find_first_not_of('.'), std::string::npos);
  expect_variable();
  const auto lines = lines_of(log.read());
  ASSERT_FALSE(lines.empty());
  EXPECT_THAT(lines.front(),
              testing::MatchesRegex(R"(WARNING \[tamu\.logging\] [1-9][0-9]* lines? lost: .*)"));
  EXPECT_THAT(lines, Contains(HasSubstr("HW Variant")));
  log.write(std::string(1 << 20, '.'));
  daemon.signal(SIGTERM);
  EXPECT_EQ(daemon.wait(std::chrono::milliseconds(4000)), 0);
  EXPECT_TRUE(bus.wait_for_text(presence_topic, "offline"));
}

TEST_F(StalledLogTest, DoesNotDisableTheSecondSignal) {
  DatagramSocket manager;
  Daemon daemon(config(), {"-L", "-v"}, into_log({"NOTIFY_SOCKET=" + manager.path()}));
  ASSERT_TRUE(bus.wait_for_text(presence_topic, "online"));
  broker.freeze();
  daemon.signal(SIGTERM);
  ASSERT_TRUE(manager.wait_for("STOPPING=1"));
  daemon.signal(SIGINT);
  EXPECT_EQ(daemon.wait(), -SIGINT);
}

TEST_F(StalledLogTest, DelaysNothingWhenItIsClosedOrReachesTheLimitOfAFile) {
  Daemon closed(config(), {"-L", "-v"}, {"/bin/sh", "-c", "exec \"$@\" <&- >&- 2>&-", "sh"});
  ASSERT_TRUE(bus.wait_for_text(presence_topic, "online"));
  for (const std::string stream : {"0", "1", "2"}) {
    EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(closed.pid()) + "/fd/" + stream),
              "/dev/null");
  }
  closed.signal(SIGTERM);
  EXPECT_EQ(closed.wait(), 0);
  ASSERT_TRUE(bus.wait_for_text(presence_topic, "offline"));

  Daemon full(config(), {"-L", "-v"},
              {"/bin/sh", "-c", "ulimit -S -f 1; exec \"$@\" >" + dir.path("file"), "sh"});
  ASSERT_TRUE(bus.wait_for_text(presence_topic, "online"));
  expect_variable();
  const rlimit none{RLIM_INFINITY, RLIM_INFINITY};
  EXPECT_EQ(::prlimit(full.pid(), RLIMIT_FSIZE, &none, nullptr), 0);
  full.signal(SIGTERM);
  EXPECT_EQ(full.wait(), 0);
}

// The system log's socket has a fixed path, so the program gets its own /dev.
TEST_F(StalledLogTest, DelaysNothingWhenItIsTheSystemLogWhichIsTheDefault) {
  const std::string isolate =
      R"(mount -t tmpfs none /dev && echo U-Boot >/dev/mem && ln -s "$0" /dev/log && exec "$@")";
  if (Process({"/usr/bin/unshare", "-rm", "/bin/sh", "-c", isolate, "/", "/bin/true"}).wait() != 0) {
    GTEST_SKIP() << "no mount namespace available";
  }
  const DatagramSocket system_log;
  system_log.fill();
  Daemon daemon(config("logmode = bad\n"), {"-v"},
                {"/usr/bin/unshare", "-rm", "/bin/sh", "-c", isolate, system_log.path()});
  ASSERT_TRUE(bus.wait_for_text(presence_topic, "online"));
  while (system_log.receive()) {
  }
  expect_variable();
  EXPECT_TRUE(system_log.wait_for(HasSubstr(" lost: ")));
  EXPECT_TRUE(system_log.wait_for(HasSubstr("<30>")));  // daemon.info
  EXPECT_TRUE(system_log.wait_for(HasSubstr("HW Variant")));
  EXPECT_EQ(daemon.output(), "");
  system_log.fill();
  daemon.signal(SIGTERM);
  EXPECT_EQ(daemon.wait(std::chrono::milliseconds(4000)), 0);
}

}  // namespace
}  // namespace tests
