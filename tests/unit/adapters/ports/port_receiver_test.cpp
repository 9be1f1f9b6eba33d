#include "ports/port_receiver.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>

#include "support/ports.h"
#include "support/testing.h"

namespace {

using namespace ecu::tamu::ipc;
using tests::end_mark;
using tests::wire;

/// A port that goes away while the reception loop runs. The pauses last hours where the reader must not
/// depend on them.
class PortAwayTest : public testing::Test {
 protected:
  static constexpr detail::ReopenPauses hardly_any{1ms, 4ms}, hours{1h, 1h};

  /// The log while the loop receives from `path` and `far_side` acts.
  template <class FarSide>
  std::vector<std::string> receive(detail::ReopenPauses pauses, const std::string& path, FarSide far_side) {
    return tests::logged_lines([&] {
      detail::PortReceiver receiver(std::make_unique<tests::Passing>(log), pauses);
      ASSERT_TRUE(receiver.open(path));
      std::thread loop([&] { receiver.receive_and_reopen(); });
      far_side();
      receiver.request_stop();
      loop.join();
    });
  }
  template <class Cause>
  static void wait_for_openings(const char* file, int times, Cause cause) {
    const ecu::tamu::posix::UniqueFd openings(::inotify_init1(IN_CLOEXEC));
    ::inotify_add_watch(openings.get(), file, IN_OPEN);
    cause();
    inotify_event one{};
    pollfd ready{openings.get(), POLLIN, 0};
    for (int i = 0; i < times; ++i) {
      ASSERT_EQ(::poll(&ready, 1, std::chrono::milliseconds(tests::time_limit).count()), 1);
      ASSERT_EQ(::read(openings.get(), &one, sizeof(one)), static_cast<ssize_t>(sizeof(one)));
    }
  }
  static auto away_and_back(const std::string& path, const std::string& reason) {
    const std::string prefix = "[tamu.ipc.queueport] " + path + ": receive port ";
    return ElementsAre(testing::MatchesRegex("WARNING ." + prefix.substr(1) + "away: " + reason),
                       "NOTICE " + prefix + "is back");
  }

