#include <algorithm>
#include <exception>
#include <memory>

#include <ecu/quil/queuing_port_handler.h>
#include <ecu/tamu/logging/logging.h>

namespace ecu::quil {

namespace logging = tamu::logging;

namespace {

constexpr auto logger = logging::module("QueuingPortHandler");

}  // namespace

QueuingPortHandler::QueuingPortHandler(const std::string& read_path, const std::string& write_path,
                                       int reader_setting)
    : m_reader(std::make_unique<ConsumerWrapper>(this)), m_read_path(read_path), m_write_path(write_path) {
  m_reader.configure(reader_setting);
}

QueuingPortHandler::~QueuingPortHandler() {
  stop();
}

void QueuingPortHandler::request_stop() noexcept {
  m_writing_ended = true;
  m_reader.request_stop();
}

void QueuingPortHandler::stop() {
  m_stopped = true;
  if (m_reader_thread.joinable()) {
    m_reader.request_stop();
    m_reader_thread.join();
  }
}

void QueuingPortHandler::consume(const IpcSignal& signal) {
  for (Consumer* consumer : m_consumers) {
    consumer->consume(signal);
  }
}

void QueuingPortHandler::finished() {
  for (Consumer* consumer : m_consumers) {
    consumer->finished();
  }
}

void QueuingPortHandler::frame_finished() {
  for (Consumer* consumer : m_consumers) {
    consumer->frame_finished();
  }
}

void QueuingPortHandler::init() {
  if (m_reader_thread.joinable()) {
    std::terminate();
  }
  if (m_stopped) {
    return;
  }
  if (!m_reader.open(m_read_path)) {
    logger.error("Unable to open System Parameter queueing port for reading: ", m_read_path);
    return;
  }
  logger.info("Read everything form the queueing port...");
  m_reader.request_stop();
  m_reader.receive_data();
  logger.info("Finished initial reading from queueing port, keep running...");
  m_reader_thread = std::thread([this] { m_reader.reception_loop(); });
}

bool QueuingPortHandler::write(std::size_t count, const Sequence<IpcSignal>& signals) {
  logger.debug("Going to write ", count, " IPC signals to ", m_write_path);
  tamu::ipc::QueuePortWriter<24u, Record> writer;
  if (!writer.open(m_write_path)) {
    logger.error("Unable to open Queueing Port for writing: ", m_write_path);
    return false;
  }
  return signals([&](const IpcSignal& signal) {
    logger.debug("Write signal (id:0x", logging::hex(signal.id), ") with  payload size ", signal.data.size());
    if (m_writing_ended || !writer.transmit_data(signal)) {
      logger.error("Unable to write signal with id ", signal.id);
      return false;
    }
    return true;
  });
}

bool QueuingPortHandler::write(const std::vector<IpcSignal>& signals) {
  return write(signals.size(),
               [&signals](const auto& take) { return std::all_of(signals.begin(), signals.end(), take); });
}

void QueuingPortHandler::add_consumer(Consumer* consumer) {
  m_consumers.push_back(consumer);
}

}  // namespace ecu::quil
