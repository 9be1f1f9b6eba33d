#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <thread>
#include <vector>

#include <ecu/quil/sequence.h>
#include <ecu/tamu/ipc/data_consumer.h>
#include <ecu/tamu/ipc/ipc_signal.h>
#include <ecu/tamu/ipc/queue_port.h>

namespace ecu::quil {

/// Both queueing ports to the other side of the hypervisor. Passes every record of the receive port to the
/// consumers, on a thread of its own, and writes records to the send port on the caller's thread.
class QueuingPortHandler : public tamu::ipc::IDataConsumer<tamu::ipc::IpcSignal> {
 public:
  using IpcSignal = tamu::ipc::IpcSignal;
  using Consumer = tamu::ipc::IDataConsumer<IpcSignal>;

  /// `reader_setting` is passed to the platform's reader unchanged.
  QueuingPortHandler(const std::string& read_path, const std::string& write_path, int reader_setting);
  ~QueuingPortHandler() override;

  QueuingPortHandler(const QueuingPortHandler&) = delete;
  QueuingPortHandler& operator=(const QueuingPortHandler&) = delete;

  /// Each is passed on to every consumer, in the order of registration.
  void consume(const IpcSignal& signal) override;
  void finished() override;
  void frame_finished() override;

  /// Opens the receive port, delivers what waits on it, and starts the thread that receives from then on.
  /// When the port cannot be opened (one ERROR line), nothing is ever read. Called once; a second call ends
  /// the process.
  virtual void init();

  /// Writes the `count` records to the send port in order. False, after an ERROR line, when the port cannot
  /// be opened or a record cannot be written; the records after it are dropped. May be called from any
  /// thread.
  [[nodiscard]] virtual bool write(std::size_t count, const Sequence<IpcSignal>& signals);
  [[nodiscard]] bool write(const std::vector<IpcSignal>& signals);

  /// Requests the end of reception and lets no further record be written: a `write` in progress fails after
  /// its current record. Does not wait. May be called from the signal handler, but not while `init` runs.
  void request_stop() noexcept;

  /// Registers a consumer, which is not owned and must call `stop` before its destruction. Only before
  /// `init`.
  void add_consumer(Consumer* consumer);

  /// Ends reception for good: after it returns, no consumer is called any more, not even by a later `init`.
  /// Must not be called by a consumer from within a call, nor while `init` runs. A second call does nothing.
  void stop();

 private:
  using Record = tamu::ipc::signal_t_dyn<24u>;

  // Constant while the reader's thread runs.
  tamu::ipc::QueuePortReader<24u, Record> m_reader;
  std::string m_read_path;
  std::string m_write_path;
  std::vector<Consumer*> m_consumers;

  // Used by the owner's thread only.
  std::thread m_reader_thread;
  bool m_stopped = false;

  // With its own synchronisation.
  std::atomic_bool m_writing_ended = false;
};

/// Forwards to the handler, because the platform's reader owns its consumer.
class ConsumerWrapper final : public tamu::ipc::IDataConsumer<tamu::ipc::IpcSignal> {
 public:
  explicit ConsumerWrapper(QueuingPortHandler* handler) : m_handler(handler) {}

  void consume(const tamu::ipc::IpcSignal& signal) override { m_handler->consume(signal); }
  void finished() override { m_handler->finished(); }
  void frame_finished() override { m_handler->frame_finished(); }

 private:
  QueuingPortHandler* m_handler;
};

}  // namespace ecu::quil
