#include <utility>

#include <ecu/quil/container_state.h>
#include <ecu/tamu/logging/logging.h>

namespace ecu::quil {

namespace {

constexpr auto logger = tamu::logging::module("SysParam");

}  // namespace

TimedContainerState::TimedContainerState(std::chrono::milliseconds timeout,
                                         std::function<Clock::time_point()> now)
    : m_timeout(timeout), m_now(std::move(now)) {}

void TimedContainerState::set(ContainerState state) {
  const tamu::MutexLock lock(m_mutex);
  if (state == ContainerState::UPDATING) {
    m_previous = m_current;
    m_deadline = m_now() + m_timeout;
  }
  m_current = state;
}

ContainerState TimedContainerState::get() {
  const tamu::MutexLock lock(m_mutex);
  if (m_current == ContainerState::UPDATING && m_now() >= m_deadline) {
    m_current = m_previous;
    logger.error("System parameter write timed out with no response from RT! Returning to state ",
                 static_cast<int>(m_current));
  }
  return m_current;
}

}  // namespace ecu::quil
