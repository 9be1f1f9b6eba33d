#pragma once

#include "support/ports.h"
#include "system/daemon.h"

namespace tests {

/// Both queueing ports from the far side: the test writes frames, and the daemon's writes are read and
/// dropped.
class FarSide {
 public:
  FarSide() {
    to_daemon_.open();
    from_daemon_.open();
  }
  [[nodiscard]] std::string config() const {
    return "qpread = " + to_daemon_.path() + "\nqpwrite = " + from_daemon_.path() + '\n';
  }
  void write(const std::string& bytes) const { to_daemon_.write(bytes); }
  /// Makes room for the daemon's next record.
  void drain() const { (void)from_daemon_.read(); }

  /// Waits for a write of the daemon, and removes everything that it has written.
  void await_write(std::chrono::milliseconds time) const {
    pollfd port{from_daemon_.fd(), POLLIN, 0};
    ::poll(&port, 1, static_cast<int>(time.count()));
    drain();
  }

  void write_top_version(const std::string& value) const {
    write(parameter_record(0xa009, value) + end_mark());
  }

 private:
  TempDir dir_;
  Fifo to_daemon_{dir_, "receive"};
  Fifo from_daemon_{dir_, "send"};
};

}  // namespace tests
