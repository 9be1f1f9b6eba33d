#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <filesystem>
#include <regex>

#include "logging/sink.h"
#include "support/datagram_socket.h"
#include "support/ports.h"
#include "support/temp_dir.h"
#include "support/testing.h"

using namespace ecu::tamu;
using namespace ecu::tamu::logging;
using posix::UniqueFd;
using testing::MatchesRegex;
using tests::DatagramSocket;
using tests::TempDir;

namespace {

const std::string payload(4000, 'x');

// A terminal passes its text on with a short delay.
std::string drain(int fd) {
  constexpr int settling_ms = 20;
  std::string text;
  std::array<char, 65536> piece{};
  for (pollfd source{fd, POLLIN, 0}; ::poll(&source, 1, settling_ms) == 1;) {
    const ssize_t size = ::read(fd, piece.data(), piece.size());
    if (size <= 0) {
      break;
    }
    text.append(piece.data(), static_cast<std::size_t>(size));
  }
  return text;
}

struct Received {
  std::size_t whole_lines = 0;
  std::size_t lost = 0;  // as reported in the log
  bool is_loss_reported_in_time = false;
};

Received examine(const std::string& text) {
  static const std::regex report(R"([^ ]*Z WARNING \[tamu\.logging\] ([0-9]+) lines? lost: .*)");
  static const std::regex whole("[^ ]*Z NOTICE (" + payload + "|after [0-9]+)");
  Received received;
  std::istringstream lines(text);
  std::smatch match;
  for (std::string line; std::getline(lines, line);) {
    if (std::regex_match(line, match, report)) {
      received.lost += std::stoul(match[1]);
      received.is_loss_reported_in_time = text.find("after") > text.find(" lost: ");
    } else if (std::regex_match(line, whole)) {
      ++received.whole_lines;
    }
  }
  return received;
}

// Writes far more than the target holds while nobody reads, then reads.
void expect_that_the_loss_is_counted(int writer, int reader) {
  const int flags = ::fcntl(writer, F_GETFL);
  StreamSink sink(writer);
  std::size_t count = 0;
  for (; count < 200; ++count) {
    sink.write(Level::notice, {}, {payload});
  }
  std::string text = drain(reader), end;
  for (; count < 1000 && (end.empty() || !text.ends_with(end)); ++count) {
    end = "after " + std::to_string(count) + '\n';
    sink.write(Level::notice, {}, {std::string_view(end).substr(0, end.size() - 1)});
    text += drain(reader);
  }
  const Received received = examine(text);
  EXPECT_GT(received.lost, 0);
  EXPECT_EQ(received.lost + received.whole_lines, count);
  EXPECT_TRUE(received.is_loss_reported_in_time);
  EXPECT_EQ(::fcntl(writer, F_GETFL), flags);
}

std::pair<UniqueFd, UniqueFd> make_pipe() {
  std::array<int, 2> ends{};
  EXPECT_EQ(::pipe(ends.data()), 0);
  return {UniqueFd(ends[0]), UniqueFd(ends[1])};
}

// No file can be opened during its lifetime.
class NoDescriptorsLeft {
 public:
  NoDescriptorsLeft() {
    ::getrlimit(RLIMIT_NOFILE, &before_);
    const rlimit one{1, before_.rlim_max};  // which poll needs
    ::setrlimit(RLIMIT_NOFILE, &one);
  }
  ~NoDescriptorsLeft() { ::setrlimit(RLIMIT_NOFILE, &before_); }

 private:
  rlimit before_{};
};

}  // namespace

TEST(LogSinkTest, UnreadPipeTerminalOrSocketLosesLinesAndReceivesTheirNumber) {
  const auto [reader, writer] = make_pipe();
  expect_that_the_loss_is_counted(writer.get(), reader.get());
#ifndef __SANITIZE_ADDRESS__  // the undefined-behaviour sanitizer needs descriptors of its own
  const auto [other_reader, not_to_be_reopened] = make_pipe();
  {
    const NoDescriptorsLeft none;
    expect_that_the_loss_is_counted(not_to_be_reopened.get(), other_reader.get());
  }
#endif
  const tests::PseudoTerminal far_side;
  const UniqueFd terminal(::open(far_side.path().c_str(), O_RDWR | O_NOCTTY));
  expect_that_the_loss_is_counted(terminal.get(), far_side.fd());
  for (const int type : {SOCK_STREAM, SOCK_SEQPACKET}) {  // the first takes parts of lines
    std::array<int, 2> ends{};
    ASSERT_EQ(::socketpair(AF_UNIX, type, 0, ends.data()), 0);
    const UniqueFd near_end(ends[0]), far_end(ends[1]);
    const int smallest = 1;
    ::setsockopt(far_end.get(), SOL_SOCKET, SO_SNDBUF, &smallest, sizeof smallest);
    expect_that_the_loss_is_counted(far_end.get(), near_end.get());
  }
}