  tests::TempDir dir;
  tests::PortLog log;
  const std::string port = dir.path("port");
};

const std::string replaced = "the path no longer names the open file";

// A directory can be opened and is no port. Pauses that go on doubling would exceed the test's time limit.
TEST_F(PortAwayTest, ThePausesBetweenAttemptsDoubleUpToTheLongest) {
  const std::string directory = dir.path("directory"), target = dir.path("target");
  std::filesystem::create_directories(dir.path("folder"));
  std::filesystem::create_directory(directory);
  std::filesystem::create_symlink(target, dir.path("folder/port"));
  std::optional<tests::PseudoTerminal> device(std::in_place);
  tests::replace_link(target, device->path());
  std::chrono::steady_clock::duration attempts{};
  (void)receive({4ms, 16ms}, dir.path("folder/port"), [&] {
    device->write(wire(1, "open"));
    log.wait_for("open ");
    const auto begin = std::chrono::steady_clock::now();
    wait_for_openings(directory.c_str(), 15, [&] { tests::replace_link(target, directory); });
    attempts = std::chrono::steady_clock::now() - begin;
  });
  EXPECT_GE(attempts, 4ms + 8ms + 12 * 16ms);
}

TEST_F(PortAwayTest, ARecreatedFifoIsReadAtOnceAfterTheRestOfTheOldOne) {
  tests::Fifo old_fifo(dir, "port");
  tests::Fifo new_fifo(dir, "new");
  old_fifo.open();
  new_fifo.open();
  new_fifo.write(wire(3, "new") + end_mark());
  const auto lines = receive(hours, port, [&] {
    old_fifo.write(wire(1, "old") + end_mark() + wire(2, "old"));
    std::filesystem::rename(new_fifo.path(), port);
    log.wait_for("3:new |");
    new_fifo.write(wire(4, "newer") + end_mark());
    log.wait_for("4:newer |");
  });
  EXPECT_EQ(log.text(), "1:old |2:old .3:new |4:newer |.");
  EXPECT_THAT(lines, away_and_back(port, replaced));
}

TEST_F(PortAwayTest, AFifoThatIsRemovedAndRecreatedLaterIsReadAtOnce) {
  const tests::Fifo old_fifo(dir, "port");
  const auto lines = receive(hours, port, [&] {
    std::filesystem::remove(port);
    log.wait_for(".");
    dir.write("another file", "of the same folder");
    tests::Fifo new_fifo(dir, "port");
    new_fifo.open();
    new_fifo.write(wire(1, "new") + end_mark());
    log.wait_for("|");
  });
  EXPECT_EQ(log.text(), ".1:new |.");
  EXPECT_THAT(lines, away_and_back(port, replaced));
}

TEST_F(PortAwayTest, AnotherFifoIsReadAtOnceAfterALinkOrAFolderOfThePathChanges) {
  std::filesystem::create_directory(dir.path("top"));
  std::filesystem::create_directory(dir.path("top.new"));
  std::vector<tests::Fifo> fifos;
  for (const std::uint32_t number : {1U, 2U, 3U, 4U}) {
    const std::string tree = "tree" + std::to_string(number);
    std::filesystem::create_directories(dir.path(tree + "/sub"));
    fifos.emplace_back(dir, tree + "/sub/port").open();
    fifos.back().write(wire(number, "") + end_mark());
  }
  std::filesystem::create_symlink("../tree1/sub", dir.path("top/link"));
  std::filesystem::create_symlink("../tree4/sub", dir.path("top.new/link"));
  const timespec in_2040{2'208'988'800, 0};
  const std::array stamps{in_2040, in_2040};
  for (const char* name : {"top", "top/link"}) {
    ASSERT_EQ(::utimensat(AT_FDCWD, dir.path(name).c_str(), stamps.data(), AT_SYMLINK_NOFOLLOW), 0);
  }
  const auto lines = receive(hours, dir.path("top/link/port"), [&] {
    log.wait_for("1: |");
    tests::replace_link(dir.path("top/link"), dir.path("tree2/sub"));
    log.wait_for("2: |");
    std::filesystem::rename(dir.path("tree2"), dir.path("old"));
    std::filesystem::rename(dir.path("tree3"), dir.path("tree2"));
    log.wait_for("3: |");
    std::filesystem::rename(dir.path("top"), dir.path("top.old"));
    std::filesystem::rename(dir.path("top.new"), dir.path("top"));
    log.wait_for("4: |");
  });
  EXPECT_EQ(log.text(), "1: |.2: |.3: |.4: |.");
  EXPECT_EQ(lines.size(), 6u);
}

TEST_F(PortAwayTest, AGrownRegularFileIsReadOnAndAReplacedOneFromItsBeginning) {
  dir.write("port", wire(1, "a") + end_mark() + "rest");
  const auto lines = receive(hardly_any, port, [&] {
    log.wait_for(".");
    std::ofstream(port, std::ios::app) << wire(2, "b") + end_mark();
    log.wait_for("2:b |.");
    std::filesystem::rename(dir.write("new", wire(3, "c") + end_mark()), port);
    log.wait_for("3:c |.");
  });
  EXPECT_EQ(log.text(), "1:a |.2:b |.3:c |..");
  ASSERT_EQ(lines.size(), 6u);
  EXPECT_EQ(lines.front(), "ERROR [tamu.ipc.queueport] " + port + ": 4 bytes dropped: not a complete record");
  EXPECT_THAT(lines.back(), testing::EndsWith("receive port away: end of file"));
}

TEST_F(PortAwayTest, AStopEndsAPauseAtOnceAndADrainDoesNotWaitForThePort) {
  tests::replace_link(port, "/dev/null");
  (void)receive(hours, port, [&] { log.wait_for("."); });
  EXPECT_EQ(log.text(), "..");
  tests::Reader reader(std::make_unique<tests::Passing>(log));
  ASSERT_TRUE(reader.open(port));
  for (int i = 0; i < 2; ++i) {
    reader.request_stop();
    reader.receive_data();
  }
  EXPECT_EQ(log.text(), "....");
}

}  // namespace
