#include "ecusim/hypervisor.h"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <memory>
#include <system_error>
#include <utility>

#include <ecu/tamu/com/port_names.h>
#include <ecu/tamu/com/system_parameters.h>
#include <ecu/tamu/signal_mask.h>
#include <ecu/tamu/thread_safety.h>

#include "common/notes.h"
#include "ecusim/port_frame.h"

namespace ecu::sim {

namespace ipc = tamu::ipc;
namespace port_names = tamu::com::port_names;

namespace {

void merge(std::vector<Parameter>& kept, Parameter parameter) {
  bool is_known = false;
  for (Parameter& one : kept) {
    if (one.id == parameter.id) {
      one.payload = parameter.payload;
      is_known = true;
    }
  }
  if (!is_known) {
    kept.push_back(std::move(parameter));
  }
}

}  // namespace

// What the far side keeps. Its calls may come from any thread.
class Hypervisor::Storage final : public ipc::IDataConsumer<ipc::IpcSignal> {
 public:
  Storage(PortsSetup setup, DelayQueue<tamu::com::Payload>& frames)
      : frames_(frames), setup_(std::move(setup)) {
    send_parameters();
    if (!setup_.secure_values.empty()) {
      frames_.push(make_frame(setup_.secure_values), at_once);
    }
  }

  void send_parameters() {
    const tamu::MutexLock lock(mutex_);
    if (!setup_.parameters.empty()) {
      frames_.push(make_faulty_frame(setup_.parameters, setup_), at_once);
    }
  }

  void consume(const ipc::IpcSignal& record) override {
    const tamu::MutexLock lock(mutex_);
    std::optional<Parameter> parameter = parameter_in(record);
    if (!parameter) {
      tools::note("malformed parameter record received, id " + std::to_string(record.id));
    } else if (tamu::com::is_secure_storage_id(record.id)) {
      merge(written_secure_values_, std::move(*parameter));
    } else {
      merge(setup_.parameters, std::move(*parameter));
      is_written_ = true;
    }
  }

  void frame_finished() override {
    const tamu::MutexLock lock(mutex_);
    if (is_written_ && setup_.answer_writes) {
      frames_.push(make_faulty_frame(setup_.parameters, setup_), setup_.answer_after);
    }
    if (!written_secure_values_.empty() && setup_.answer_writes) {
      frames_.push(make_frame(written_secure_values_), setup_.answer_after);
    }
    is_written_ = false;
    written_secure_values_.clear();
  }

  void finished() override {}

 private:
  static constexpr std::chrono::milliseconds at_once{0};

  // With its own synchronisation.
  DelayQueue<tamu::com::Payload>& frames_;

  tamu::Mutex mutex_;

  // Guarded by mutex_; the last two since the last frame.
  PortsSetup setup_ TAMU_GUARDED_BY(mutex_);
  bool is_written_ TAMU_GUARDED_BY(mutex_) = false;
  std::vector<Parameter> written_secure_values_ TAMU_GUARDED_BY(mutex_);
};

Hypervisor::Hypervisor(PortsSetup setup, const std::string& folder, const FifoAccess& access)
    : receive_port_(folder + '/' + port_names::parameter_receive, access),
      send_port_(folder + '/' + port_names::parameter_send, access),
      reader_([&] {
        auto storage = std::make_unique<Storage>(std::move(setup), frames_);
        storage_ = storage.get();
        return storage;
      }()) {
  if (!reader_.open(send_port_.path())) {
    throw std::system_error(errno, std::generic_category(), send_port_.path() + " cannot be opened");
  }
  receiver_ = std::jthread([this] { reader_.reception_loop(); });
  sender_ = std::jthread([this](const std::stop_token& stop) { send(stop); });
}

Hypervisor::~Hypervisor() {
  reader_.request_stop();
}

void Hypervisor::send_parameters_again() {
  storage_->send_parameters();
}

void Hypervisor::send(const std::stop_token& stop) {
  pthread_setname_np(pthread_self(), "port sender");
  tamu::block_signals(tamu::signal_set(std::array{SIGPIPE}));
  while (const std::optional<tamu::com::Payload> frame = frames_.pop(stop)) {
    if (!receive_port_.write(*frame, stop)) {
      return;
    }
  }
}

}  // namespace ecu::sim
