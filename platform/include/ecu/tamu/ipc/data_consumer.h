#pragma once

namespace ecu::tamu::ipc {

/// Takes what a queueing port delivers. All calls come from the thread that receives, one after another. The
/// reader logs an exception at ERROR; it costs the call and nothing else.
template <class T>
class IDataConsumer {
 public:
  virtual ~IDataConsumer() = default;

  /// One record. `data` is the reader's own and holds only during the call.
  virtual void consume(const T& data) = 0;

  /// Reception from the port has ended: stopped, or the port has gone away. The records since the last end of
  /// a frame are all that comes of theirs. Reception may begin again, with a new frame.
  virtual void finished() = 0;

  /// All records since the last call, or since the last `finished`, make up a frame.
  virtual void frame_finished() = 0;
};

}  // namespace ecu::tamu::ipc
