#include <ecu/quil/queuing_port_handler.h>
#include <ecu/quil/sys_param_codec.h>

#include "ports/port_file.h"
#include "support/ports.h"
#include "support/testing.h"

namespace {

using ecu::quil::QueuingPortHandler;
using ecu::quil::to_signal;
using tests::end_mark;
using tests::record;
using tests::wire;

class QueuingPortHandlerTest : public testing::Test {
 protected:
  tests::TempDir dir;
  tests::Fifo receive{dir, "receive"};
  tests::Fifo send{dir, "send"};
  tests::PortLog first, second;
  std::unique_ptr<QueuingPortHandler> handler =
      std::make_unique<QueuingPortHandler>(receive.path(), send.path(), 1);
};

TEST_F(QueuingPortHandlerTest, WaitingRecordsAreDeliveredBeforeInitReturnsAndTheRestOnItsThread) {
  handler->add_consumer(&first);
  handler->add_consumer(&second);
  receive.open();
  receive.write(wire(7, "early") + end_mark());
  const auto log = tests::logged_lines([this] { handler->init(); });
  EXPECT_EQ(first.text(), "7:early |.");
  EXPECT_THAT(
      log,
      ElementsAre("INFO [QueuingPortHandler] Read everything form the queueing port...",
                  "INFO [QueuingPortHandler] Finished initial reading from queueing port, keep running..."));
  receive.write(wire(8, "late") + end_mark());
  second.wait_for("8:late |");
  handler.reset();
  EXPECT_EQ(first.text(), "7:early |.8:late |.");
}

TEST_F(QueuingPortHandlerTest, AStopBeforeTheStartTakesEffect) {
  handler->add_consumer(&first);
  receive.open();
  receive.write(wire(7, "early") + end_mark());
  handler->stop();
  handler->init();
  EXPECT_EQ(first.text(), "");
}

// The bytes were written by hand, with the CRC of another program.
TEST_F(QueuingPortHandlerTest, RecordsHaveTheBytesThatTheOtherSideExpects) {
  const std::string top_version =
      "\x51\x50\x01\0\x09\xa0\0\0\0\0\0\0\0\0\0\0\x0c\0\0\0\x20\x73\x97\xd4\x09\xa0\0\0\x04\0\0\0TV 1"s;
  const std::string secret =
      "\x51\x50\x01\0\x03\0\0\0\0\0\0\0\0\0\0\0\x0d\0\0\0\xe4\xba\x6c\x6f\x03\0\0\0\x05\0\0\x00"
      "12345"s;
  const std::string end = "\x51\x50\x02\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x59\x17\x12\xe4"s;
  send.open();
  EXPECT_TRUE(handler->write({}));
  const auto log = tests::logged_lines([this] {
    EXPECT_TRUE(handler->write({to_signal({0xa009, "TV 1"}), to_signal({3, "12345"})}));
  });
  EXPECT_EQ(send.read(), top_version + secret + end);
  EXPECT_THAT(log, ElementsAre("DEBUG [QueuingPortHandler] Going to write 2 IPC signals to " + send.path(),
                               "DEBUG [QueuingPortHandler] Write signal (id:0xa009) with  payload size 12",
                               "DEBUG [QueuingPortHandler] Write signal (id:0x3) with  payload size 13"));
  handler->add_consumer(&first);
  receive.open();
  receive.write(secret + top_version + end);
  handler->init();
  EXPECT_EQ(first.text(),
            "3:\x03\0\0\0\x05\0\0\x00"
            "12345 40969:\x09\xa0\0\0\x04\0\0\0TV 1 |."s);
}

TEST_F(QueuingPortHandlerTest, AWriteEndsAfterItsCurrentRecord) {
  send.open();
  const std::string filling(60000, 'x');
  send.write(filling);
  auto write = std::async(std::launch::async, [this, &filling] {
    return handler->write({record(1, filling), record(2, "y")});
  });
  while (ecu::tamu::ipc::bytes_waiting(send.fd()) <=
         filling.size()) {  // until the first record waits for room
    std::this_thread::yield();
  }
  handler->request_stop();
  std::string read;
  while (write.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) {
    read += send.read();
  }
  EXPECT_FALSE(write.get());
  EXPECT_EQ(read + send.read(), filling + wire(1, filling) + end_mark());
}

TEST_F(QueuingPortHandlerTest, AFailedRecordEndsTheList) {
  const auto absent = tests::logged_lines([this] { EXPECT_FALSE(handler->write({record(1, "x")})); });
  EXPECT_EQ(absent.back(),
            "ERROR [QueuingPortHandler] Unable to open Queueing Port for writing: " + send.path());
  send.open();
  const auto log = tests::logged_lines([this] {
    EXPECT_FALSE(handler->write({record(1, "x"), record(26, std::string(70000, 'y')), record(3, "z")}));
  });
  EXPECT_EQ(log.back(), "ERROR [QueuingPortHandler] Unable to write signal with id 26");
  EXPECT_EQ(send.read(), wire(1, "x") + end_mark());
}

}  // namespace
