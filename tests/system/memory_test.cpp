#include "support/ports.h"
#include "support/rt_messages.h"
#include "system/daemon.h"

namespace tests {
namespace {

constexpr int message_kilobytes = 250;
constexpr int oversized_kilobytes = 2000;  // no observer's queue takes it

/// `entry` again and again, in a body of at most `kilobytes`.
std::string repeated(std::string_view entry, std::size_t kilobytes = message_kilobytes) {
  std::string body;
  while (body.size() + entry.size() <= kilobytes * 1024) {
    body += entry;
  }
  return body;
}

class MemoryTest : public SystemTest {
 protected:
  void SetUp() override {
    send.open();
    receive.open();
    ASSERT_TRUE(bus.wait_for_text(presence_topic, "online"));
    ordinary_messages();
  }

  [[nodiscard]] std::string proc(const std::string& file) const {
    return "/proc/" + std::to_string(daemon.pid()) + "/" + file;
  }
  [[nodiscard]] long anonymous() const { return number_in(proc("smaps_rollup"), "Anonymous"); }

  void publish(const std::string& topic, std::string_view body) {
    bus.publish(topic, framed_by_hand(body).payload);
  }

  /// Returns when each observer has handled all messages so far.
  void wait_until_handled() {
    bus.publish("rt/system/hw_variant", hardware_variant("R08_B1"));
    ASSERT_TRUE(bus.wait_for("system/var/hwvariant"));
    bus.publish("system/quil/request/sysparams", "");
    ASSERT_TRUE(bus.wait_for("system/sysparams"));
  }

  void receive_frame(const std::string& value) {
    std::string frame = parameter_record(0, "");
    for (std::uint32_t id = 100; id < 120; ++id) {
      frame += parameter_record(id, value);
    }
    frame += parameter_record(0xa009, "TV 1") + end_mark();
    for (std::size_t sent = 0; sent < frame.size();) {
      const ssize_t count = ::write(receive.fd(), frame.data() + sent, frame.size() - sent);
      sent += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    ASSERT_TRUE(comes(bus, "system/var/topversion", "TV 1"));  // not the empty one of the start
  }

  /// How far the resident memory rises during `action`, in KiB.
  long peak(const std::function<void()>& action) const {
    std::ofstream(proc("clear_refs")) << 5;  // the peak begins anew
    const long resident = number_in(proc("status"), "VmRSS");
    action();
    return number_in(proc("status"), "VmHWM") - resident;
  }

  void ordinary_messages() {
    receive_frame("value");
    publish("system/quil/request/sysparam",
            "\x0a\x05"
            "40969");
    ASSERT_TRUE(bus.wait_for("system/sysparam/"));
    bus.publish("rt/system/network_variant", Group().bytes("network_variant", "BUS").message().payload);
    wait_until_handled();
  }

  TempDir dir;
  Fifo receive{dir, "receive"}, send{dir, "send"};
  Daemon daemon{config("qpread = " + receive.path() + "\nqpwrite = " + send.path() + "\n"), {"-l", "EMERG"}};
};

// While a message arrives, the library holds it twice. The client adds a copy, unless no queue takes it.
TEST_F(MemoryTest, AMessageCostsAFewTimesItsSizeAndNothingLater) {
  if (sanitized) {
    GTEST_SKIP() << "a sanitizer has its own allocator";
  }
  const long allowed = anonymous() * 11 / 10;
  const struct Attack {
    std::string topic, body;
  } attacks[] = {
      {"rt/system/network_variant", repeated({"\x0a\x02\x0a\0", 4})},
      {"rt/system/network_variant", body_bytes(Group().bytes("network_variant", repeated("x")).message())},
      {"system/quil/request/sysparam", repeated("\x0a\x01"
                                                "8")},
      {"system/quil/request/sysparam", repeated({"\x0a\0", 2}) + '\x0a'},
      {"system/quil/request/sysparam", "\x0a\x80\xd0\x0f" + repeated("x")},
      {"system/sysparams/write", repeated({"\x0a\0", 2})},
      {"system/sysparams/write", repeated({"\x0a\0", 2}) + '\x0a'},
      {"system/sysparams/write", repeated("x", oversized_kilobytes)},
  };
  for (const Attack& attack : attacks) {
    const bool oversized = attack.body.size() > std::size_t{message_kilobytes} * 1100;
    EXPECT_LT(peak([&] {
                publish(attack.topic, attack.body);
                wait_until_handled();
              }),
              oversized ? oversized_kilobytes * 5 / 2 : message_kilobytes * 5)
        << attack.topic << " " << testing::PrintToString(attack.body.substr(0, 8));
  }
  receive_frame(std::string(60000, 'x'));
  EXPECT_LT(peak([this] { wait_until_handled(), wait_until_handled(); }),
            20 * 60 * 5 / 2);  // the answer and its packet
  const auto end = std::chrono::steady_clock::now() + time_limit;
  do {
    ordinary_messages();
  } while (anonymous() > allowed && std::chrono::steady_clock::now() < end);
  EXPECT_LE(anonymous(), allowed);
}

}  // namespace
}  // namespace tests
