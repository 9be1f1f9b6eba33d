#include "mqtt/quarantine.h"

#include <algorithm>
#include <functional>
#include <string_view>
#include <utility>

#include "mqtt/mqtt_log.h"

namespace ecu::tamu::com::mqtt {

namespace {

// A single loss may have any cause, even during a test.
constexpr int enough_losses = 2;

std::size_t hash_of(const std::string& topic) {
  return std::hash<std::string>()(topic);
}

// With any other failure the broker has not ended the connection.
bool is_suspicious(ConnectionFailure failure) {
  return failure != ConnectionFailure::no_answer && failure != ConnectionFailure::internal;
}

}  // namespace

Quarantine::Digest Quarantine::digest_of(const Publication& publication) {
  const Payload& payload = publication.message.payload;
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): bytes as characters
  const std::string_view bytes(reinterpret_cast<const char*>(payload.data()), payload.size());
  return {bytes.size(), std::hash<std::string_view>()(bytes)};
}

Quarantine::Handling Quarantine::handle(const PublicationPtr& publication, Clock::time_point now) {
  const std::string& topic = publication->topic;
  const auto found = suspects_.empty() ? suspects_.end() : suspects_.find(topic);
  if (found != suspects_.end()) {
    Suspect& suspect = found->second;
    suspect.withheld = nullptr;
    if (suspect.set_aside == digest_of(*publication)) {
      return Handling::withhold;
    }
    if (now < suspect.retry_at) {
      suspect.withheld = publication;
      return Handling::withhold;
    }
    return begin_test(publication);
  }
  if (searching_ && !passed_.contains(hash_of(topic))) {
    return begin_test(publication);
  }
  last_sent_ = now;
  return Handling::send;
}

Quarantine::Handling Quarantine::begin_test(const PublicationPtr& publication) {
  under_test_ = publication;
  return Handling::test;
}

void Quarantine::fence_answered() {
  awaits_broker_ = false;
  if (!under_test_) {
    return;
  }
  const PublicationPtr passed = std::exchange(under_test_, nullptr);
  suspects_.erase(passed->topic);
  passed_.insert(hash_of(passed->topic));
  if (passed_.size() > max_passed) {
    searching_ = false;
    losses_ = 0;
    passed_.clear();
  }
}

bool Quarantine::connection_lost(ConnectionFailure failure, Clock::time_point now) {
  const PublicationPtr tested = std::exchange(under_test_, nullptr);
  for (auto& [topic, suspect] : suspects_) {
    suspect.withheld = nullptr;
  }
  const bool nothing_sent = std::exchange(awaits_broker_, false);
  if (nothing_sent || !is_suspicious(failure) || (!tested && now - last_sent_ > right_after)) {
    return false;
  }
  searching_ = searching_ || ++losses_ >= enough_losses;
  passed_.clear();
  if (!tested) {
    return false;
  }
  Suspect& suspect = suspects_[tested->topic];
  if (++suspect.losses < enough_losses) {
    return false;
  }
  set_aside(*tested, suspect, now);
  return true;
}

void Quarantine::set_aside(const Publication& publication, Suspect& suspect, Clock::time_point now) {
  suspect.losses = 0;
  suspect.set_aside = digest_of(publication);
  if (suspect.times_set_aside > 0) {
    constexpr unsigned enough_doublings = 9;
    suspect.retry_at =
        now +
        std::min(longest_pause, first_pause * (1 << std::min(suspect.times_set_aside - 1, enough_doublings)));
  }
  ++suspect.times_set_aside;
  mqtt_log.error("broker ends the connection for the message on topic ", publication.topic, " (",
                 publication.message.payload.size(), " bytes): set aside until its value changes");
}

void Quarantine::attempt_failed() {
  losses_ = 0;
  std::erase_if(suspects_, [](const auto& entry) { return !entry.second.set_aside; });
  for (auto& [topic, suspect] : suspects_) {
    suspect.losses = 0;
  }
}

PublicationPtr Quarantine::take_due(Clock::time_point now) {
  for (auto& [topic, suspect] : suspects_) {
    if (suspect.withheld && now >= suspect.retry_at) {
      return std::exchange(suspect.withheld, nullptr);
    }
  }
  return nullptr;
}

Quarantine::Clock::time_point Quarantine::due() const {
  auto due = Clock::time_point::max();
  for (const auto& [topic, suspect] : suspects_) {
    if (suspect.withheld) {
      due = std::min(due, suspect.retry_at);
    }
  }
  return due;
}

}  // namespace ecu::tamu::com::mqtt
