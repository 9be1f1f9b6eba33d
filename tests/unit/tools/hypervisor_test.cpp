#include "ecusim/hypervisor.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <condition_variable>
#include <filesystem>
#include <mutex>

#include "ecusim/daemon_return.h"
#include "support/temp_dir.h"

namespace ecu::sim {
namespace {

using tamu::ipc::IpcSignal;
using Reader = tamu::ipc::QueuePortReader<24u, tamu::ipc::signal_t_dyn<24u>>;
using Writer = tamu::ipc::QueuePortWriter<24u, tamu::ipc::signal_t_dyn<24u>>;

IpcSignal record(std::uint32_t id, const std::string& value) {
  const auto byte = [](std::size_t number) { return static_cast<char>(number); };
  IpcSignal signal{id, 0, 0, {byte(id), 0, 0, 0, byte(value.size()), 0, 0, 0}};
  signal.data.insert(signal.data.end(), value.begin(), value.end());
  return signal;
}

/// The received records: "ID:VALUE " for a parameter, "ID " for a record without payload, "|" for the end of
/// a frame.
class Journal {
 public:
  void add(const std::string& text) {
    const std::lock_guard lock(mutex_);
    text_ += text;
    changed_.notify_all();
  }
  std::string wait_for(std::size_t size) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, std::chrono::seconds(20), [&] { return text_.size() >= size; });
    return text_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::string text_;  // guarded by mutex_
};

class Consumer final : public tamu::ipc::IDataConsumer<IpcSignal> {
 public:
  explicit Consumer(Journal& journal) : journal_(journal) {}
  void consume(const IpcSignal& signal) override {
    const std::string value(signal.data.begin() + (signal.data.empty() ? 0 : 8), signal.data.end());
    EXPECT_TRUE(signal.data.empty() || signal.data == record(signal.id, value).data);
    journal_.add(std::to_string(signal.id) + (signal.data.empty() ? " " : ":" + value + " "));
  }
  void finished() override {}
  void frame_finished() override { journal_.add("|"); }

 private:
  Journal& journal_;
};

class HypervisorTest : public testing::Test {
 protected:
  void start(const std::string& ports) {
    hypervisor_.emplace(*parse_scenario(R"({"messages": [], "ports": {)" + ports + "}}").ports,
                        folder_.path(""));
  }
  // The daemon's side; `start` may come before.
  void read() {
    EXPECT_TRUE(reader_.open(folder_.path("telematics_param_receive")));
    receiver_ = std::jthread([this] { reader_.reception_loop(); });
  }
  void write(const std::vector<IpcSignal>& records) const {
    Writer writer;
    EXPECT_TRUE(writer.open(folder_.path("telematics_param_send")));
    for (const IpcSignal& signal : records) {
      EXPECT_TRUE(writer.transmit_data(signal));
    }
  }
  void expect(const std::string& journal) { EXPECT_EQ(journal_.wait_for(journal.size()), journal); }
  void TearDown() override { reader_.request_stop(); }

  const tests::TempDir folder_;
  Journal journal_;
  std::optional<Hypervisor> hypervisor_;
  Reader reader_{std::make_unique<Consumer>(journal_)};
  std::jthread receiver_;
};

const std::string two_parameters = R"("parameters": [{"id": "0x7f", "text": "long value"}, {"id": 9}])";

TEST_F(HypervisorTest, EverythingIsSentAsSoonAsThereIsAReader) {
  start(two_parameters + R"(, "master": {"text": "m"}, "remote": {"text": "r"})");
  read();
  expect("127:long value 9: |2:m 3:r |");
  hypervisor_.reset();
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path("")));
}

TEST_F(HypervisorTest, WritesAreMergedAndAnswered) {
  start(two_parameters + R"(, "answer_after_ms": 1)");
  read();
  write({record(3, "r")});
  expect("127:long value 9: |3:r |");
  const std::vector<char> other = record(9, "bad").data;
  write({record(9, "new"), {9, 0, 0, {9}}, {127, 0, 0, other}, {9, 0, 0, {other.begin(), other.end() - 1}}});
  expect("127:long value 9: |3:r |127:long value 9:new |");
  write({record(2, "m"), record(5, "added")});
  expect("127:long value 9: |3:r |127:long value 9:new |127:long value 9:new 5:added |2:m |");
}

TEST_F(HypervisorTest, AReturningDaemonReceivesTheParametersAgain) {
  start(two_parameters + R"(, "master": {"text": "m"})");
  read();
  write({record(9, "new")});
  std::string journal = "127:long value 9: |2:m |127:long value 9:new |";
  expect(journal);
  DaemonReturn presence([this] { hypervisor_->send_parameters_again(); });
  for (const std::string state : {"offline", "online", "offline", "online"}) {
    presence.message("", tamu::com::make_message(0, {state.begin(), state.end()}));
  }
  write({record(2, "last")});
  expect(journal + "127:long value 9:new |2:last |");
}

TEST_F(HypervisorTest, FifosHaveTheRequestedAccess) {
  const mode_t mask = ::umask(0077);
  hypervisor_.emplace(PortsSetup(), folder_.path(""), FifoAccess{.mode = 0660, .group = ::getegid()});
  ::umask(mask);
  for (const std::string name : {"telematics_param_receive", "telematics_param_send"}) {
    struct stat status {};
    ASSERT_EQ(::stat(folder_.path(name).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, S_IFIFO | mode_t{0660});
    EXPECT_EQ(status.st_gid, ::getegid());
  }
}

TEST_F(HypervisorTest, DamageAndWholeRecordsReachTheReader) {
  start(two_parameters + R"(, "torn_record": true, "wrong_crc": true, "empty_record": true)");
  read();
  expect("127 127:long value 9: |");
}

TEST_F(HypervisorTest, FrameMayLackItsEnd) {
  start(two_parameters + R"(, "master": {}, "no_end_mark": true)");
  read();
  expect("127:long value 9: 2: |");
}

TEST_F(HypervisorTest, ExistingPathsAreLeftUnchanged) {
  const std::string path = folder_.write("telematics_param_send", "");
  EXPECT_THROW(start(""), std::system_error);
  EXPECT_TRUE(std::filesystem::is_regular_file(path));
}

}  // namespace
}  // namespace ecu::sim
