// Each topic has its own queue, so that a flood on one topic drops nothing of another. The numbers of the
// messages restore the order of arrival over all queues. An observer has few topics, so a linear search finds
// each of them. Queues hold pointers: a message for several observers is in memory once, and an empty queue
// keeps almost no memory.

#include "mqtt/mailbox.h"

#include <algorithm>
#include <utility>

namespace ecu::tamu::com::mqtt {

namespace {

std::size_t size_of(const QueuedMessage& message) noexcept {
  return message.topic.size() + message.message.payload.size();
}

}  // namespace

Mailbox::TopicQueue* Mailbox::find(const std::string& filter) noexcept {
  const auto found = std::find_if(queues_.begin(), queues_.end(),
                                  [&filter](const TopicQueue& queue) { return queue.filter == filter; });
  return found == queues_.end() ? nullptr : &*found;
}

bool Mailbox::add_topic(const std::string& filter) {
  if (find(filter) != nullptr) {
    return false;
  }
  queues_.push_back({filter, {}});
  return true;
}

bool Mailbox::remove_topic(const std::string& filter) {
  return std::erase_if(queues_, [&filter](const TopicQueue& queue) { return queue.filter == filter; }) > 0;
}

bool Mailbox::put(const std::string& filter, std::shared_ptr<const QueuedMessage> message) {
  TopicQueue* const queue = find(filter);
  if (queue == nullptr) {
    return true;
  }
  const std::size_t bytes = size_of(*message);
  if (bytes > max_waiting_bytes) {
    ++queue->dropped;
    ++queue->too_large;
    return false;
  }
  queue->waiting.push_back(std::move(message));
  queue->bytes += bytes;
  bool all_fit = true;
  while (queue->waiting.size() > backlog_ * max_waiting_messages ||
         queue->bytes > backlog_ * max_waiting_bytes) {
    take_oldest(*queue);
    ++queue->dropped;
    all_fit = false;
  }
  return all_fit;
}

void Mailbox::drop(const std::string& filter) noexcept {
  if (TopicQueue* const queue = find(filter)) {
    ++queue->dropped;
    ++queue->too_large;
  }
}

std::shared_ptr<const QueuedMessage> Mailbox::take_oldest(TopicQueue& queue) noexcept {
  std::shared_ptr<const QueuedMessage> message = std::move(queue.waiting.front());
  queue.waiting.pop_front();
  queue.bytes -= size_of(*message);
  return message;
}

std::shared_ptr<const QueuedMessage> Mailbox::take() noexcept {
  TopicQueue* oldest = nullptr;
  for (TopicQueue& queue : queues_) {
    if (!queue.waiting.empty() &&
        (oldest == nullptr || queue.waiting.front()->number < oldest->waiting.front()->number)) {
      oldest = &queue;
    }
  }
  return oldest == nullptr ? nullptr : take_oldest(*oldest);
}

std::optional<Loss> Mailbox::take_loss() {
  const auto lossy =
      std::find_if(queues_.begin(), queues_.end(), [](const TopicQueue& queue) { return queue.dropped > 0; });
  if (lossy == queues_.end()) {
    return std::nullopt;
  }
  Loss loss{lossy->filter, lossy->dropped, lossy->too_large};
  lossy->dropped = lossy->too_large = 0;
  return loss;
}

bool Mailbox::holds_up_to(std::uint64_t number) const noexcept {
  return std::any_of(queues_.begin(), queues_.end(), [number](const TopicQueue& queue) {
    return !queue.waiting.empty() && queue.waiting.front()->number <= number;
  });
}

void Mailbox::clear() noexcept {
  for (TopicQueue& queue : queues_) {
    queue.waiting.clear();
    queue.bytes = 0;
  }
}

}  // namespace ecu::tamu::com::mqtt
