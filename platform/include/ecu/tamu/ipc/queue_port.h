#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include <ecu/tamu/ipc/data_consumer.h>
#include <ecu/tamu/ipc/ipc_signal.h>

/// Queueing ports: one-way streams of records between the two sides of the unit. A port is a path: a FIFO, a
/// character device or a regular file. Records come in frames; a frame ends with a mark.
namespace ecu::tamu::ipc {

/// A record of a header of `HeaderSize` bytes and a payload whose size the header states.
template <unsigned HeaderSize>
struct signal_t_dyn {
  static constexpr std::size_t header_size = HeaderSize;
  /// A record fills 64 KiB at most, the room of a FIFO.
  static constexpr std::size_t max_payload_size = 64 * 1024 - HeaderSize;
};

namespace detail {
class PortReceiver;
class PortSender;
}  // namespace detail

/// The receiving end of a port. `request_stop` may be called from any thread; everything else belongs to one
/// thread at a time. Exists for 24-byte headers only.
///
/// A port that was opened can go away: it reports its end or an I/O error (a character device whose far side
/// hangs up, a regular file that was read to its end), or its path names another file or none. The waiting
/// records are delivered, an incomplete record is dropped as damage, one WARNING line is written, and
/// `finished` is called: the unfinished frame ends there and does not continue on the file that is opened
/// next. `reception_loop` reopens the port, `receive_data` does not.
template <unsigned HeaderSize, class Record>
class QueuePortReader {
 public:
  /// Throws std::system_error when the system has no descriptor left.
  explicit QueuePortReader(std::unique_ptr<IDataConsumer<IpcSignal>> consumer);
  /// No other call may be in progress.
  ~QueuePortReader();

  QueuePortReader(const QueuePortReader&) = delete;
  QueuePortReader& operator=(const QueuePortReader&) = delete;

  /// A number for platforms whose ports can be tuned. A Linux host ignores it.
  void configure(int setting) noexcept;

  /// Opens the port without blocking, with or without a writer. False when that fails; the port is then not
  /// reopened. The process must be allowed to read and write a FIFO: the reader also holds the writing end,
  /// so that no end of file appears when the far side closes the FIFO and returns.
  [[nodiscard]] bool open(const std::string& path);

  /// Passes records and ends of frames to the consumer until a stop is requested or the port goes away;
  /// sleeps while nothing arrives. The stop request ends the wait at once: what the port held at that moment
  /// is still delivered, then `finished` is called, and the request is cleared on return. An incomplete
  /// record with whole ones after its beginning may be torn, or carry them as its payload: reception then
  /// waits for its rest until its time is over. On a port that is not open, the call returns at once after
  /// `finished`.
  ///
  /// Bytes that are not part of a whole record are dropped up to the next whole record, with an ERROR line
  /// that counts them. So is a record that is not complete 1 s after its first byte. The line is written when
  /// the next whole record is found, or 1 s after the first of the bytes, or when reception ends.
  void receive_data();

  /// Ends `receive_data` or `reception_loop`, the running call or else the next one, after the waiting
  /// records have been delivered.
  void request_stop() noexcept;

  /// The body of a receiving thread, which it names: receives until a stop is requested, before or after its
  /// start, and calls `finished`. It reopens a port that goes away, with one NOTICE line when the port is
  /// back: at once when its path names another file, else after pauses that grow from 1 to 5 s. A stop
  /// request ends a pause at once. A grown regular file is read from the old offset, a replaced one from its
  /// beginning. If the system has no file watch left (one WARNING line), a replaced file is noticed only when
  /// the old one reports its end.
  void reception_loop();

 private:
  std::unique_ptr<detail::PortReceiver> receiver_;
};

/// The sending end of a port. One writer belongs to one thread at a time, but any number of writers, in any
/// number of processes, may have the same port open: their records never mix.
template <unsigned HeaderSize, class Record>
class QueuePortWriter {
 public:
  QueuePortWriter();
  /// Writes the end-of-frame mark if a record was transmitted, then closes the port. Waits for room like a
  /// record, but not if a record has failed.
  ~QueuePortWriter();

  QueuePortWriter(const QueuePortWriter&) = delete;
  QueuePortWriter& operator=(const QueuePortWriter&) = delete;

  /// Opens the port; false when that fails, as it does at once for a FIFO without a reader. A port that was
  /// open before is closed as by the destructor. A regular file is appended to.
  [[nodiscard]] bool open(const std::string& path);

  /// Writes one record. Logs a WARNING line with the reason and returns false if it cannot be written whole:
  /// the payload is too large, the port stays full or in use by another writer for 1 s, or the far side is
  /// gone. The writers of one process take turns in the order of arrival, record by record. After a failure
  /// the port may hold a part of the record, which readers drop.
  [[nodiscard]] bool transmit_data(const IpcSignal& signal);

 private:
  std::unique_ptr<detail::PortSender> sender_;
};

extern template class QueuePortReader<24u, signal_t_dyn<24u>>;
extern template class QueuePortWriter<24u, signal_t_dyn<24u>>;

}  // namespace ecu::tamu::ipc
