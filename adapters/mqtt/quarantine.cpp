// How it works: after two losses right after publications the search begins. A publication is then a test if
// it is the first on its topic, or larger than those that passed: it goes out alone, followed by a fence. The
// answer to the fence shows that it has passed, so messages up to its size on its topic are no longer tested.
// A loss under test makes the topic a suspect; the second sets the message aside. When two topics were found
// just before, one loss is enough, so that many denied topics do not hold up the others for long.
//
// On the topic of a suspect, smaller messages are handled as on any other topic, because a packet limit
// allows them. Those of at least its size are always tested. When another one is set aside, further ones wait
// for a pause that doubles each time, so that a topic with ever new values costs few connections. A suspect
// is forgotten when such a message passes long after the last one was set aside.
//
// The retests of unchanged messages take turns, so that messages that stay refused cost few connections,
// however many they are.
//
// What it relies on: the broker judges by topic and size. If it refuses a message that was not tested, for
// its contents for example, the last message before the loss makes its topic a suspect, too,
// and everything is tested again, because the broker may judge differently what passed before. A fence
// separates untested messages from a test, so that a loss under test has no such cause.

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

constexpr int many_topics_found = 2;

// The longest pause between retests is this multiple of the first one.
constexpr int retest_pause_growth = 512;

std::size_t hash_of(const std::string& topic) {
  return std::hash<std::string>()(topic);
}

// With any other failure the broker has not ended the connection.
bool is_suspicious(ConnectionFailure failure) {
  return failure != ConnectionFailure::no_answer && failure != ConnectionFailure::internal;
}

// The first different message is tested at once.
std::chrono::seconds pause_after(unsigned times_set_aside) {
  if (times_set_aside == 0) {
    return {};
  }
  constexpr unsigned enough_doublings = 9;
  return std::min(Quarantine::longest_pause,
                  Quarantine::first_pause * (1 << std::min(times_set_aside - 1, enough_doublings)));
}

}  // namespace

Quarantine::Digest Quarantine::digest_of(const Publication& publication) {
  const Payload& payload = publication.message.payload;
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): bytes as characters
  const std::string_view bytes(reinterpret_cast<const char*>(payload.data()), payload.size());
  return {bytes.size(), std::hash<std::string_view>()(bytes)};
}

bool Quarantine::has_passed(const Publication& publication) const {
  const auto found = passed_.find(hash_of(publication.topic));
  return found != passed_.end() && publication.message.payload.size() <= found->second;
}

Quarantine::Handling Quarantine::handle(const PublicationPtr& publication, Clock::time_point now) {
  end_overdue_search(now);
  const auto found = suspects_.empty() ? suspects_.end() : suspects_.find(publication->topic);
  const bool suspicious = found != suspects_.end();
  if (suspicious) {
    Suspect& suspect = found->second;
    suspect.withheld = nullptr;
    if (suspect.set_aside == digest_of(*publication)) {
      if (publication == std::exchange(retest_, nullptr)) {
        return begin_test(publication);
      }
      suspect.withheld = retest_after_ > std::chrono::seconds::zero() ? publication : nullptr;
      return Handling::withhold;
    }
    suspect.set_aside.reset();
    if (publication->message.payload.size() >= suspect.size) {
      if (now < suspect.retry_at) {
        suspect.withheld = publication;
        return Handling::withhold;
      }
      return begin_test(publication);
    }
  }
  if ((searching_ || suspicious) && !has_passed(*publication)) {
    return begin_test(publication);
  }
  last_sent_ = now;
  sent_untested_ = true;
  if (searching_) {
    last_untested_ = {publication->topic, publication->message.payload.size()};
  }
  return Handling::send;
}

Quarantine::Handling Quarantine::begin_test(const PublicationPtr& publication) {
  under_test_ = publication;
  awaits_untested_ = std::exchange(sent_untested_, false);
  return awaits_untested_ ? Handling::fence_and_test : Handling::test;
}

void Quarantine::fence_answered(Clock::time_point now) {
  awaits_broker_ = false;
  last_untested_ = {};
  if (std::exchange(awaits_untested_, false) || !under_test_) {
    return;
  }
  const PublicationPtr passed = std::exchange(under_test_, nullptr);
  clear_of_suspicion(*passed, now);
  passed_[hash_of(passed->topic)] = passed->message.payload.size();
  if (passed_.size() > max_passed) {
    end_search();
  }
}

// Without an answer to the first fence, `handle` is not called and cannot end the search.
bool Quarantine::connection_made(Clock::time_point now) noexcept {
  end_overdue_search(now);
  return awaits_broker_ = searching_;
}

void Quarantine::end_search() noexcept {
  searching_ = false;
  losses_ = 0;
  passed_.clear();
}

