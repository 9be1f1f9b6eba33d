#include <poll.h>
#include <sys/fsuid.h>
#include <sys/stat.h>

#include "ports/port_file.h"
#include "ports/port_receiver.h"
#include "ports/record_parser.h"
#include "support/failing_allocation.h"
#include "support/ports.h"
#include "support/process.h"
#include "support/testing.h"

namespace {

using namespace ecu::tamu::ipc;
using tests::end_mark;
using tests::wire;

class QueuePortTest : public testing::Test {
 protected:
  tests::TempDir dir;
  tests::Fifo fifo{dir, "port"};
  tests::PortLog log;
  tests::Reader reader{std::make_unique<tests::Passing>(log)};
};

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

TEST_F(QueuePortTest, WithoutAReaderAWriteFailsWithoutASignal) {
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
  EXPECT_THAT(lines, ElementsAre("WARNING [tamu.ipc.queueport] " + fifo.path() +
                                 ": cannot watch for a replaced file at this path: Permission denied"));
}

TEST_F(QueuePortTest, AWriteToALockedOrFullPortFailsAndWithoutRecordsThereIsNoFrame) {
  fifo.open();
  tests::Writer writer;
  ASSERT_TRUE(writer.open(fifo.path()));
  ASSERT_TRUE(try_lock_port(fifo.fd()));
  {
    tests::Writer another;
    ASSERT_TRUE(another.open(fifo.path()));
    EXPECT_FALSE(another.transmit_data(tests::record(1, "x")));
    unlock_port(fifo.fd());
  }
  EXPECT_EQ(fifo.read(), "");
  const auto large = tests::record(1, std::string(60000, 'x'));
  EXPECT_TRUE(writer.transmit_data(large));
  EXPECT_FALSE(writer.transmit_data(large));
}

TEST_F(QueuePortTest, AnExceptionFromAConsumerAffectsOneCallOnly) {
  tests::PortLog failing([](const std::string& call) {
    if (call == "1: ") {
      throw std::bad_alloc();
    }
    call == "|" ? throw std::runtime_error("no frame") : throw 2;
  });
  tests::Reader of_failing(std::make_unique<tests::Passing>(failing));
  ASSERT_TRUE(of_failing.open(fifo.path()));
  fifo.open();
  fifo.write(wire(1, "") + wire(2, "") + end_mark());
  const auto lines = tests::logged_lines([&] {
    of_failing.request_stop();
    of_failing.reception_loop();
  });
  EXPECT_EQ(failing.text(), "1: 2: |.");
  const std::string prefix = "ERROR [tamu.ipc.queueport] " + fifo.path() + ": consumer failed";
  EXPECT_THAT(lines, ElementsAre(prefix + ": std::bad_alloc", prefix, prefix + ": no frame", prefix));
}

}  // namespace
