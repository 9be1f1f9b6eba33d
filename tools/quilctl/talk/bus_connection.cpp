#include "quilctl/talk/bus_connection.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <deque>
#include <fstream>
#include <mutex>
#include <random>
#include <string_view>
#include <system_error>
#include <utility>

#include <ecu/tamu/config/configuration.h>

#include "quilctl/base/files.h"
#include "quilctl/base/text.h"
#include "quilctl/talk/config_file.h"

namespace ecu::ctl {

namespace com = tamu::com;
using tamu::config::Configuration;

namespace {

// What may wait to be taken.
constexpr std::size_t max_waiting_events = 10'000;
constexpr std::size_t max_waiting_bytes = std::size_t{16} * 1024 * 1024;

constexpr std::size_t max_password_size = 65'535;  // its length has two bytes in the protocol

// What ends the program. A terminal that is closed sends the last one.
constexpr std::array termination = {SIGINT, SIGTERM, SIGHUP};

volatile std::sig_atomic_t pending_signal = 0;

void on_signal(int signal_number) {
  pending_signal = signal_number;
}

sigset_t termination_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal_number : termination) {
    sigaddset(&signals, signal_number);
  }
  return signals;
}

// As it is for a program that is to outlive its terminal.
bool is_ignored(int signal_number) {
  struct sigaction action {};
  sigaction(signal_number, nullptr, &action);
  return action.sa_handler == SIG_IGN;
}

// The handler runs only inside of the wait, which lets the signals in. A second signal ends the process.
void take_termination_signals() {
  const sigset_t signals = termination_signals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  struct sigaction action {};
  action.sa_handler = on_signal;
  action.sa_mask = signals;
  action.sa_flags = SA_RESETHAND;
  for (const int signal_number : termination) {
    if (signal_number != SIGHUP || !is_ignored(SIGHUP)) {
      sigaction(signal_number, &action, nullptr);
    }
  }
}

void give_termination_signals_back() {
  const sigset_t signals = termination_signals();
  pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

std::string first_line_of(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  if (!read_line(file, line, max_password_size) && !file.eof()) {
    throw Failure(ExitCode::usage, path + ": " + std::generic_category().message(errno));
  }
  if (line.size() > max_password_size) {
    throw Failure(ExitCode::usage,
                  path + ": a password has at most " + std::to_string(max_password_size) + " bytes");
  }
  return line;
}

std::unique_ptr<Configuration> read_faultless(const std::string& path) {
  auto config = read_configuration(path, ExitCode::usage);
  for (const tamu::config::Fault& fault : config->faults()) {
    if (!fault.is_warning) {
      const std::string line = fault.line > 0 ? ":" + std::to_string(fault.line) : "";
      throw Failure(ExitCode::usage, path + line + ": " + fault.text);
    }
  }
  return config;
}

void require_readable(const std::string& path) {
  if (!path.empty() && !std::ifstream(path)) {
    throw Failure(ExitCode::usage, path + ": " + std::generic_category().message(errno));
  }
}

// The client would leave out what is of no use, and with it the encryption that the user counts on.
void require_whole_tls(const Configuration& config) {
  const auto given = [&config](const char* key) { return !config.effective(key).empty(); };
  if (given("certfile") != given("keyfile")) {
    throw Failure(ExitCode::usage, "a certificate and its key are of use together only");
  }
  if (given("certfile") && !given("cafile")) {
    throw Failure(ExitCode::usage, "a certificate is of use with TLS only, which an authority turns on");
  }
}

void set_if_given(Configuration& config, const std::string& key, const std::string& value) {
  if (!value.empty()) {
    config.set_value(key, value);
  }
}

// The broker ends a connection when another one takes its name; a process identifier would do on one machine
// only.
std::string new_client_name() {
  return "quilctl-" + to_hex_number(std::random_device()());
}

std::unique_ptr<Configuration> configuration_of(const BrokerOptions& options) {
  auto config =
      options.config_file.empty() ? std::make_unique<Configuration>() : read_faultless(options.config_file);
  config->set_value("client_name", new_client_name());
  config->set_value("presence", "no");
  set_if_given(*config, "host", options.host);
  set_if_given(*config, "port", options.port);
  set_if_given(*config, "username", options.user);
  for (const std::string& path : {options.ca_file, options.certificate_file, options.key_file}) {
    require_readable(path);
  }
  set_if_given(*config, "cafile", options.ca_file);
  set_if_given(*config, "certfile", options.certificate_file);
  set_if_given(*config, "keyfile", options.key_file);
  require_whole_tls(*config);
  if (!options.password_file.empty()) {
    if (config->effective("username").empty()) {
      throw Failure(ExitCode::usage, "a password is of use together with a user only");
    }
    config->set_value("password", first_line_of(options.password_file));
  }
  return config;
}

// Why the broker does not accept user and password; empty for another reason to be without a connection.
std::string_view refusal_of_login(com::ConnectionFailure failure) {
  switch (failure) {
    case com::ConnectionFailure::bad_credentials:
      return "bad user name or password";
    case com::ConnectionFailure::not_authorised:
      return "not authorised";
    default:
      return {};
  }
}

std::string broker_of(const Configuration& config) {
  const std::string host = config.effective("host");
  return host.front() == '/' ? host : host + ":" + config.effective("port");
}

}  // namespace

