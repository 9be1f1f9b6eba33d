#include "uplink/wake_up.h"

namespace ecu::uplink {

void WakeUp::signal() {
  {
    const tamu::MutexLock lock(mutex_);
    is_signalled_ = true;
  }
  signalled_.notify_one();
}

void WakeUp::wait_for(std::chrono::nanoseconds pause) {
  tamu::MutexLock lock(mutex_);
  (void)signalled_.wait_for(lock, pause, [this]() TAMU_REQUIRES(mutex_) { return is_signalled_; });
  is_signalled_ = false;
}

}  // namespace ecu::uplink