TEST(LogSinkTest, RegularFileIsWrittenFromItsCurrentOffset) {
  const TempDir dir;
  const UniqueFd file(::open(dir.write("log", "before\n").c_str(), O_RDWR));
  ASSERT_EQ(::lseek(file.get(), 0, SEEK_END), 7);
  StreamSink sink(file.get());
  sink.write(Level::error, "m", {"one"});
  sink.write(Level::error, {}, {"two"});
  ::lseek(file.get(), 0, SEEK_SET);
  EXPECT_THAT(drain(file.get()), MatchesRegex("before\n[^ ]*Z ERROR \\[m\\] one\n[^ ]*Z ERROR two\n"));
}

TEST(LogSinkTest, ResetMakesTheSinkExamineItsTargetAgain) {
  const auto [first_reader, writer] = make_pipe();
  auto [second_reader, second_writer] = make_pipe();
  StreamSink sink(writer.get());
  sink.write(Level::notice, {}, {"one"});
  ::dup2(second_writer.get(), writer.get());
  second_writer.reset();
  sink.reset();
  sink.write(Level::notice, {}, {"two"});
  EXPECT_THAT(drain(first_reader.get()), MatchesRegex("[^ ]*Z NOTICE one\n"));
  EXPECT_THAT(drain(second_reader.get()), MatchesRegex("[^ ]*Z NOTICE two\n"));
}

TEST(LogSinkTest, SystemLogReceivesLinesLikeSyslogAndAgainAfterARestartOrReplacement) {
  const TempDir dir;
  SyslogSink sink(dir.path("log"));
  std::string beginning = R"(<28>[A-Z][a-z][a-z] [ 123][0-9] [0-9][0-9]:[0-9][0-9]:[0-9][0-9] tolquil\[)";
  beginning += std::to_string(::getpid()) + R"(\]: )";
  sink.write(Level::notice, {}, {"nobody there"});
  sink.write(Level::notice, {}, {"still nobody"});
  for (const char* const loss : {"2 lines lost: the log could not take them", ""}) {
    const DatagramSocket log(dir.path("log"));  // the second time round it has restarted
    sink.write(Level::warning, "m", {"100%s\n"});
    if (*loss != '\0') {
      EXPECT_THAT(log.receive().value_or(""), MatchesRegex(beginning + R"(\[tamu\.logging\] )" + loss));
    }
    EXPECT_THAT(log.receive().value_or(""), MatchesRegex(beginning + R"(\[m\] 100%s\\x0a)"));
    EXPECT_EQ(log.receive(), std::nullopt);
    std::filesystem::rename(log.path(), dir.path("old"));
    const DatagramSocket replacement(dir.path("log"));
    sink.write(Level::notice, {}, {"replaced"});
    EXPECT_THAT(replacement.receive().value_or(""), testing::EndsWith("]: replaced"));
  }
}

TEST(LogSinkTest, UnreadSystemLogLosesLinesAndReceivesTheirNumber) {
  constexpr std::size_t count = 2000;  // more than any queue of datagrams holds
  const TempDir dir;
  const DatagramSocket log(dir.path("log"));
  SyslogSink sink(log.path());
  for (std::size_t i = 0; i < count; ++i) {
    sink.write(Level::notice, {}, {payload});
  }
  std::size_t received = 0;
  while (log.receive()) {
    ++received;
  }
  EXPECT_LT(received, count);
  sink.write(Level::notice, {}, {"after"});
  EXPECT_THAT(log.receive().value_or(""),
              testing::EndsWith("[tamu.logging] " + std::to_string(count - received) +
                                " lines lost: the log could not take them"));
  EXPECT_THAT(log.receive().value_or(""), testing::EndsWith("]: after"));
}
