#include <pthread.h>

#include <utility>

#include <ecu/tamu/ipc/queue_port.h>

#include "ports/port_receiver.h"

namespace ecu::tamu::ipc {

template <unsigned HeaderSize, class Record>
QueuePortReader<HeaderSize, Record>::QueuePortReader(std::unique_ptr<IDataConsumer<IpcSignal>> consumer)
    : receiver_(std::make_unique<detail::PortReceiver>(std::move(consumer))) {}

template <unsigned HeaderSize, class Record>
QueuePortReader<HeaderSize, Record>::~QueuePortReader() = default;

template <unsigned HeaderSize, class Record>
void QueuePortReader<HeaderSize, Record>::configure(int /*setting*/) noexcept {}

template <unsigned HeaderSize, class Record>
bool QueuePortReader<HeaderSize, Record>::open(const std::string& path) {
  return receiver_->open(path);
}

template <unsigned HeaderSize, class Record>
void QueuePortReader<HeaderSize, Record>::receive_data() {
  receiver_->receive();
}

template <unsigned HeaderSize, class Record>
void QueuePortReader<HeaderSize, Record>::request_stop() noexcept {
  receiver_->request_stop();
}

template <unsigned HeaderSize, class Record>
void QueuePortReader<HeaderSize, Record>::reception_loop() {
  ::pthread_setname_np(::pthread_self(), "qport-reader");
  receiver_->receive_and_reopen();
}

template class QueuePortReader<24u, signal_t_dyn<24u>>;

}  // namespace ecu::tamu::ipc
