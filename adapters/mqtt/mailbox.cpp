#include "mqtt/mailbox.h"

#include <algorithm>
#include <utility>

namespace ecu::tamu::com::mqtt {

namespace {

std::size_t size_of(const Letter& letter) {
  return letter.topic.size() + letter.message.payload.size();
}

}  // namespace

Mailbox::Slot* Mailbox::find(const std::string& filter) {
  const auto found = std::find_if(slots_.begin(), slots_.end(),
                                  [&filter](const Slot& slot) { return slot.filter == filter; });
  return found == slots_.end() ? nullptr : &*found;
}

bool Mailbox::open(const std::string& filter) {
  if (find(filter) != nullptr) {
    return false;
  }
  slots_.push_back({filter, {}});
  return true;
}

bool Mailbox::close(const std::string& filter) {
  return std::erase_if(slots_, [&filter](const Slot& slot) { return slot.filter == filter; }) > 0;
}

void Mailbox::put(const std::string& filter, Letter letter) {
  Slot* slot = find(filter);
  if (slot == nullptr) {
    return;
  }
  const std::size_t bytes = size_of(letter);
  while (!slot->waiting.empty() &&
         (slot->waiting.size() >= max_waiting_messages || slot->bytes + bytes > max_waiting_bytes)) {
    drop_oldest(*slot);
  }
  slot->bytes += bytes;
  slot->waiting.push_back(std::move(letter));
}

void Mailbox::drop_oldest(Slot& slot) {
  slot.bytes -= size_of(slot.waiting.front());
  slot.waiting.pop_front();
  ++slot.dropped;
}

std::optional<Letter> Mailbox::take() {
  Slot* oldest = nullptr;
  for (Slot& slot : slots_) {
    if (!slot.waiting.empty() &&
        (oldest == nullptr || slot.waiting.front().number < oldest->waiting.front().number)) {
      oldest = &slot;
    }
  }
  if (oldest == nullptr) {
    return std::nullopt;
  }
  Letter letter = std::move(oldest->waiting.front());
  oldest->bytes -= size_of(letter);
  oldest->waiting.pop_front();
  return letter;
}

std::optional<Loss> Mailbox::take_loss() {
  const auto lossy =
      std::find_if(slots_.begin(), slots_.end(), [](const Slot& slot) { return slot.dropped > 0; });
  return lossy == slots_.end() ? std::nullopt
                               : std::optional(Loss{lossy->filter, std::exchange(lossy->dropped, 0)});
}

bool Mailbox::holds_up_to(std::uint64_t number) const noexcept {
  return std::any_of(slots_.begin(), slots_.end(), [number](const Slot& slot) {
    return !slot.waiting.empty() && slot.waiting.front().number <= number;
  });
}

void Mailbox::clear() noexcept {
  for (Slot& slot : slots_) {
    slot.waiting.clear();
    slot.bytes = 0;
  }
}

}  // namespace ecu::tamu::com::mqtt
