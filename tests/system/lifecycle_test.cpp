#include <sys/socket.h>
#include <time.h>

#include "support/authority.h"
#include "support/ports.h"
#include "system/daemon.h"

namespace tests {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

/// A stop takes at most 2 s; the rest is for a loaded machine.
void expect_prompt_stop(Daemon& daemon, int signal = SIGTERM) {
  daemon.signal(signal);
  EXPECT_EQ(daemon.wait(milliseconds(4000)), 0) << daemon.output();
}

ecu::tamu::posix::UniqueFd begin_to_connect(const LoopbackPort& port) {
  ecu::tamu::posix::UniqueFd socket(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  const sockaddr_in address = port.address();
  (void)!::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address));
  return socket;
}

class StopTest : public SystemTest {};

TEST_F(StopTest, WithAHealthyBrokerPublishesOfflineAndSucceeds) {
  for (const int signal : {SIGINT, SIGTERM}) {
    Daemon daemon(config());
    ASSERT_TRUE(bus.wait_for_text(presence_topic, "online"));
    expect_prompt_stop(daemon, signal);
    EXPECT_TRUE(bus.wait_for_text(presence_topic, "offline"));
  }
}

TEST_F(StopTest, WithAFrozenBrokerIsPrompt) {
  Daemon daemon(config());
  ASSERT_TRUE(bus.wait_for_text(presence_topic, "online"));
  broker.freeze();
  expect_prompt_stop(daemon);
}

TEST_F(StopTest, WithAHostThatNeverAnswersIsPrompt) {
  const LoopbackPort port;
  ASSERT_EQ(::listen(port.fd(), 0), 0);
  const auto first = begin_to_connect(port), second = begin_to_connect(port);
  Daemon daemon(config_for(port.number()));
  ASSERT_TRUE(daemon.wait_for_output("Subscribed to"));
  EXPECT_FALSE(daemon.wait_for_output("connect to", 1, milliseconds(300)));
  expect_prompt_stop(daemon);
}

TEST_F(StopTest, ASignalAtAnyMomentOfTheStartEndsIt) {
  const auto began = Clock::now();
  {
    Daemon daemon(config());
    ASSERT_TRUE(daemon.wait_until_connected());
  }
  constexpr int moments = 40;
  const auto step = (Clock::now() - began) / (moments - 5);
  for (int i = 0; i < moments; ++i) {
    Daemon daemon(config());
    EXPECT_FALSE(daemon.wait(std::chrono::duration_cast<milliseconds>(i * step)));
    daemon.signal(SIGTERM);
    const auto status = daemon.wait();
    // Before the handler is installed, the default action ends it.
    EXPECT_TRUE(status == 0 || (status == -SIGTERM && count(daemon.output(), "Subscribed") == 0))
        << daemon.output();
  }
}

TEST_F(StopTest, ASignalPendingAtTheStartTakesEffectOnceItIsUp) {
  const TempDir dir;
  Process daemon({"/usr/bin/env", "--block-signal=TERM", "/bin/sh", "-c", "kill -TERM $$; exec \"$@\"", "sh",
                  program, "-L", "-v", "-c", dir.write("conf", config())});
  EXPECT_EQ(daemon.wait(), 0);
  EXPECT_TRUE(daemon.wait_for_output("Subscribed to"));
}

TEST_F(StopTest, ASecondSignalOfTheOtherKindEndsATool) {
  const TempDir dir;
  const std::string port = std::to_string(broker.port());
  for (const auto& command : std::vector<std::vector<std::string>>{
           {PROGRAM_DIR "/tolquil-uplink", "-c",
            dir.write("uplink", config("bus_host = 127.0.0.1\nunit = U1\nbus_port = " + port + '\n'))},
           {PROGRAM_DIR "/ecusim", "--host", "127.0.0.1", "--port", port},
       }) {
    Process process(command);
    ASSERT_TRUE(process.wait_for_output(" connected to ")) << process.output();
    for (const int signal : {SIGSTOP, SIGINT, SIGTERM, SIGCONT}) {
      process.signal(signal);
    }
    EXPECT_EQ(process.wait(), -SIGTERM) << command.front();
  }
}

using ConnectionTest = SystemTest;

TEST_F(ConnectionTest, ALocalSocketAndTheKeepaliveAreReadFromTheFile) {
  Daemon daemon("client_name = other\nkeepalive = 7\nport = 1\nhost = " + broker.socket_path());
  EXPECT_TRUE(bus.wait_for_text(presence_topic, "online"));
  EXPECT_TRUE(broker.wait_for_log(" as quil (p2, c1, k7"));  // protocol 3.1.1, clean session
}

std::chrono::nanoseconds processor_time(int pid) {
  clockid_t clock{};
  timespec used{};
  ::clock_getcpuclockid(pid, &clock);
  ::clock_gettime(clock, &used);
  return std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
}

