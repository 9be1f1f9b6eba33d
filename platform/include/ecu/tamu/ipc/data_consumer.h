#pragma once

namespace ecu::tamu::ipc {

/// Takes what a queueing port delivers. All calls come from the thread that receives, one after another. An
/// exception is logged at ERROR by the reader and goes no further.
template <class T>
class IDataConsumer {
 public:
  virtual ~IDataConsumer() = default;

  /// One record. `data` is the reader's own and holds only during the call.
  virtual void consume(const T& data) = 0;

  /// Reception has ended: stopped, or the port is at its end.
  virtual void finished() = 0;

  /// All records since the last call, or since the port was opened, make up a frame.
  virtual void frame_finished() = 0;
};

}  // namespace ecu::tamu::ipc
