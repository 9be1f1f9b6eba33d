#include "system/supervision.h"

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <ecu/tamu/application.h>

#include "support/datagram_socket.h"
#include "support/testing.h"
#include "system/heartbeat.h"
#include "system/supervised_wait.h"
#include "system/watchdog.h"

using namespace ecu::tamu;
using tests::logged_by;

namespace {

const std::string own_pid = std::to_string(::getpid());

void set_environment(const char* name, const std::string& value) {
  ::setenv(name, value.c_str(), 1);
}

// The service manager's socket.
class Manager : public tests::DatagramSocket {
 public:
  explicit Manager(const std::string& name = "") : DatagramSocket(name) {
    set_environment("NOTIFY_SOCKET", path());
  }
  ~Manager() { ::unsetenv("NOTIFY_SOCKET"); }

  [[nodiscard]] std::vector<std::string> all_received() const {
    std::vector<std::string> all;
    while (auto text = receive()) {
      all.push_back(*std::move(text));
    }
    return all;
  }
};

}  // namespace

TEST(SupervisionTest, NotificationsReachTheManagersSocket) {
  for (const std::string& name : {""s, "@tolquil_notify_" + own_pid}) {
    const Manager manager(name);
    application_starting(), application_ready(), notify_watchdog(), notify_stopping();
    EXPECT_THAT(manager.all_received(),
                ElementsAre("STATUS=Starting", "READY=1\nSTATUS=Running", "WATCHDOG=1", "STOPPING=1"));
  }
}

TEST(SupervisionTest, UnreachableManagerIsReportedAndBlocksNobody) {
  const auto flood = [] {
    for (int i = 0; i < 2000; ++i) {
      notify_watchdog();
    }
  };
  const Manager deaf_manager("@tolquil_deaf_" + own_pid);
  EXPECT_THAT(tests::logged_lines(flood), ElementsAre(HasSubstr("Resource temporarily unavailable")));
  EXPECT_EQ(Watchdog(8s).check(), 1s);
  application_ready();
  set_status("broker", "on line");
  (void)deaf_manager.all_received();
  const posix::Event stop;
  std::jthread main([&stop] { wait_supervised(stop); });
  EXPECT_EQ(deaf_manager.receive(tests::time_limit), "READY=1\nSTATUS=on line");
  stop.signal();
  main.join();
  set_status("broker", "");
  for (const std::string& name : {std::string("/nowhere"), std::string("@"), "/" + std::string(200, 'x')}) {
    set_environment("NOTIFY_SOCKET", name);
    EXPECT_THAT(logged_by(application_ready), HasSubstr(" WARNING ")) << name;
  }
  ::unsetenv("NOTIFY_SOCKET");
  EXPECT_EQ(logged_by(application_ready), "");
}

TEST(SupervisionTest, AProcessWithoutAFreeDescriptorStillNotifies) {
  const Manager manager;
  application_starting();
  rlimit before{};
  ::getrlimit(RLIMIT_NOFILE, &before);
  const rlimit none{0, before.rlim_max};
  ::setrlimit(RLIMIT_NOFILE, &none);
  notify_watchdog();
  ::setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_THAT(manager.all_received(), ElementsAre("STATUS=Starting", "WATCHDOG=1"));
}

TEST(SupervisionTest, StatusTextJoinsItsPartsAndIsSentWhenItChanges) {
  const Manager manager;
  set_status("port", "no receive port");
  set_status("broker", "on line");
  set_status("port", "receive port away since 14:02");
  set_status("port", "receive port away since 14:02");
  set_status("broker", "broker not\nreachable");
  application_ready();
  set_status("broker", "");
  set_status("port", "");
  application_ready();
  EXPECT_THAT(manager.all_received(),
              ElementsAre("STATUS=no receive port", "STATUS=on line; no receive port",
                          "STATUS=on line; receive port away since 14:02",
                          "STATUS=broker not reachable; receive port away since 14:02",
                          "READY=1\nSTATUS=broker not reachable; receive port away since 14:02",
                          "STATUS=receive port away since 14:02", "STATUS=", "READY=1\nSTATUS=Running"));
}

TEST(SupervisionTest, WatchdogWakesTheLoopsAndIsNotifiedOnlyWhileEachIsAlive) {
  const Manager manager;
  int wake_ups = 0;
  Heartbeat first("first", [&] { ++wake_ups; }), second("second", [] {});
  Watchdog watchdog(std::chrono::seconds(8));
  const auto check = [&](bool first_beats, bool second_beats) {
    first_beats ? first.beat() : void();
    second_beats ? second.beat() : void();
    return watchdog.check();
  };
  const auto log = tests::logged_lines([&] {
    EXPECT_EQ(check(true, true), 8s);
    EXPECT_EQ(check(true, false), 1s);
    EXPECT_EQ(check(true, false), 1s);
    EXPECT_EQ(check(false, false), 1s);
    EXPECT_EQ(check(true, true), 8s);
    EXPECT_EQ(check(true, false), 1s);
  });
  const std::string silent = "ERROR [tamu.supervision] no sign of life for 8000 ms: ";
  EXPECT_THAT(log, ElementsAre(silent + "second", silent + "first, second", silent + "second"));
  EXPECT_THAT(manager.all_received(), ElementsAre("WATCHDOG=1", "WATCHDOG=1"));
  EXPECT_EQ(wake_ups, 6);
}

TEST(SupervisionTest, WatchdogPeriodIsHalfOfTheManagersLimitForThisProcess) {
  const auto period = [](const std::string& time, const std::string& process) {
    set_environment("WATCHDOG_USEC", time);
    set_environment("WATCHDOG_PID", process);
    return watchdog_period();
  };
  EXPECT_EQ(period("30000000", ""), 15s);
  EXPECT_EQ(period("30000000", own_pid), 15s);
  for (const std::string& process : {"1" + own_pid, "x"s}) {
    EXPECT_EQ(period("30000000", process), std::nullopt) << process;
  }
  for (const char* time : {"", "0", "30s", "18446744073709551615"}) {
    EXPECT_EQ(period(time, ""), std::nullopt) << time;
  }
  ::unsetenv("WATCHDOG_USEC");
  ::unsetenv("WATCHDOG_PID");
}