/// The failure is logged once, and retrying costs hardly any processor time.
void expect_calm_failure(Daemon& daemon, const std::function<void()>& let_it_try) {
  ASSERT_TRUE(daemon.wait_for_output("cannot connect"));
  const auto began = Clock::now();
  const auto before = processor_time(daemon.pid());
  let_it_try();
  EXPECT_LT(processor_time(daemon.pid()) - before, (Clock::now() - began) / 4 + milliseconds(50));
  EXPECT_EQ(count(daemon.output(), "connect "), 1) << daemon.output();
  expect_prompt_stop(daemon);
}

TEST(LoginTest, OnlyTheRightServerIsTrustedAndARefusalIsLoggedOnceAndRetriedWithPauses) {
  Authority authority, stranger;
  const std::string open = "allow_anonymous true\n", name = "IP:127.0.0.1,DNS:localhost";
  const Broker right(open + authority.certify(name)), misnamed(open + authority.certify("DNS:elsewhere")),
      closed_login("allow_anonymous false"), foreign(open + stranger.certify(name)),
      expired(open + authority.certify(name, " ", -1)), plain,
      picky(open + "require_certificate true\ncafile " + authority.file() + '\n' + authority.certify(name));
  const LoopbackPort nobody;
  const auto config_of = [&](int port, const std::string& host) {
    return "host = " + host + "\nport = " + std::to_string(port) + "\ncafile = " + authority.file() + '\n';
  };
  const auto config = [&](const Broker& broker, const std::string& host = "127.0.0.1") {
    return config_of(broker.port(), host);
  };
  for (const auto& trusted :
       {config(right), config(right, "localhost"), config(picky) + authority.certify("DNS:quil", " = ")}) {
    EXPECT_TRUE(Daemon(trusted).wait_until_connected()) << trusted;
  }
  const std::string distrust = "the broker's certificate is not trusted: ";
  for (const auto& [refused, reason] : std::vector<std::pair<std::string, std::string>>{
           {config(misnamed), distrust + "IP address mismatch"},
           {config(misnamed, "localhost"), distrust + "hostname mismatch"},
           {config(foreign), distrust + "unable to get local issuer certificate"},
           {config(expired), distrust + "certificate has expired"},
           {config_of(nobody.number(), "localhost"), "Connection refused"},
           {config_for(closed_login.port()), "not authorised"},
           {config_for(right.port()), "connection closed by the peer, does it expect TLS?"},
           {config(plain), "no TLS handshake, does the peer speak TLS?"},
           {config(picky), "TLS ended by the broker, does it ask for a certificate?"}}) {
    Daemon daemon(refused, {"-L"});
    expect_calm_failure(daemon, [&] { EXPECT_FALSE(daemon.wait(milliseconds(800))); });
    EXPECT_EQ(count(daemon.output(), reason), 1) << daemon.output();
  }
}

TEST(LoginTest, ABrokerThatDiesIsTheSameEventWithTls) {
  Authority authority;
  Broker broker("allow_anonymous true\n" + authority.certify("IP:127.0.0.1"));
  Daemon daemon(config_for(broker.port(), "cafile = " + authority.file()));
  ASSERT_TRUE(daemon.wait_until_connected());
  broker.stop();
  EXPECT_TRUE(daemon.wait_for_output(" lost: connection closed by the peer\n")) << daemon.output();
}

TEST_F(ConnectionTest, ASilentBrokerIsDetectedAndFoundAgain) {
  Daemon daemon(config("keepalive = 5\n"));
  ASSERT_TRUE(bus.wait_for_text(presence_topic, "online"));
  broker.freeze();
  // No answer to a ping, or no acknowledgement of a publication from just before.
  EXPECT_TRUE(daemon.wait_for_output("lost: no a"));
  broker.thaw();
  EXPECT_TRUE(bus.wait_for_text(presence_topic, "online"));
}

/// How often the threads of a process have gone to sleep.
long sleeps(int pid) {
  long total = 0;
  for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
    total += number_in(task.path() / "status", "voluntary_ctxt_switches");
  }
  return total;
}

TEST_F(SystemTest, AnIdleDaemonSleeps) {
  if (sanitized) {
    GTEST_SKIP() << "a sanitizer's own thread wakes up";
  }
  const FarSide far_side;
  Daemon daemon(config(far_side.config()));
  ASSERT_TRUE(bus.wait_for_text(presence_topic, "online"));
  long before = 0;
  for (long now = sleeps(daemon.pid()); now != before; now = sleeps(daemon.pid())) {
    before = now;
    EXPECT_FALSE(daemon.wait(milliseconds(300)));
  }
  EXPECT_FALSE(daemon.wait(milliseconds(1500)));
  EXPECT_EQ(sleeps(daemon.pid()), before);
}

}  // namespace
}  // namespace tests
