// How it works: the library's object is used without its own thread. The owner polls the descriptor; `handle`
// makes the library read and write, and the library's callbacks (MqttLibrary) record what arrived. Each
// call's result goes through `outcome`, which has a failure explained (fault_explanation.h).
//
// What it relies on: the library is called by one thread at a time, queues nothing without a connection, and
// closes its descriptor when it abandons a connection (which it may report as success). The broker answers
// every SUBSCRIBE, UNSUBSCRIBE and PUBLISH of quality of service 1; PendingAnswers records since when an
// answer has been pending.

#include "mqtt/mqtt_session.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>

#include <ecu/tamu/com/topics.h>

#include "mqtt/fault_explanation.h"
#include "mqtt/mqtt_library.h"
#include "mqtt/mqtt_log.h"
#include "posix/regular_file.h"

namespace ecu::tamu::com::mqtt {

namespace {

constexpr int qos_acknowledged = 1;

// It has no subscriber, and no message is published on it.
constexpr const char* fence_filter = "$echo";

// The library counts whole seconds of its own clock.
constexpr std::chrono::seconds clock_resolution{1};

constexpr unsigned max_packets_per_read = 8;
constexpr std::size_t max_bytes_per_read = std::size_t{256} * 1024;

// The library sends nothing for an invalid topic or filter, and the session continues.
bool is_malformed(int result) {
  return result == MOSQ_ERR_INVAL || result == MOSQ_ERR_MALFORMED_UTF8;
}

// The library would wait for the other end of a FIFO, and its own reasons do not name the file.
Failure check_tls_files(const MqttSettings& settings) {
  for (const auto& [key, path] : {std::pair("cafile", settings.cafile),
                                  {"certfile", settings.certfile},
                                  {"keyfile", settings.keyfile}}) {
    const std::string reason = path.empty() ? "" : posix::why_unreadable(path);
    if (!reason.empty()) {
      return Fault{ConnectionFailure::tls, std::string(key) + " '" + path + "': " + reason};
    }
  }
  return std::nullopt;
}

}  // namespace

MqttSession::MqttSession(const MqttSettings& settings, ConnectionListener& listener)
    : settings_(settings), library_(std::make_unique<MqttLibrary>(settings.client_id, listener)) {}

MqttSession::~MqttSession() = default;

Failure MqttSession::open(const std::string& address) {
  if (settings_.is_unix_socket() && address.size() >= sizeof(sockaddr_un::sun_path)) {
    return Fault{ConnectionFailure::internal, "the path of the socket has more than 107 bytes"};
  }
  if (auto failure = configure()) {
    return failure;
  }
  last_read_ = last_write_ = std::chrono::steady_clock::now();
  const auto keepalive = static_cast<int>(settings_.keepalive.count());
  errno = 0;
  const int result = library_->connect_async(address.c_str(), settings_.port, keepalive);
  // With TLS the library writes at once, which clears the error from the socket without reporting it.
  if (errno == ECONNREFUSED) {
    return fault_of_errno(errno);
  }
  return outcome(result);
}

Failure MqttSession::configure() {
  if (!settings_.username.empty()) {
    const int result = library_->username_pw_set(settings_.username.c_str(), settings_.password.c_str());
    if (auto failure = configured("user name", result)) {
      return failure;
    }
  }
  if (settings_.presence) {
    const std::string& lost = settings_.presence->lost;
    const int result = library_->will_set(settings_.presence->topic.c_str(), static_cast<int>(lost.size()),
                                          lost.data(), qos_acknowledged, true);
    if (auto failure = configured("presence topic", result)) {
      return failure;
    }
  }
  return settings_.uses_tls() ? configure_tls() : Failure();
}

Failure MqttSession::configure_tls() {
  const auto path_or_null = [](const std::string& path) { return path.empty() ? nullptr : path.c_str(); };
  if (auto failure = check_tls_files(settings_)) {
    return failure;
  }
  tls_.emplace(settings_.host);
  if (tls_->handle() == nullptr) {
    return Fault{ConnectionFailure::internal, "cannot set up TLS"};
  }
  constexpr int verify_peer = 1;
  for (const int result :
       {library_->opts_set(MOSQ_OPT_SSL_CTX, tls_->handle()),
        library_->tls_opts_set(verify_peer, nullptr, nullptr), library_->tls_insecure_set(false),
        library_->tls_set(settings_.cafile.c_str(), nullptr, path_or_null(settings_.certfile),
                          path_or_null(settings_.keyfile))}) {
    if (result != MOSQ_ERR_SUCCESS) {
      return explained(fault_of(result));
    }
  }
  return std::nullopt;
}

Failure MqttSession::configured(const char* what, int result) const {
  if (result == MOSQ_ERR_SUCCESS) {
    return std::nullopt;
  }
  Fault fault = explained(fault_of(result));
  if (fault.reason != out_of_memory) {
    fault.reason.insert(0, std::string(what) + ": ");
  }
  return fault;
}

bool MqttSession::is_connected() const noexcept {
  return library_->accepted();
}

int MqttSession::fd() const {
  return library_->socket();
}

short MqttSession::wanted_events() const {
  const bool write = !reachable_ || library_->want_write();
  return static_cast<short>(POLLIN | (write ? POLLOUT : 0));
}

Failure MqttSession::handle(short events) {
  // TLS may hold packets that poll does not report.
  const bool has_more = std::exchange(more_to_read_, false);
  if (events == 0 && !has_more) {
    return std::nullopt;
  }
  if (!is_connected()) {
    if (auto failure = finish_connecting()) {
      return failure;
    }
  }
  // Reading comes first: after a failed write, the peer's last data before it closed the connection is lost.
  // It also shows what an error or a hang-up means.
  if (has_more || (events & ~POLLOUT) != 0) {
    if (auto failure = read()) {
      return failure;
    }
  }
  if ((events & POLLOUT) != 0) {
    const bool has_packets = library_->want_write();
    const int result = library_->loop_write();
    return has_packets ? written(result) : outcome(result);
  }
  return std::nullopt;
}

// The library takes a refused connection, or one that the peer closes in the middle of a TLS handshake, for
// one in progress, and would never report its failure.
Failure MqttSession::finish_connecting() {
  int waiting = 0;
  if (::ioctl(fd(), FIONREAD, &waiting) == 0 && waiting > 0) {
    reachable_ = true;
    return std::nullopt;
  }
  int error = 0;
  socklen_t size = sizeof(error);
  if (::getsockopt(fd(), SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error != 0) {
    return explained(fault_of_errno(error));
  }
  reachable_ = true;
  char byte = 0;
  if (::recv(fd(), &byte, sizeof(byte), MSG_PEEK | MSG_DONTWAIT) == 0) {
    return explained(fault_of(MOSQ_ERR_CONN_LOST));
  }
  return std::nullopt;
}

Failure MqttSession::read() {
  last_read_ = std::chrono::steady_clock::now();
  const bool was_connected = is_connected();
  // After a packet without a callback, TLS may hold further packets that poll does not report.
  const int tries = settings_.uses_tls() ? 2 : 1;
  const unsigned first_packet = library_->received();
  const unsigned first_acknowledged = library_->acknowledged();
  const std::size_t first_byte = library_->bytes();
  for (int fruitless = 0; fruitless < tries;) {
    const unsigned before = library_->received();
    if (auto failure = outcome(library_->loop_read())) {
      return failure;
    }
    fruitless = library_->received() == before ? fruitless + 1 : 0;
    if (library_->received() - first_packet >= max_packets_per_read ||
        library_->bytes() - first_byte >= max_bytes_per_read) {
      more_to_read_ = true;
      break;
    }
  }
  if (library_->acknowledged() != first_acknowledged) {
    last_write_ = last_read_;
  }
  if (!was_connected && is_connected()) {
    set_tcp_option(TCP_NODELAY, 1);
  }
  return std::nullopt;
}

std::chrono::steady_clock::time_point MqttSession::keep_alive_due() const {
  const auto due = std::min(last_read_, last_write_) + settings_.keepalive + clock_resolution;
  const auto oldest = library_->pending().oldest();
  return oldest ? std::min(due, *oldest + settings_.answer_timeout) : due;
}

Failure MqttSession::keep_alive() {
  const auto now = std::chrono::steady_clock::now();
  const auto oldest = library_->pending().oldest();
  if (oldest && now - *oldest >= settings_.answer_timeout) {
    return Fault{ConnectionFailure::no_answer, "no acknowledgement"};
  }
  last_read_ = last_write_ = now;
  return outcome(library_->loop_misc());
}

bool MqttSession::accepts_publications() const {
  return is_connected() && is_open() && !library_->want_write();
}

std::size_t MqttSession::room_for_acknowledged() const {
  return max_unacknowledged - std::min(library_->pending().publications(), max_unacknowledged);
}

bool MqttSession::idle() const {
  return !library_->want_write() && library_->pending().publications() == 0;
}

Failure MqttSession::publish(const std::string& topic, const Message& message,
                             std::chrono::steady_clock::time_point now) {
  int mid = 0;
  const int qos = message.acknowledged ? qos_acknowledged : 0;
  const int result = library_->publish(&mid, topic.c_str(), static_cast<int>(message.payload.size()),
                                       message.payload.data(), qos, message.retained);
  if (is_malformed(result) || result == MOSQ_ERR_PAYLOAD_SIZE || result == MOSQ_ERR_OVERSIZE_PACKET) {
    mqtt_log.warning("cannot publish on topic ", topic, ": ", mosqpp::strerror(result));
    return std::nullopt;
  }
  if (result == MOSQ_ERR_SUCCESS && message.acknowledged) {
    library_->pending().add({.mid = mid, .kind = PendingAnswers::Kind::publication});
  }
  return written(result, now);
}

Failure MqttSession::subscribe(const std::string& filter, int max_qos) {
  int mid = 0;
  const int result = library_->subscribe(&mid, filter.c_str(), max_qos);
  if (is_malformed(result)) {
    mqtt_log.warning("cannot subscribe to ", filter, ": ", mosqpp::strerror(result));
    return std::nullopt;
  }
  library_->pending().add({.mid = mid, .kind = PendingAnswers::Kind::subscription, .filter = filter});
  return written(result);
}

Failure MqttSession::unsubscribe(const std::string& filter) {
  int mid = 0;
  const int result = library_->unsubscribe(&mid, filter.c_str());
  if (is_malformed(result)) {
    return std::nullopt;
  }
  library_->pending().add({.mid = mid, .kind = PendingAnswers::Kind::unsubscription});
  return written(result);
}

// An UNSUBSCRIBE for a filter that was never subscribed to changes nothing, and a broker must answer it
// (MQTT 3.1.1, 3.10.4).
Failure MqttSession::request_fence(Fence fence) {
  int mid = 0;
  const int result = library_->unsubscribe(&mid, fence_filter);
  library_->pending().add({.mid = mid, .kind = PendingAnswers::Kind::fence, .fence = fence});
  return written(result);
}

Failure MqttSession::disconnect() {
  return outcome(library_->disconnect());
}

void MqttSession::cork() const {
  set_tcp_option(TCP_CORK, 1);
}

void MqttSession::uncork() const {
  set_tcp_option(TCP_CORK, 0);
}

// The outcome of a call that writes packets.
Failure MqttSession::written(int result, std::chrono::steady_clock::time_point now) {
  if (result == MOSQ_ERR_SUCCESS) {
    last_write_ = now;
    if (!library_->want_write()) {
      library_->pending().mark_sent(now);
    }
  }
  return outcome(result);
}

Failure MqttSession::outcome(int result) {
  if (const char* const reason = library_->callback_failure(); reason != nullptr) {
    return Fault{ConnectionFailure::internal, reason};
  }
  // The library closes a connection without answers and reports that as success.
  if (result == MOSQ_ERR_SUCCESS && !is_open()) {
    result = MOSQ_ERR_CONN_LOST;
  }
  // A nearby, fast peer may fail the handshake during the first call.
  reachable_ = reachable_ || (result == MOSQ_ERR_TLS && tls_ && tls_->begun());
  if (result == MOSQ_ERR_SUCCESS) {
    return std::nullopt;
  }
  return explained(fault_of(result));
}

Fault MqttSession::explained(Fault general) const {
  return explain(std::move(general), {.settings = settings_,
                                      .tls = tls_ ? &*tls_ : nullptr,
                                      .reachable = reachable_,
                                      .accepted = library_->accepted(),
                                      .refusal = library_->refusal(),
                                      .last_error = library_->last_error()});
}

void MqttSession::set_tcp_option(int option, int value) const {
  if (!settings_.is_unix_socket()) {
    ::setsockopt(fd(), IPPROTO_TCP, option, &value, sizeof(value));
  }
}

}  // namespace ecu::tamu::com::mqtt
