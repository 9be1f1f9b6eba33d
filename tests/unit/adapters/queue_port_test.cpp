#include <gmock/gmock.h>
#include <poll.h>
#include <sys/fsuid.h>
#include <sys/inotify.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "ports/port_file.h"
#include "ports/port_receiver.h"
#include "ports/record_parser.h"
#include "support/captured_log.h"
#include "support/failing_allocation.h"
#include "support/ports.h"
#include "support/process.h"

namespace {

using namespace ecu::tamu::ipc;
using namespace std::chrono_literals;
using tests::end_mark;
using tests::wire;

/// The output of a parser: "id " for a record, "|" for the end of a frame, "-n " for n bytes dropped.
class Parsed {
 public:
  Parsed& add(std::string_view bytes, RecordParser::TimePoint now = {}) {
    while (!bytes.empty()) {
      const std::span<char> room = parser_.room();
      const std::size_t count = std::min(room.size(), bytes.size());
      bytes.copy(room.data(), count);
      parser_.add(count, now);
      at(now);
      bytes.remove_prefix(count);
    }
    return *this;
  }
  Parsed& at(RecordParser::TimePoint now) {
    using Event = RecordParser::Event;
    for (Event event = parser_.next(now); event != Event::none; event = parser_.next(now)) {
      if (event == Event::end_of_frame) {
        text_ += '|';
      } else if (event == Event::record) {
        text_.append(std::to_string(parser_.record().id)).append(" ");
      } else {
        text_.append("-").append(std::to_string(parser_.take_damage())).append(" ");
      }
    }
    return *this;
  }
  void reserve(std::size_t size) { text_.reserve(size); }
  Parsed& at_end() { return at(RecordParser::TimePoint::max()); }
  [[nodiscard]] const std::string& text() const noexcept { return text_; }

