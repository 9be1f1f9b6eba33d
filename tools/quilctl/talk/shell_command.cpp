#include "quilctl/talk/shell_command.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <system_error>

#include "common/escaping.h"

extern "C" {  // which the header of glibc 2.36 leaves out
#include <sys/pidfd.h>
}

namespace ecu::ctl {

namespace {

constexpr int signalled = 128;      // plus the signal's number, as shells do
constexpr int patience_ms = 2'000;  // with a command that must end

constexpr const char* set_up =
    R"(UNIT=$1; NAME=$2; export UNIT NAME; unset VALUE; [ $# -lt 3 ] || { VALUE=$3; export VALUE; }; eval "$0")";

// Without the blocked signals of this process, and in a process group of its own, which can be ended as a
// whole. The terminal would stop such a group when it reads.
pid_t start(const char* const* words) {
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
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the words are not changed
  const int error =
      ::posix_spawn(&pid, "/bin/sh", &files, &attributes, const_cast<char* const*>(words), environ);
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
  if (::poll(&ended, 1, patience_ms) == 0) {
    ::kill(-pid, SIGKILL);
  }
}

int exit_code_of(pid_t pid) {
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFSIGNALED(status) ? signalled + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

int run_shell_command(const std::string& command, const VariableRow& row,
                      const std::function<bool(int)>& wait) {
  const std::string unit = tools::printable(row.unit_name()),
                    value = tools::printable(row.value().value_or(""));
  const std::array<const char*, 8> words = {"sh",
                                            "-c",
                                            set_up,
                                            command.c_str(),
                                            unit.c_str(),
                                            row.name.c_str(),
                                            row.value() ? value.c_str() : nullptr,
                                            nullptr};
  const pid_t pid = start(words.data());
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
