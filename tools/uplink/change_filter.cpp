#include "uplink/change_filter.h"

#include <algorithm>

namespace ecu::uplink {

bool ChangeFilter::take(const std::string& key, const std::string& text, BootTime published) {
  if (const auto found = entries_.find(key); found != entries_.end()) {
    if (found->second.value.text != text) {
      found->second.value = {text, published};
      found->second.is_changed = found->second.sent != found->second.value;
    }
    return true;
  }
  if (!reserved_.contains(key)) {
    if (room_for_others_ == 0) {
      return false;
    }
    --room_for_others_;
  }
  entries_[key].value = {text, published};
  return true;
}

void ChangeFilter::send_all_again() {
  send_again([](const std::string&, const Context&) { return true; });
}

void ChangeFilter::send_again(const Test& is_outdated) {
  for (auto& [key, entry] : entries_) {
    if (entry.sent && is_outdated(key, entry.sent_in)) {
      entry.sent.reset();
      entry.is_changed = true;
    }
  }
}

void ChangeFilter::send_due(BootTime now, const Context& context, const Send& send) {
  for (auto& [key, entry] : entries_) {
    if (due(entry) <= now) {
      entry.sent = entry.value;
      entry.is_changed = false;
      entry.sent_at = now;
      entry.sent_in = context;
      send(key, entry.value);
    }
  }
}

void ChangeFilter::for_each_sent(const std::function<void(const std::string& key)>& visit) const {
  for (const auto& [key, entry] : entries_) {
    if (entry.sent) {
      visit(key);
    }
  }
}

BootTime ChangeFilter::next_due() const {
  BootTime next = BootTime::max();
  for (const auto& [key, entry] : entries_) {
    next = std::min(next, due(entry));
  }
  return next;
}

BootTime ChangeFilter::due(const Entry& entry) const {
  if (!entry.sent) {
    return BootTime::min();
  }
  if (entry.is_changed) {
    return entry.sent_at + limits_.min_interval;
  }
  if (limits_.refresh > std::chrono::seconds::zero()) {
    return entry.sent_at + limits_.refresh;
  }
  return BootTime::max();
}

}  // namespace ecu::uplink
