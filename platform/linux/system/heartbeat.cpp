#include "system/heartbeat.h"

#include <utility>
#include <vector>

#include <ecu/tamu/thread_safety.h>

namespace ecu::tamu {

namespace {

struct Registry {
  Mutex mutex;  // held while a loop is prodded, so that no loop is prodded after its end

  // Guarded by mutex.
  std::vector<Heartbeat*> heartbeats TAMU_GUARDED_BY(mutex);
};

Registry& registry() {
  static Registry instance;
  return instance;
}

}  // namespace

Heartbeat::Heartbeat(std::string name, std::function<void()> prod)
    : name_(std::move(name)), prod_(std::move(prod)) {
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
    heartbeat->prod_();
  }
  return silent;
}

}  // namespace ecu::tamu
