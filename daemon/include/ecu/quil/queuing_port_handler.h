#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <ecu/tamu/ipc/data_consumer.h>
#include <ecu/tamu/ipc/ipc_signal.h>
#include <ecu/tamu/ipc/queue_port.h>

namespace ecu::quil {

/// Both queueing ports to the other side of the hypervisor: hands every record of the receive port to the
/// consumers, on a thread of its own, and writes records to the send port on the caller's.
class QueuingPortHandler : public tamu::ipc::IDataConsumer<tamu::ipc::IpcSignal> {
 public:
  using IpcSignal = tamu::ipc::IpcSignal;
  using Consumer = tamu::ipc::IDataConsumer<IpcSignal>;

  /// `reader_setting` goes to the platform's reader as it is.
  QueuingPortHandler(std::string read_path, std::string write_path, int reader_setting);
  ~QueuingPortHandler() override;

  QueuingPortHandler(const QueuingPortHandler&) = delete;
  QueuingPortHandler& operator=(const QueuingPortHandler&) = delete;

  /// Each is passed on to every consumer, in the order of registration.
  void consume(const IpcSignal& signal) override;
  void finished() override;
  void frame_finished() override;

  /// Opens the receive port, hands out what waits on it, and starts the thread that receives from then on.
  /// Without a receive port (one ERROR line) nothing is ever read. Called once; a second call ends the
  /// process.
  virtual void init();

  /// Writes the records in order to the send port; false, after an ERROR line, when the port cannot be opened
  /// or a record not written, the rest being dropped. May be called from any thread.
  [[nodiscard]] virtual bool write(const std::vector<IpcSignal>& signals);

  /// Begins to end reception, and lets no further record be written: a `write` that is under way fails behind
  /// the record that it is at. Does not wait. Not while `init` runs; may be called from the signal handler.
  void request_stop() noexcept;

  /// Registers a consumer, which is not owned. Only before `init`. A consumer calls `stop` before it goes.
  void add_consumer(Consumer* consumer);

  /// Ends reception for good: on return no consumer is being called, and none will be, not even by an `init`
  /// that comes later. Not to be called by a consumer from inside a call, nor while `init` runs. Calling it
  /// again does nothing.
  void stop();

 private:
  using Record = tamu::ipc::signal_t_dyn<24u>;

  tamu::ipc::QueuePortReader<24u, Record> m_reader;
  std::string m_read_path;
  std::string m_write_path;
  std::vector<Consumer*> m_consumers;
  std::thread m_reader_thread;
  bool m_stopped = false;
  std::atomic_bool m_writing_ended = false;
};

/// Stands for the handler where the platform's reader wants to own its consumer.
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
