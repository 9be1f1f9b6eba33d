#include "system/heartbeat.h"

#include <mutex>
#include <utility>
#include <vector>

namespace ecu::tamu {

namespace {

struct Registry {
  std::mutex mutex;  // held while a loop is prodded, so that no loop is prodded after its end
  std::vector<Heartbeat*> heartbeats;
};

Registry& registry() {
  static Registry instance;
  return instance;
}

}  // namespace

Heartbeat::Heartbeat(std::string name, std::function<void()> prod)
    : name_(std::move(name)), prod_(std::move(prod)) {
  const std::lock_guard lock(registry().mutex);
  registry().heartbeats.push_back(this);
}

Heartbeat::~Heartbeat() {
  const std::lock_guard lock(registry().mutex);
  std::erase(registry().heartbeats, this);
}

std::string check_heartbeats() {
  std::string silent;
  const std::lock_guard lock(registry().mutex);
  for (Heartbeat* const heartbeat : registry().heartbeats) {
    if (!heartbeat->beaten_.exchange(false)) {
      silent += (silent.empty() ? "" : ", ") + heartbeat->name_;
    }
    heartbeat->prod_();
  }
  return silent;
}

}  // namespace ecu::tamu
