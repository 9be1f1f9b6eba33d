#include "system/heartbeat.h"

#include <utility>
#include <vector>

#include <ecu/tamu/thread_safety.h>

namespace ecu::tamu {

namespace {

struct Registry {
  Mutex mutex;  // held while a loop is woken, so that no loop is woken after its end

  // Guarded by mutex.
  std::vector<Heartbeat*> heartbeats TAMU_GUARDED_BY(mutex);
};

Registry& registry() {
  static Registry instance;
  return instance;
}

}  // namespace

Heartbeat::Heartbeat(std::string name, std::function<void()> wake_up)
    : name_(std::move(name)), wake_up_(std::move(wake_up)) {
  const MutexLock lock(registry().mutex);
  registry().heartbeats.push_back(this);
}

Heartbeat::~Heartbeat() {
  const MutexLock lock(registry().mutex);
  std::erase(registry().heartbeats, this);
}

std::string check_heartbeats() {
  std::string silent;
  const MutexLock lock(registry().mutex);
  for (Heartbeat* const heartbeat : registry().heartbeats) {
    if (!heartbeat->beaten_.exchange(false)) {
      silent += (silent.empty() ? "" : ", ") + heartbeat->name_;
    }
    heartbeat->wake_up_();
  }
  return silent;
}

}  // namespace ecu::tamu