void Quarantine::end_overdue_search(Clock::time_point now) noexcept {
  if (searching_ && now - last_loss_ > search_time) {
    end_search();
  }
}

// Only a message of the same size shows that another cause ended the connection. A larger one shows that no
// limit was exceeded, and a smaller one shows nothing.
void Quarantine::clear_of_suspicion(const Publication& passed, Clock::time_point now) {
  const auto found = suspects_.find(passed.topic);
  if (found == suspects_.end()) {
    return;
  }
  Suspect& suspect = found->second;
  if (suspect.set_aside == digest_of(passed)) {
    mqtt_log.notice("broker accepts the message on topic ", passed.topic, " that was set aside");
    suspects_.erase(found);
    retest_pause_ = retest_after_;
    return;
  }
  const std::size_t size = passed.message.payload.size();
  if (size == suspect.size) {
    suspect.losses = 0;
  }
  if (suspect.times_set_aside == 0 ? size == suspect.size
                                   : size >= suspect.size && now >= suspect.retry_at + longest_pause) {
    suspects_.erase(found);
  }
}

bool Quarantine::connection_lost(ConnectionFailure failure, Clock::time_point now) {
  PublicationPtr tested = std::exchange(under_test_, nullptr);
  if (std::exchange(awaits_untested_, false)) {
    tested = nullptr;
  }
  sent_untested_ = false;
  retest_ = nullptr;
  const auto [last_topic, last_size] = std::exchange(last_untested_, {});
  for (auto& [topic, suspect] : suspects_) {
    suspect.withheld = nullptr;
  }
  const bool nothing_sent = std::exchange(awaits_broker_, false);
  if (nothing_sent || !is_suspicious(failure) || (!tested && now - last_sent_ > right_after)) {
    return false;
  }
  losses_ = now - last_loss_ > search_time ? 1 : losses_ + 1;
  last_loss_ = now;
  searching_ = searching_ || losses_ >= enough_losses;
  if (!tested) {
    passed_.clear();
    if (!last_topic.empty()) {
      suspects_[last_topic].lost_for(last_size, now);
    }
    return false;
  }
  Suspect& suspect = suspects_[tested->topic];
  if (suspect.set_aside == digest_of(*tested)) {
    retest_pause_ = std::min(2 * retest_pause_, retest_pause_growth * retest_after_);
    await_retest(suspect, now);
    return true;
  }
  suspect.lost_for(tested->message.payload.size(), now);
  const bool many_found = topics_found_ >= many_topics_found && now - last_found_ <= right_after;
  if (++suspect.losses < enough_losses && !many_found) {
    return false;
  }
  set_aside(*tested, suspect, now);
  return true;
}

void Quarantine::set_aside(const Publication& publication, Suspect& suspect, Clock::time_point now) {
  if (suspect.times_set_aside == 0) {
    topics_found_ = now - last_found_ <= right_after ? topics_found_ + 1 : 1;
    last_found_ = now;
  }
  suspect.losses = 0;
  suspect.set_aside = digest_of(publication);
  await_retest(suspect, now);
  suspect.retry_at = now + pause_after(suspect.times_set_aside);
  ++suspect.times_set_aside;
  mqtt_log.error("broker ends the connection for the message on topic ", publication.topic, " (",
                 publication.message.payload.size(), " bytes): set aside until its value changes");
}

void Quarantine::await_retest(Suspect& suspect, Clock::time_point now) {
  suspect.turn = ++last_turn_;
  retest_due_ = now + retest_pause_;
}

void Quarantine::attempt_failed() {
  losses_ = 0;
  topics_found_ = 0;
  retest_due_ = {};
  retest_pause_ = retest_after_;
  std::erase_if(suspects_, [](const auto& entry) { return entry.second.times_set_aside == 0; });
  for (auto& [topic, suspect] : suspects_) {
    suspect.losses = 0;
  }
}

PublicationPtr Quarantine::take_due(Clock::time_point now) {
  Suspect* next = nullptr;
  for (auto& [topic, suspect] : suspects_) {
    if (!suspect.withheld) {
      continue;
    }
    if (!suspect.set_aside && now >= suspect.retry_at) {
      return std::exchange(suspect.withheld, nullptr);
    }
    if (suspect.set_aside && now >= retest_due_ && (next == nullptr || suspect.turn < next->turn)) {
      next = &suspect;
    }
  }
  return retest_ = next != nullptr ? std::exchange(next->withheld, nullptr) : nullptr;
}

Quarantine::Clock::time_point Quarantine::due() const {
  auto due = Clock::time_point::max();
  for (const auto& [topic, suspect] : suspects_) {
    if (suspect.withheld) {
      due = std::min(due, suspect.set_aside ? retest_due_ : suspect.retry_at);
    }
  }
  return due;
}

}  // namespace ecu::tamu::com::mqtt
