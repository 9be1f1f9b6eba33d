#include "ecusim/hypervisor.h"

#include <sys/stat.h>

#include "ecusim/daemon_return.h"
#include "support/ports.h"
#include "support/temp_dir.h"
#include "support/testing.h"

namespace ecu::sim {
namespace {

using tamu::ipc::IpcSignal;

IpcSignal record(std::uint32_t id, const std::string& value) {
  return tests::record(id, tests::parameter_payload(id, value));
}

/// Passes parameters on without the beginnings of their payloads, which it compares.
class Consumer final : public tamu::ipc::IDataConsumer<IpcSignal> {
 public:
  explicit Consumer(tests::PortLog& log) : log_(log) {}
  void consume(const IpcSignal& signal) override {
    const std::string value(signal.data.begin() + (signal.data.empty() ? 0 : 8), signal.data.end());
    EXPECT_TRUE(signal.data.empty() || signal.data == record(signal.id, value).data);
    log_.consume(tests::record(signal.id, value));
  }
  void finished() override {}
  void frame_finished() override { log_.frame_finished(); }

 private:
  tests::PortLog& log_;
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
    tests::Writer writer;
    EXPECT_TRUE(writer.open(folder_.path("telematics_param_send")));
    for (const IpcSignal& signal : records) {
      EXPECT_TRUE(writer.transmit_data(signal));
    }
  }
  void expect(const std::string& all) {
    log_.wait_for(all);
    EXPECT_EQ(log_.text(), all);
  }
  void TearDown() override { reader_.request_stop(); }

  const tests::TempDir folder_;
  tests::PortLog log_;
  std::optional<Hypervisor> hypervisor_;
  tests::Reader reader_{std::make_unique<Consumer>(log_)};
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
  expect("127: 127:long value 9: |");
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
