#include "support/process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <utility>

#include "posix/event.h"

namespace tests {

namespace {

using ecu::tamu::posix::checked_fd;
using ecu::tamu::posix::UniqueFd;

std::pair<UniqueFd, UniqueFd> make_pipe() {
  std::array<int, 2> ends{-1, -1};
  const int result = ::pipe2(ends.data(), O_CLOEXEC);
  // A log loses lines that its pipe does not accept at once.
  ::fcntl(ends[1], F_SETPIPE_SZ, 1 << 20);
  return {checked_fd(result < 0 ? -1 : ends[0], "pipe2"), UniqueFd(ends[1])};
}

// Runs in the child after fork: only async-signal-safe calls.
[[noreturn]] void become(char* const* argv, int out, int err) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  ::dup2(::open("/dev/null", O_RDONLY), STDIN_FILENO);
  ::dup2(out, STDOUT_FILENO);
  ::dup2(err, STDERR_FILENO);
  ::execv(argv[0], argv);
  ::_exit(127);
}

}  // namespace

int count(std::string_view all, std::string_view text) {
  int found = 0;
  for (auto at = all.find(text); at != std::string_view::npos; at = all.find(text, at + text.size())) {
    ++found;
  }
  return found;
}

Process::Process(std::vector<std::string> argv) {
  auto [out, child_out] = make_pipe();
  auto [err, child_err] = make_pipe();
  std::vector<char*> arguments;
  arguments.reserve(argv.size() + 1);
  for (std::string& argument : argv) {
    arguments.push_back(argument.data());
  }
  arguments.push_back(nullptr);
  pid_ = ::fork();
  if (pid_ == 0) {
    become(arguments.data(), child_out.get(), child_err.get());
  }
  pidfd_ = checked_fd(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)), "pidfd_open");
  out_ = std::move(out);
  err_ = std::move(err);
  reader_ = std::thread([this] { read_output(); });
}

Process::~Process() {
  signal(SIGKILL);
  wait();
  reader_.join();
}

void Process::signal(int number) const {
  if (!status_) {
    ::kill(pid_, number);
  }
}

std::optional<int> Process::wait(std::chrono::milliseconds timeout) {
  pollfd ended{pidfd_.get(), POLLIN, 0};
  if (!status_ && ::poll(&ended, 1, static_cast<int>(timeout.count())) == 1) {
    int status = 0;
    ::waitpid(pid_, &status, 0);
    status_ = WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return ended_; });
  }
  return status_;
}

std::string Process::output() const {
  const std::lock_guard lock(mutex_);
  return output_;
}

std::string Process::standard_output() const {
  const std::lock_guard lock(mutex_);
  return standard_output_;
}

bool Process::wait_for_output(std::string_view text, int times, std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  const auto written = [&] { return count(output_, text) >= times; };
  changed_.wait_for(lock, timeout, [&] { return ended_ || written(); });
  return written();
}

void Process::read_output() {
  std::array<pollfd, 2> fds{{{out_.get(), POLLIN, 0}, {err_.get(), POLLIN, 0}}};
  std::array<char, 65536> piece{};
  while (fds[0].fd >= 0 || fds[1].fd >= 0) {
    ::poll(fds.data(), fds.size(), -1);
    for (pollfd& source : fds) {
      if (source.fd < 0 || source.revents == 0) {
        continue;
      }
      const auto size = ::read(source.fd, piece.data(), piece.size());
      if (size <= 0) {
        source.fd = -1;
        continue;
      }
      const std::string_view text(piece.data(), static_cast<std::size_t>(size));
      const std::lock_guard lock(mutex_);
      output_ += text;
      if (&source == fds.data()) {
        standard_output_ += text;
      }
      changed_.notify_all();
    }
  }
  const std::lock_guard lock(mutex_);
  ended_ = true;
  changed_.notify_all();
}

}  // namespace tests
