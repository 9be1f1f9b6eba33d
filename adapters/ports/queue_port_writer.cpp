#include <ecu/tamu/ipc/queue_port.h>

#include "ports/port_sender.h"

namespace ecu::tamu::ipc {

template <unsigned HeaderSize, class Record>
QueuePortWriter<HeaderSize, Record>::QueuePortWriter() : sender_(std::make_unique<detail::PortSender>()) {}

template <unsigned HeaderSize, class Record>
QueuePortWriter<HeaderSize, Record>::~QueuePortWriter() = default;

template <unsigned HeaderSize, class Record>
bool QueuePortWriter<HeaderSize, Record>::open(const std::string& path) {
  return sender_->open(path);
}

template <unsigned HeaderSize, class Record>
bool QueuePortWriter<HeaderSize, Record>::transmit_data(const IpcSignal& signal) {
  return sender_->transmit(signal);
}

template class QueuePortWriter<24u, signal_t_dyn<24u>>;

}  // namespace ecu::tamu::ipc
