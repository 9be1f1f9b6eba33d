#pragma once

namespace ecu::tamu::ipc {

/// Receives the records of a queueing port. All calls come from the receiving thread, one after another. The
/// reader logs an exception at ERROR; it affects only that call.
template <class T>
class IDataConsumer {
 public:
  virtual ~IDataConsumer() = default;

  /// One record. `data` belongs to the reader and is valid only during the call.
  virtual void consume(const T& data) = 0;

  /// Reception from the port has ended: stopped, or the port has gone away. The frame that has begun since
  /// the last end of a frame does not continue. Reception may begin again, with a new frame.
  virtual void finished() = 0;

  /// All records since the last call, or since the last `finished`, make up a frame.
  virtual void frame_finished() = 0;
};

}  // namespace ecu::tamu::ipc