/// Holds the events until they are taken. Written by the threads of the client.
class Bus::Inbox final : public com::ISubscriptionObserver, public com::IConnectionObserver {
 public:
  Inbox() : wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (wake_ < 0) {
      throw std::system_error(errno, std::generic_category(), "eventfd");
    }
  }
  ~Inbox() override { ::close(wake_); }
  Inbox(const Inbox&) = delete;
  Inbox& operator=(const Inbox&) = delete;

  void message(const std::string& topic, const com::Message& msg) override {
    put({Event::Kind::message, topic, msg, {}});
  }
  void connection_up() override { put({Event::Kind::up, {}, {}, {}}); }
  void connection_down(com::ConnectionFailure failure, const std::string& reason) override {
    put({Event::Kind::down, reason, {}, {}, failure});
  }
  void subscription_refused(const std::string& filter) override {
    put({Event::Kind::refused, filter, {}, {}});
  }
  void subscriptions_settled() override { put({Event::Kind::settled, {}, {}, {}}); }
  void messages_dropped(const std::string& /*filter*/, std::uint64_t count) override {
    const std::lock_guard lock(mutex_);
    lost_ += count;
  }

  std::optional<Event> take() {
    const std::lock_guard lock(mutex_);
    if (waiting_.empty()) {
      std::uint64_t count = 0;
      (void)!::read(wake_, &count, sizeof(count));
      return std::nullopt;
    }
    Event event = std::move(waiting_.front());
    waiting_.pop_front();
    bytes_ -= event.message.payload.size();
    return event;
  }

  std::uint64_t take_lost() {
    const std::lock_guard lock(mutex_);
    return std::exchange(lost_, 0);
  }

  /// Readable when there may be something to take.
  [[nodiscard]] int fd() const noexcept { return wake_; }

 private:
  void put(Event event) {
    event.at = std::chrono::system_clock::now();
    const std::lock_guard lock(mutex_);
    if (event.kind == Event::Kind::message) {
      bytes_ += event.message.payload.size();
    }
    waiting_.push_back(std::move(event));
    drop_oldest_messages();
    const std::uint64_t one = 1;
    (void)!::write(wake_, &one, sizeof(one));
  }

  void drop_oldest_messages() {
    while (waiting_.size() > max_waiting_events || bytes_ > max_waiting_bytes) {
      const auto oldest = std::find_if(waiting_.begin(), waiting_.end(),
                                       [](const Event& event) { return event.kind == Event::Kind::message; });
      if (oldest == waiting_.end()) {
        return;
      }
      bytes_ -= oldest->message.payload.size();
      waiting_.erase(oldest);
      ++lost_;
    }
  }

  const int wake_;
  std::mutex mutex_;  // guards all below
  std::deque<Event> waiting_;
  std::size_t bytes_ = 0;  // of the payloads that wait
  std::uint64_t lost_ = 0;
};

Bus::Bus(const BrokerOptions& options) : inbox_(std::make_shared<Inbox>()) {
  const std::unique_ptr<Configuration> config = configuration_of(options);
  broker_ = broker_of(*config);
  com::library_init();
  client_ = com::create_client(config, com::TransportType::mqtt, inbox_);
  take_termination_signals();
}

Bus::~Bus() {
  client_.reset();
  com::library_cleanup();
  give_termination_signals_back();
}

void Bus::subscribe(const std::string& filter, int max_qos) {
  client_->subscribe(filter, max_qos, inbox_);
}

void Bus::connect() {
  client_->connect();
  client_->start();
}

std::optional<Event> Bus::next(Clock::time_point deadline, int input) {
  sigset_t mask;
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  for (const int signal_number : termination) {
    sigdelset(&mask, signal_number);
  }
  const timespec at_once{};
  ::ppoll(nullptr, 0, &at_once, &mask);  // a signal comes in even when there is always something to take
  for (;;) {
    if (pending_signal != 0) {
      throw Interrupted{pending_signal};
    }
    if (auto event = inbox_->take()) {
      return event;
    }
    const auto left = std::chrono::ceil<std::chrono::nanoseconds>(deadline - Clock::now());
    if (left <= std::chrono::nanoseconds::zero()) {
      return std::nullopt;
    }
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    const timespec timeout{static_cast<time_t>(seconds.count()), static_cast<long>((left - seconds).count())};
    std::array<pollfd, 2> inputs{{{inbox_->fd(), POLLIN, 0}, {input, POLLIN, 0}}};
    ::ppoll(inputs.data(), inputs.size(), deadline == Clock::time_point::max() ? nullptr : &timeout, &mask);
    if (inputs[1].revents != 0) {
      return std::nullopt;
    }
  }
}

std::uint64_t Bus::take_lost() {
  return inbox_->take_lost();
}

BrokerFailure Bus::not_reachable(const std::string& reason, com::ConnectionFailure failure) const {
  if (const std::string_view refusal = refusal_of_login(failure); !refusal.empty()) {
    return {broker_, "broker " + broker_ + " does not let us in: " + std::string(refusal) +
                         "; check --user and --password-file"};
  }
  return {broker_, "broker " + broker_ + " not reachable: " + reason};
}

bool Bus::publish(const std::string& topic, com::Message message) {
  return client_->publish(topic, std::move(message)) != com::PublishResult::overload;
}

}  // namespace ecu::ctl