 private:
  RecordParser parser_;
  std::string text_;
};

const std::string stream = wire(1, "one") + wire(2, "") + wire(3, std::string(5000, 'x')) + end_mark();

TEST(RecordParserTest, WholeRecordsAreFoundHoweverTheyAreSplit) {
  EXPECT_EQ(Parsed().add(stream).text(), "1 2 3 |");
  for (std::size_t split = 0; split <= stream.size(); split += split < 200 ? 1 : 97) {
    EXPECT_EQ(Parsed().add(stream.substr(0, split)).add(stream.substr(split)).text(), "1 2 3 |") << split;
  }
}

TEST(RecordParserTest, DamageAtAnyOffsetCostsNoOtherRecord) {
  const std::string first = wire(1, "one"), last = wire(9, "last");
  for (std::size_t offset = 0; offset < first.size(); ++offset) {
    std::string rotten = first;
    rotten[offset] = static_cast<char>(rotten[offset] ^ 0x55);
    EXPECT_EQ(Parsed().add(rotten + last).at_end().text(), "-27 9 ") << "rotten at " << offset;
    EXPECT_EQ(Parsed().add(first.substr(0, offset) + last).at_end().text(),
              (offset == 0 ? "" : "-" + std::to_string(offset) + " ") + "9 ")
        << "torn at " << offset;
    EXPECT_EQ(Parsed().add(first).add(std::string(offset, 'Q')).add(last).at_end().text(),
              (offset == 0 ? "1 " : "1 -" + std::to_string(offset) + " ") + "9 ")
        << offset << " foreign bytes";
  }
}

TEST(RecordParserTest, RecordsInsideTheAnnouncedSizeOfATornOneAreFound) {
  const std::string torn = wire(1, std::string(60000, 'x')).substr(0, 300);
  const RecordParser::TimePoint start{};
  Parsed parsed;
  parsed.add(torn + wire(2, "a") + wire(3, "b") + end_mark(), start);
  EXPECT_EQ(parsed.text(), "");
  EXPECT_EQ(parsed.at(start + record_time_limit).text(), "-300 2 3 |");
}

TEST(RecordParserTest, RefusesOversizedRecordsAndFalseMarks) {
  std::string oversized = wire(1, "x"), mark = end_mark();
  oversized[18] = 1;  // a length of 65,537
  mark[4] = 1;
  EXPECT_EQ(Parsed().add(oversized + wire(2, "")).at_end().text(), "-25 2 ");
  EXPECT_EQ(Parsed().add(mark + wire(2, "")).at_end().text(), "-24 2 ");
}

TEST(RecordParserTest, IncompleteRecordsAreAbandonedAfterTheirTime) {
  const RecordParser::TimePoint start{};
  Parsed parsed;
  parsed.add(wire(1, "one").substr(0, 20), start);
  EXPECT_EQ(parsed.at(start + record_time_limit - 1ns).text(), "");
  EXPECT_EQ(parsed.at(start + record_time_limit).text(), "-20 ");
}

/// Magic bytes all over, each the header of a large record that never comes, and whole records among them.
TEST(RecordParserTest, EveryRecordAmongHostileHeadersIsFoundWithoutAllocatingMemory) {
  const std::string header = wire(7, std::string(60000, 'x')).substr(0, 24);
  std::string hostile;
  for (int i = 0; i < 5000; ++i) {
    hostile += header + (i % 100 == 0 ? stream : "");
  }
  Parsed parsed;
  parsed.reserve(10000);
  {
    const tests::FailingAllocation failing(1);
    parsed.add(hostile).at_end();
  }
  EXPECT_EQ(tests::count(parsed.text(), "1 2 3 |"), 50);
}

class QueuePortTest : public testing::Test {
 protected:
  tests::TempDir dir;
  tests::Fifo fifo{dir, "port"};
  tests::PortLog log;
  tests::Reader reader{std::make_unique<tests::Passing>(log)};
};

TEST_F(QueuePortTest, AWritersRecordsFormAFrame) {
  ASSERT_TRUE(reader.open(fifo.path()));
  {
    tests::Writer writer;
    ASSERT_TRUE(writer.open(fifo.path()));
    EXPECT_TRUE(writer.transmit_data(tests::record(26, "abc")));
    EXPECT_TRUE(writer.transmit_data(tests::record(27, "")));
  }
  {
    tests::Writer silent;
    ASSERT_TRUE(silent.open(fifo.path()));
  }
  reader.request_stop();
  reader.receive_data();
  EXPECT_EQ(log.text(), "26:abc 27: |.");
}

TEST_F(QueuePortTest, AWaitingReaderReceivesNewRecordsAndSurvivesTheFarSide) {
  ASSERT_TRUE(reader.open(fifo.path()));
  std::thread thread([this] { reader.reception_loop(); });
  for (int life = 0; life < 3; ++life) {
    tests::Fifo far_side(dir, "port");
    far_side.open();
    far_side.write(wire(1, std::string(100, 'x')).substr(0, 50));
    far_side.write(wire(2, "whole") + wire(3, std::string(200, 'y')) + end_mark());
    log.wait_for("|");
  }
  reader.request_stop();
  thread.join();
  EXPECT_EQ(tests::count(log.text(), "2:whole "), 3);
  EXPECT_EQ(log.text().back(), '.');
}

TEST_F(QueuePortTest, AStopRequestTakesEffectAtAnyTime) {
  ASSERT_TRUE(reader.open(fifo.path()));
  for (int i = 0; i < 200; ++i) {
    std::thread thread([this] { reader.reception_loop(); });
    reader.request_stop();
    thread.join();
  }
  EXPECT_EQ(log.text(), std::string(200, '.'));
}

TEST_F(QueuePortTest, LargeRecordsOfSeveralWritersNeverMix) {
  ASSERT_TRUE(reader.open(fifo.path()));
  std::thread receiving([this] { reader.reception_loop(); });
  std::vector<std::thread> writers;
  for (unsigned id = 1; id <= 4; ++id) {
    writers.emplace_back([this, id] {
      for (int i = 0; i < 25; ++i) {
        tests::Writer writer;
        ASSERT_TRUE(writer.open(fifo.path()));
        EXPECT_TRUE(writer.transmit_data(tests::record(id, std::string(20000, static_cast<char>('a' + id)))));
      }
    });
  }
  for (std::thread& writer : writers) {
    writer.join();
  }
  reader.request_stop();
  receiving.join();
  for (unsigned id = 1; id <= 4; ++id) {
    const std::string whole =
        std::to_string(id) + ":" + std::string(20000, static_cast<char>('a' + id)) + " ";
    EXPECT_EQ(tests::count(log.text(), whole), 25) << id;
  }
  EXPECT_EQ(std::ranges::count(log.text(), '|'), 100);
}

TEST_F(QueuePortTest, WritersOfManyRecordsDoNotBlockOthers) {
  fifo.open();
  std::atomic<bool> done = false, drained = false;
  std::atomic<int> many = 0;
  std::thread slow_far_side([&] {
    for (std::array<char, 4096> block{}; !drained; std::this_thread::sleep_for(1ms)) {
      (void)!::read(fifo.fd(), block.data(), block.size());
    }
  });
  const auto write_many = [&] {
    tests::Writer writer;
    EXPECT_TRUE(writer.open(fifo.path()));
    for (const auto large = tests::record(1, std::string(60000, 'x')); !done; ++many) {
      (void)writer.transmit_data(large);
    }
  };
  std::thread busy(write_many), as_busy(write_many);
  while (many == 0) {
    std::this_thread::yield();
  }
  for (int i = 0; i < 30; ++i) {
    tests::Writer writer;
    ASSERT_TRUE(writer.open(fifo.path()));
    const int before = many;
    // On a stalled machine its second may end before its turn comes; the other writers are not at fault then.
    EXPECT_TRUE(writer.transmit_data(tests::record(2, "y")) || many - before < 4);
  }
  done = true;
  busy.join();
  as_busy.join();
  drained = true;
  slow_far_side.join();
}

TEST_F(QueuePortTest, TheFirstDrainDistinguishesATornRecordFromAnArrivingOne) {
  ASSERT_TRUE(reader.open(fifo.path()));
  fifo.open();
  const std::string inner = wire(2, "inner") + end_mark();
  const auto drain_with_rest = [&](const std::string& rest) {
    fifo.write(wire(1, inner + "rest").substr(0, 24 + inner.size()));
    reader.request_stop();
    std::thread draining([this] { reader.receive_data(); });
    while (bytes_waiting(fifo.fd()) != 0u) {
      std::this_thread::yield();
    }
    fifo.write(rest);
    draining.join();
  };
  drain_with_rest("rest");
  EXPECT_EQ(log.text(), "1:" + inner + "rest .");
  drain_with_rest("");
  EXPECT_EQ(log.text(), "1:" + inner + "rest .2:inner |.");
}

TEST_F(QueuePortTest, AFarSideThatNeverPausesDoesNotProlongADrain) {
  fifo.open();
  ASSERT_TRUE(reader.open(fifo.path()));
  std::string torn;  // beginnings of large records, each followed by whole ones
  for (int i = 0; i < 40; ++i) {
    torn += wire(1, std::string(60000, 'x')).substr(0, 24) + wire(2, "a") + wire(3, "b");
  }
  reader.request_stop();
  std::atomic_bool enough = false;
  const auto flood = std::async(std::launch::async, [&] {
    while (!enough) {
      fifo.write(torn);
    }
  });
  while (bytes_waiting(fifo.fd()) < 32768) {
    std::this_thread::yield();
  }
  const auto drain = std::async(std::launch::async, [this] { reader.receive_data(); });
  EXPECT_EQ(drain.wait_for(tests::time_limit), std::future_status::ready);
  enough = true;
}

TEST_F(QueuePortTest, AnAbsentOrDeadFarSideFailsTheWriteWithoutASignal) {
  tests::Writer writer;
  EXPECT_FALSE(writer.open(fifo.path()));
  EXPECT_FALSE(writer.open(dir.path("absent")));
  EXPECT_FALSE(writer.transmit_data(tests::record(1, "x")));
  {
    const tests::Reader short_lived(std::make_unique<tests::Passing>(log));
    ASSERT_TRUE(const_cast<tests::Reader&>(short_lived).open(fifo.path()));
    ASSERT_TRUE(writer.open(fifo.path()));
  }
  EXPECT_FALSE(writer.transmit_data(tests::record(1, "x")));
  EXPECT_FALSE(reader.open(dir.path("absent")));
}

TEST_F(QueuePortTest, AFullPortFailsAfterAWhile) {
  fifo.open();
  tests::Writer writer;
  ASSERT_TRUE(writer.open(fifo.path()));
  const auto large = tests::record(1, std::string(60000, 'x'));
  EXPECT_TRUE(writer.transmit_data(large));
  EXPECT_FALSE(writer.transmit_data(large));
}

TEST_F(QueuePortTest, AFolderThatCannotBeWatchedIsReportedOnce) {
  ::chmod(dir.path("").c_str(), 0311);
  ::chmod(fifo.path().c_str(), 0666);
  const auto lines = tests::logged_lines([this] {
    std::async(std::launch::async, [this] {
      ::setfsuid(65534);  // of this thread only; a test of root's may read any folder
      EXPECT_TRUE(reader.open(fifo.path()));
      EXPECT_TRUE(reader.open(fifo.path()));
    }).get();
  });
  EXPECT_THAT(lines,
              testing::ElementsAre("WARNING [tamu.ipc.queueport] " + fifo.path() +
                                   ": cannot watch for a replaced file at this path: Permission denied"));
}

TEST_F(QueuePortTest, APortThatAnotherProcessKeepsLockedFailsAfterAWhileAndNotForGood) {
  fifo.open();
  tests::Writer writer;
  ASSERT_TRUE(writer.open(fifo.path()));
  ASSERT_TRUE(ecu::tamu::ipc::try_lock_port(fifo.fd()));
  EXPECT_FALSE(writer.transmit_data(tests::record(1, "x")));
  EXPECT_EQ(fifo.read(), "");
  ecu::tamu::ipc::unlock_port(fifo.fd());
  EXPECT_TRUE(writer.transmit_data(tests::record(1, "x")));
}

TEST_F(QueuePortTest, AConsumersFailureCostsOneCall) {
  class Failing final : public IDataConsumer<IpcSignal> {
   public:
    explicit Failing(tests::PortLog& log) : log_(log) {}
    void consume(const IpcSignal& signal) override {
      log_.consume(signal);
      signal.id == 1 ? throw std::bad_alloc() : throw 2;
    }
    void finished() override { log_.finished(); }
    void frame_finished() override {
      log_.frame_finished();
      throw std::runtime_error("no frame");
    }

   private:
    tests::PortLog& log_;
  };
  tests::Reader failing(std::make_unique<Failing>(log));
  ASSERT_TRUE(failing.open(fifo.path()));
  fifo.open();
  fifo.write(wire(1, "") + wire(2, "") + end_mark());
  const auto lines = tests::logged_lines([&] {
    failing.request_stop();
    failing.reception_loop();
  });
  EXPECT_EQ(log.text(), "1: 2: |.");
  const std::string prefix = "ERROR [tamu.ipc.queueport] " + fifo.path() + ": consumer failed";
  EXPECT_THAT(lines, testing::ElementsAre(prefix + ": std::bad_alloc", prefix, prefix + ": no frame"));
}

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
    return testing::ElementsAre(testing::MatchesRegex("WARNING ." + prefix.substr(1) + "away: " + reason),
                                "NOTICE " + prefix + "is back");
  }

  tests::TempDir dir;
  tests::PortLog log;
  const std::string port = dir.path("port");
};

