#include "mqtt/name_lookup.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <pthread.h>
#include <sys/socket.h>

#include <exception>
#include <thread>
#include <utility>

#include <ecu/tamu/thread_safety.h>

#include "mqtt/fault.h"
#include "posix/event.h"

namespace ecu::tamu::com::mqtt {

struct NameLookup::State {
  // With its own synchronisation.
  posix::Event done;

  Mutex mutex;

  // Guarded by mutex.
  LookupResult result TAMU_GUARDED_BY(mutex);
};

LookupResult look_up(const std::string& host) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (const int error = ::getaddrinfo(host.c_str(), nullptr, &hints, &found); error != 0) {
    return {{}, ::gai_strerror(error)};
  }
  const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(found, &::freeaddrinfo);
  LookupResult result;
  for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
    char text[NI_MAXHOST];
    if (::getnameinfo(entry->ai_addr, entry->ai_addrlen, text, sizeof(text), nullptr, 0, NI_NUMERICHOST) ==
        0) {
      result.addresses.emplace_back(text);
    }
  }
  return result;
}

std::vector<std::string> known_addresses(const std::string& host) {
  if (host == "localhost") {
    return {"::1", "127.0.0.1"};
  }
  in6_addr address{};
  const bool numeric =
      ::inet_pton(AF_INET, host.c_str(), &address) == 1 || ::inet_pton(AF_INET6, host.c_str(), &address) == 1;
  return numeric ? std::vector{host} : std::vector<std::string>();
}

NameLookup::NameLookup(std::string host, Resolver resolve) : state_(std::make_shared<State>()) {
  std::thread([state = state_, host = std::move(host), resolve = std::move(resolve)] {
    ::pthread_setname_np(::pthread_self(), "name-lookup");
    LookupResult result;
    try {
      result = resolve(host);
    } catch (const std::exception&) {
      result.error = out_of_memory;
    }
    {
      const MutexLock lock(state->mutex);
      state->result = std::move(result);
    }
    state->done.signal();
  }).detach();
}

NameLookup::~NameLookup() = default;

int NameLookup::fd() const noexcept {
  return state_->done.fd();
}

LookupResult NameLookup::take() {
  const MutexLock lock(state_->mutex);
  return std::move(state_->result);
}

}  // namespace ecu::tamu::com::mqtt
