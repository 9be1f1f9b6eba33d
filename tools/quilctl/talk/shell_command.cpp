#include "quilctl/talk/shell_command.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <system_error>
#include <utility>
#include <vector>

#include "common/escaping.h"

extern "C" {  // which the header of glibc 2.36 leaves out
#include <sys/pidfd.h>
}

namespace ecu::ctl {

namespace {

constexpr int signalled = 128;       // plus the signal's number, as shells do
constexpr int end_limit_ms = 2'000;  // for a command that must end

// Without the blocked signals of this process, and in a process group of its own, which can be ended as a
// whole. The terminal would stop such a group when it reads.
pid_t start(std::vector<std::string> words) {
  std::vector<char*> arguments;
  std::ranges::transform(words, std::back_inserter(arguments), [](std::string& word) { return word.data(); });
  arguments.push_back(nullptr);
  posix_spawnattr_t attributes;
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  pid_t pid = 0;
  const int error = ::posix_spawn(&pid, arguments.front(), &files, &attributes, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  posix_spawnattr_destroy(&attributes);
  if (error != 0) {
    throw std::system_error(error, std::generic_category(), "cannot run a command");
  }
  return pid;
}

void end(pid_t pid, int handle) {
  ::kill(-pid, SIGTERM);
  pollfd ended{handle, POLLIN, 0};
  if (::poll(&ended, 1, end_limit_ms) == 0) {
    ::kill(-pid, SIGKILL);
  }
}

int exit_code_of(pid_t pid) {
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFSIGNALED(status) ? signalled + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

int run_shell_command(const std::string& command, const VariableRow& row, bool is_retained,
                      const std::function<bool(int)>& wait) {
  std::vector<std::string> words = {
      "/usr/bin/env",    "-u", "RETAINED", "-u", "VALUE", "UNIT=" + tools::printable(row.unit_name()),
      "NAME=" + row.name};
  if (is_retained) {
    words.emplace_back("RETAINED=1");
  }
  if (const auto value = row.value()) {
    words.push_back("VALUE=" + tools::printable(*value));
  }
  words.insert(words.end(), {"/bin/sh", "-c", command, "quilctl"});
  const pid_t pid = start(std::move(words));
  const int handle = ::pidfd_open(pid, 0);
  try {
    if (handle >= 0 && !wait(handle)) {
      end(pid, handle);
    }
  } catch (...) {
    end(pid, handle);
    (void)exit_code_of(pid);
    ::close(handle);
    throw;
  }
  const int code = exit_code_of(pid);
  ::close(handle);
  return code;
}

}  // namespace ecu::ctl
