#include <pthread.h>

#include <array>
#include <cstdint>
#include <exception>
#include <functional>
#include <utility>

#include <ecu/quil/locked.h>
#include <ecu/quil/vin_requester_thread.h>
#include <ecu/tamu/com/topics.h>
#include <ecu/tamu/logging/logging.h>
#include <ecu/tamu/rt/signal_adapter.h>

namespace ecu::quil {

namespace logging = tamu::logging;

namespace {

using tamu::com::Message;
using tamu::rt::SignalAdapter;

constexpr const char* kl15_signal = "kl15";

constexpr const char* request_topic = tamu::com::topics::vehicle_request;
constexpr const char* request_signal = "parametergroupnumberrqst";
constexpr std::array<std::uint8_t, 4> vin_pgn{0xec, 0xfe, 0x00, 0x00};  // 0xFEEC, little-endian
constexpr std::uint64_t token_seconds = 60;

class Kl15Observer final : public tamu::com::ISubscriptionObserver {
 public:
  using Handler = std::function<void(const std::string& topic, const Message& msg)>;

  explicit Kl15Observer(Handler handler) : m_handler(std::move(handler)) {}
  void message(const std::string& topic, const Message& msg) override { m_handler(topic, msg); }

 private:
  Handler m_handler;
};

// The ignition state that `msg` carries. Nothing, after an ERROR line, when it carries no valid one.
std::optional<bool> kl15_in(const std::string& topic, const Message& msg) {
  const auto group = SignalAdapter::instance().unpack(topic, msg);
  if (!group) {
    logging::error("ERROR message not okay on topic: ", topic);
    return std::nullopt;
  }
  const tamu::rt::Signal* signal = group.value()->signal(kl15_signal);
  if (signal == nullptr) {
    logging::error("ERROR no signal: ", kl15_signal, " on topic: ", topic);
    return std::nullopt;
  }
  if (signal->status() != tamu::rt::signal_valid || signal->data().empty()) {
    logging::error("ERROR signal not ok");
    return std::nullopt;
  }
  return signal->data().front() != 0;
}

std::string packing_failure() {
  return std::string("Error during ProtoBuf operation when packing SignalGroup::topic '") + request_topic +
         "'";
}

}  // namespace

VINRequesterThread::VINRequesterThread(std::shared_ptr<tamu::com::ITransportClient> client,
                                       std::shared_ptr<std::mutex> mutex,
                                       std::shared_ptr<std::condition_variable> wakeup,
                                       std::shared_ptr<std::atomic_bool> running,
                                       std::shared_ptr<tamu::diag::PgnRequestClient> pgn_client,
                                       unsigned int wait_seconds, std::function<Clock::time_point()> now)
    : m_client(std::move(client)),
      m_mutex(std::move(mutex)),
      m_wakeup(std::move(wakeup)),
      m_running(std::move(running)),
      m_pgn_client(std::move(pgn_client)),
      m_wait_seconds(wait_seconds),
      m_now(std::move(now)) {}

VINRequesterThread::~VINRequesterThread() {
  stop();
  if (m_kl15_observer) {
    m_client->unsubscribe(tamu::com::topics::ignition, m_kl15_observer);
  }
}

void VINRequesterThread::init() {
  if (m_kl15_observer) {
    std::terminate();
  }
  m_kl15_observer = std::make_shared<Kl15Observer>([this](const std::string& topic, const Message& msg) {
    if (const auto on = kl15_in(topic, msg)) {
      set_kl15(*on);
    }
  });
  m_client->subscribe(tamu::com::topics::ignition, 0, m_kl15_observer);
  auto request = build_rqst_msg_payload();
  if (!request) {
    logging::error("Error creating signalGroup for request_topic '", request_topic, "'");
    return;
  }
  m_request = std::move(request).value();
  *m_running = true;
  m_thread = std::thread([this] { vin_requester(); });
}

void VINRequesterThread::stop() {
  if (!m_thread.joinable()) {
    return;
  }
  {
    // While the mutex is held, the thread is either before its check of the flag or in its wait, never
    // between.
    const std::lock_guard lock(*m_mutex);
    *m_running = false;
    m_wakeup->notify_all();
  }
  m_thread.join();
  logging::notice("Stop vin thread");
}

void VINRequesterThread::set_kl15(bool on) {
  m_kl15 = on;
}

void VINRequesterThread::vin_requester() {
  ::pthread_setname_np(::pthread_self(), "vin-requester");
  logging::debug("Start thread wait ", m_wait_seconds, " seconds to Receive VIN");
  while (*m_running) {
    if (is_wait_for_vin_timeout() && m_kl15 && *m_running && !send_pgn_request_for_VIN()) {
      logging::error("Error request VIN on topic: ", request_topic);
    }
  }
}

bool VINRequesterThread::is_wait_for_vin_timeout() {
  auto lock = locked(m_mutex);
  if (!*m_running) {
    return false;
  }
  const auto deadline = m_now() + std::chrono::seconds(m_wait_seconds);
  m_wakeup->wait_until(lock, deadline);
  return m_now() >= deadline;
}

bool VINRequesterThread::send_pgn_request_for_VIN() {
  if (!create_pgn_request_token(request_topic)) {
    return false;
  }
  logging::debug("Creating VIN/QRX5 request message to ECU");
  m_client->publish(request_topic, m_request);
  return true;
}

bool VINRequesterThread::create_pgn_request_token(const std::string& topic) {
  const auto token = m_pgn_client->request_token(topic, token_seconds);
  if (!token) {
    logging::error("Unable to acquire PGN request token: ", m_pgn_client->error_str(token.error()));
    return false;
  }
  return true;
}

tamu::Result<Message, std::string> VINRequesterThread::build_rqst_msg_payload() {
  auto group = SignalAdapter::instance().create_sg(request_topic);
  if (!group) {
    logging::error("Unable to create SignalGroup for request_topic: ");
    return std::string("SignalGroup::topic '") + request_topic +
           "' does not related to a SignalGroup topic unknown to the platform";
  }
  tamu::rt::SignalGroup request = std::move(group).value();
  if (!request.set_signal_data(request_signal, vin_pgn)) {
    logging::error("Unable to set data for signal: ", request_signal);
    return packing_failure();
  }
  auto message = SignalAdapter::instance().pack(request);
  if (!message) {
    return packing_failure();
  }
  return std::move(message).value();
}

}  // namespace ecu::quil
