#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <condition_variable>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <ecu/tamu/ipc/queue_port.h>

#include "ports/record_format.h"
#include "posix/unique_fd.h"
#include "support/process.h"
#include "support/temp_dir.h"

namespace tests {

using Reader = ecu::tamu::ipc::QueuePortReader<24u, ecu::tamu::ipc::signal_t_dyn<24u>>;
using Writer = ecu::tamu::ipc::QueuePortWriter<24u, ecu::tamu::ipc::signal_t_dyn<24u>>;

inline ecu::tamu::ipc::IpcSignal record(std::uint32_t id, std::string_view data) {
  ecu::tamu::ipc::IpcSignal signal;
  signal.id = id;
  signal.data.assign(data.begin(), data.end());
  return signal;
}

/// The bytes of a record on a port.
inline std::string wire(std::uint32_t id, std::string_view data) {
  std::vector<char> bytes;
  ecu::tamu::ipc::encode_record(record(id, data), bytes);
  return {bytes.begin(), bytes.end()};
}
/// The payload of a record with a system parameter.
inline std::string parameter_payload(std::uint32_t id, const std::string& value) {
  std::string payload;
  for (const std::size_t number : {std::size_t{id}, value.size()}) {
    for (unsigned shift = 0; shift < 32; shift += 8) {
      payload += static_cast<char>(number >> shift & 0xffU);
    }
  }
  return payload + value;
}
/// The bytes of such a record on a port.
inline std::string parameter_record(std::uint32_t id, const std::string& value) {
  return wire(id, parameter_payload(id, value));
}
inline std::string end_mark() {
  const auto mark = ecu::tamu::ipc::end_of_frame();
  return {mark.begin(), mark.end()};
}

/// The test's own FIFO, with raw access to its far end.
class Fifo {
 public:
  Fifo(const TempDir& dir, const std::string& name) : path_(dir.path(name)) { ::mkfifo(path_.c_str(), 0600); }

  [[nodiscard]] const std::string& path() const noexcept { return path_; }

  /// Holds the far end open from now on.
  void open() { fd_.reset(::open(path_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC)); }
  [[nodiscard]] int fd() const noexcept { return fd_.get(); }
  void write(std::string_view bytes) const { (void)!::write(fd_.get(), bytes.data(), bytes.size()); }
  [[nodiscard]] std::string read() const {
    std::string bytes(1 << 20, '\0');
    const ssize_t count = ::read(fd_.get(), bytes.data(), bytes.size());
    return bytes.substr(0, count > 0 ? static_cast<std::size_t>(count) : 0);
  }

 private:
  std::string path_;
  ecu::tamu::posix::UniqueFd fd_;
};

/// Both queueing ports of a daemon from the far side.
class FarSide {
 public:
  FarSide() {
    to_daemon_.open();
    from_daemon_.open();
  }
  /// With which the daemon finds them.
  [[nodiscard]] std::string config() const {
    return "qpread = " + to_daemon_.path() + "\nqpwrite = " + from_daemon_.path() + '\n';
  }
  void write(const std::string& bytes) const { to_daemon_.write(bytes); }
  void write_top_version(const std::string& value) const {
    write(parameter_record(0xa009, value) + end_mark());
  }
  /// Makes room for the daemon's next record.
  void drain() const { (void)from_daemon_.read(); }
  /// What the daemon writes up to the end of a frame, or within the time.
  [[nodiscard]] std::string read_frame(std::chrono::milliseconds time = time_limit) const {
    std::string bytes;
    pollfd port{from_daemon_.fd(), POLLIN, 0};
    while (!bytes.ends_with(end_mark()) && ::poll(&port, 1, static_cast<int>(time.count())) == 1) {
      bytes += from_daemon_.read();
    }
    return bytes;
  }

 private:
  TempDir dir_;
  Fifo to_daemon_{dir_, "receive"};
  Fifo from_daemon_{dir_, "send"};
};

/// A character device whose far side may hang up.
class PseudoTerminal {
 public:
  PseudoTerminal() : far_side_(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    ::grantpt(far_side_.get());
    ::unlockpt(far_side_.get());
    termios raw{};
    ::tcgetattr(far_side_.get(), &raw);
    ::cfmakeraw(&raw);
    ::tcsetattr(far_side_.get(), TCSANOW, &raw);
  }
  [[nodiscard]] std::string path() const { return ::ptsname(far_side_.get()); }
  [[nodiscard]] int fd() const noexcept { return far_side_.get(); }
  void write(std::string_view bytes) const { (void)!::write(far_side_.get(), bytes.data(), bytes.size()); }

 private:
  ecu::tamu::posix::UniqueFd far_side_;
};

/// Links `path` to the file at `target`, in one step.
inline void replace_link(const std::string& path, const std::string& target) {
  std::filesystem::create_symlink(target, path + ".new");
  std::filesystem::rename(path + ".new", path);
}

/// Records its calls: "id:data" for a record, "|" for the end of a frame, "." for the end of reception. Then
/// calls the test's function, which may throw.
class PortLog final : public ecu::tamu::ipc::IDataConsumer<ecu::tamu::ipc::IpcSignal> {
 public:
  explicit PortLog(std::function<void(const std::string& call)> then = nullptr) : then_(std::move(then)) {}

  void consume(const ecu::tamu::ipc::IpcSignal& signal) override {
    add(std::to_string(signal.id) + ":" + std::string(signal.data.begin(), signal.data.end()) + " ");
  }
  void finished() override { add("."); }
  void frame_finished() override { add("|"); }

  [[nodiscard]] std::string text() const {
    const std::lock_guard lock(mutex_);
    return text_;
  }
  /// Waits until the text ends with `end`; fails the test when it never does.
  void wait_for(std::string_view end) {
    std::unique_lock lock(mutex_);
    EXPECT_TRUE(changed_.wait_for(lock, time_limit, [&] { return text_.ends_with(end); })) << text_;
  }

 private:
  void add(const std::string& text) {
    {
      const std::lock_guard lock(mutex_);
      text_ += text;
      changed_.notify_all();
    }
    if (then_) {
      then_(text);
    }
  }

  const std::function<void(const std::string& call)> then_;
  mutable std::mutex mutex_;  // guards text_
  std::condition_variable changed_;
  std::string text_;
};

/// Passes everything on to a consumer that the test keeps.
class Passing final : public ecu::tamu::ipc::IDataConsumer<ecu::tamu::ipc::IpcSignal> {
 public:
  explicit Passing(IDataConsumer& target) : target_(target) {}
  void consume(const ecu::tamu::ipc::IpcSignal& signal) override { target_.consume(signal); }
  void finished() override { target_.finished(); }
  void frame_finished() override { target_.frame_finished(); }

 private:
  IDataConsumer& target_;
};

}  // namespace tests