const std::string replaced = "the path no longer names the open file";

TEST_F(PortAwayTest, ADeviceIsReopenedAfterItsFarSideHangsUp) {
  const std::string target = dir.path("target");
  std::filesystem::create_directory(dir.path("folder"));
  const std::string nested = dir.path("folder/port");
  std::filesystem::create_symlink(target, nested);
  std::optional<tests::PseudoTerminal> device(std::in_place);
  tests::replace_link(target, device->path());
  const auto lines = receive(hardly_any, nested, [&] {
    device->write(wire(1, "half a frame"));
    log.wait_for("frame ");
    tests::replace_link(target, "/dev/null");  // can be opened, and is at its end at once
    device.reset();
    log.wait_for(".");
    wait_for_openings("/dev/null", 3, [] {});
    device.emplace();
    tests::replace_link(target, device->path());
    device->write(wire(2, "back") + end_mark());
    log.wait_for("|");
  });
  EXPECT_EQ(log.text(), "1:half a frame .2:back |.");
  EXPECT_THAT(lines, away_and_back(nested, "(end of file|Input/output error|the far side has hung up|" +
                                               replaced + ")"));
}

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
  EXPECT_EQ(lines.front(),
            "ERROR [tamu.ipc.queueport] " + port + ": 4 bytes dropped, they are no whole record");
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
