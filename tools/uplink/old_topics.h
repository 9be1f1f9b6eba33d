#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include <ecu/tamu/thread_safety.h>

namespace ecu::uplink {

/// The topics of the unit's former names that the fleet's broker may still retain, or retain again: they must
/// be cleared on a later connection if the present one is lost first. Thread-safe.
class OldTopics {
 public:
  /// Beyond this number no topic is added.
  static constexpr std::size_t max_topics = 4096;

  /// From now on, until `release`, `remove` has no effect: what the connection of the former name has sent
  /// may arrive late.
  void hold();
  void release();

  /// False, without effect, for one topic too many.
  bool add(const std::string& topic);
  /// The broker has cleared the topic.
  void remove(const std::string& topic);
  /// The unit has a former name again: what begins with `tree` is no longer old.
  void remove_tree(const std::string& tree);

  [[nodiscard]] std::vector<std::string> all() const;

 private:
  mutable tamu::Mutex mutex_;
  std::set<std::string> topics_ TAMU_GUARDED_BY(mutex_);
  bool are_held_ TAMU_GUARDED_BY(mutex_) = false;
};

}  // namespace ecu::uplink
