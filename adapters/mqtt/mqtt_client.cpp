#include "mqtt/mqtt_client.h"

#include <algorithm>
#include <exception>
#include <new>
#include <string_view>
#include <utility>

#include <ecu/tamu/com/topics.h>

#include "mqtt/fault.h"
#include "mqtt/mqtt_log.h"
#include "system/supervised_wait.h"
#include "system/supervision.h"

namespace ecu::tamu::com::mqtt {

namespace {

// How long a stop waits for the broker to acknowledge the last messages and to close the connection.
constexpr std::chrono::milliseconds close_timeout{1000};

// How long a publication from an observer's call waits for a broker that accepts nothing.
constexpr std::chrono::seconds outbox_space_timeout{1};

Message presence(std::string_view state) {
  Message message;
  message.acknowledged = true;
  message.retained = true;
  message.payload.assign(state.begin(), state.end());
  return message;
}

}  // namespace

MqttClient::MqttClient(MqttSettings settings, std::shared_ptr<IConnectionObserver> observer)
    : settings_(std::move(settings)),
      observer_(std::move(observer)),
      delivery_(
          [this](const Loss& loss) {
            if (observer_) {
              observer_->messages_dropped(loss.filter, loss.count);
            }
          },
          Delivery::Clock::now, settings_.backlog),
      connection_(settings_, *this),
      quarantine_(settings_.retest_after),
      repetition_(settings_.repeat_after),
      threads_([this] { lead(); }),
      heartbeat_("mqtt", [this] { handle_wake_up_request(); }) {}

MqttClient::~MqttClient() {
  stop();
  threads_.join();
}

void MqttClient::connect() {
  connection_.open();
}

void MqttClient::start() {
  threads_.start();
}

void MqttClient::run() {
  wait_supervised(stop_);
  unblock_default_termination();
  threads_.join();
}

void MqttClient::stop() {
  if (!stop_requested_.exchange(true)) {
    notify_stopping();
  }
  stop_.signal();
  wake_.signal();
}

void MqttClient::subscribe(const std::string& topic, int max_qos,
                           std::shared_ptr<ISubscriptionObserver> observer) {
  MutexLock lock(mutex_);
  // Must come first: a lack of memory must not leave a registration that the broker never learns of.
  subscription_changes_.push_back({{topic, max_qos}, true});
  if (!delivery_.add(topic, max_qos, observer) || !outbox_.connected()) {
    subscription_changes_.pop_back();
    return;
  }
  wake_leader(lock);
}

void MqttClient::unsubscribe(const std::string& topic,
                             const std::shared_ptr<ISubscriptionObserver>& observer) {
  {
    MutexLock lock(mutex_);
    if (delivery_.remove(topic, observer.get()) && outbox_.connected()) {
      subscription_changes_.push_back({{topic}, false});
      wake_leader(lock);
    }
  }
  delivery_.wait_for(topic, observer.get());
}

PublishResult MqttClient::publish(const std::string& topic, Message message) {
  MutexLock lock(mutex_);
  if (!message.retained && outbox_.full(topic, message.acknowledged) && delivery_.is_calling_here()) {
    wait_for_outbox_space(lock, topic, message.acknowledged);
  }
  const PublishResult result = outbox_.push(topic, std::move(message));
  wake_leader(lock);
  return result;
}

// Throttles an observer that publishes faster than the broker accepts.
void MqttClient::wait_for_outbox_space(MutexLock& lock, const std::string& topic, bool acknowledged) {
  const auto waited_enough = [&]() TAMU_REQUIRES(mutex_) {
    return broker_stuck_ || stop_requested_ || !outbox_.connected() || !outbox_.full(topic, acknowledged);
  };
  if (!outbox_space_.wait_for(lock, outbox_space_timeout, waited_enough)) {
    broker_stuck_ = true;
  }
}

bool MqttClient::connected() const {
  const MutexLock lock(mutex_);
  return outbox_.connected();
}

// Releases the lock of its caller. The analysis cannot know that the lock is that of mutex_.
void MqttClient::wake_leader(MutexLock& lock) TAMU_NO_THREAD_SAFETY_ANALYSIS {
  const bool asleep = std::exchange(leader_asleep_, false);
  lock.unlock();
  if (asleep) {
    wake_.signal();
  }
}

void MqttClient::report_status(const std::string& text) const {
  const std::string caption = settings_.name.empty() ? "" : settings_.name + ": ";
  set_status("broker" + settings_.name, caption + text);
}

void MqttClient::connection_up() {
  report_status("on line");
  if (observer_) {
    observer_->connection_up();
    fence_wanted_ = true;
  }
  first_fence_wanted_ = quarantine_.connection_made();
  repetition_.connection_up(Connection::Clock::now());
  const MutexLock lock(mutex_);
  outbox_.connection_up();
  announce_presence();
  subscription_changes_.clear();
  for (Subscription& subscription : delivery_.subscriptions()) {
    subscription_changes_.push_back({std::move(subscription), true});
  }
}

void MqttClient::announce_presence() {
  if (settings_.presence) {
    outbox_.announce(settings_.presence->topic, presence(settings_.presence->online));
  }
}

void MqttClient::connection_down(ConnectionFailure failure, const std::string& reason) {
  bool was_up = false;
  {
    const MutexLock lock(mutex_);
    was_up = outbox_.connected();
    outbox_.connection_lost();
    subscription_changes_.clear();
    outbox_space_.notify_all();
  }
  settled_after_.reset();
  repetition_.connection_lost();
  fence_wanted_ = false;
  first_fence_wanted_ = false;
  try {
    if (!was_up) {
      quarantine_.attempt_failed();
    } else if (quarantine_.connection_lost(failure, Connection::Clock::now())) {
      connection_.retry_soon();
    }
    report_status("broker not reachable: " + reason);
    if (observer_) {
      observer_->connection_down(failure, reason);
    }
  } catch (const std::exception& fault) {
    mqtt_log.error("loss of the connection not handled: ", fault.what());
  }
}

void MqttClient::subscription_refused(const std::string& filter) {
  if (observer_) {
    observer_->subscription_refused(filter);
  }
}

void MqttClient::fence_answered(Fence fence) {
  switch (fence) {
    case Fence::subscriptions:
      settled_after_ = delivery_.posted();
      return;
    case Fence::publication:
      quarantine_.fence_answered(Connection::Clock::now());
      return;
  }
}

void MqttClient::acknowledged_late() {
  repetition_.acknowledged_late(Connection::Clock::now());
}

void MqttClient::message(const std::string& topic, Message message) {
  delivery_.post(topic, std::move(message));
}

void MqttClient::oversized_message(const std::string& topic) {
  delivery_.drop(topic);
}

void MqttClient::lead() {
  while (!stop_requested_) {
    heartbeat_.beat();
    if (!deliver()) {
      return;
    }
    delivery_.report_losses();
    report_settlement();
    send();
    sleep();
  }
  close_connection();
  threads_.finish();
}

bool MqttClient::deliver() {
  if (!delivery_.pending()) {
    return true;
  }
  threads_.begin_calls();
  while (threads_.leading() && delivery_.deliver_next()) {
  }
  if (threads_.end_calls()) {
    return true;
  }
  if (observer_) {
    wake_.signal();  // the new leader's report may wait for the end of these calls
  }
  return false;
}

// An observer may block for a long time. The network is not at fault then, even if no thread can take the
// lead.
void MqttClient::handle_wake_up_request() {
  if (threads_.cannot_be_relieved()) {
    heartbeat_.beat();
  }
  wake_.signal();
}

void MqttClient::report_settlement() {
  if (settled_after_ && delivery_.delivered(*settled_after_)) {
    settled_after_.reset();
    observer_->subscriptions_settled();
  }
}

// A failure here ends the connection: what was taken from the queues and not sent is lost, and the next
// connection sends subscriptions and retained messages again.
void MqttClient::send() {
  try {
    send_all();
  } catch (const std::exception&) {
    connection_.fail({ConnectionFailure::internal, out_of_memory});
  }
}

void MqttClient::repeat_publications() {
  if (repetition_.is_planned() && repetition_.take_due(Connection::Clock::now())) {
    const MutexLock lock(mutex_);
    outbox_.repeat();
    announce_presence();
  }
}

void MqttClient::send_all() {
  repeat_publications();
  std::vector<SubscriptionChange> changes;
  bool several = false;
  {
    const MutexLock lock(mutex_);
    changes.swap(subscription_changes_);
    several = changes.size() + outbox_.size() > 1;
  }
  if (several) {
    connection_.cork();
  }
  send_subscription_changes(changes);
  if (std::exchange(fence_wanted_, false)) {
    connection_.request_fence(Fence::subscriptions);
  }
  if (std::exchange(first_fence_wanted_, false)) {
    connection_.request_fence(Fence::publication);
  }
  send_publications();
  if (several) {
    connection_.uncork();
  }
}

void MqttClient::send_subscription_changes(const std::vector<SubscriptionChange>& changes) {
  for (const auto& [subscription, wanted] : changes) {
    if (wanted) {
      connection_.subscribe(subscription.filter, subscription.max_qos);
    } else {
      connection_.unsubscribe(subscription.filter);
    }
  }
}

void MqttClient::send_publications() {
  while (take_batch()) {
    const auto now = Connection::Clock::now();
    for (const PublicationPtr& publication : batch_) {
      if (!connection_.is_up()) {
        return;
      }
      const auto handling = quarantine_.handle(publication, now);
      if (handling != Quarantine::Handling::withhold) {
        connection_.publish(publication->topic, publication->message, now);
      }
      if (handling == Quarantine::Handling::test) {
        connection_.request_fence(Fence::publication);
      }
    }
  }
}

bool MqttClient::take_batch() {
  batch_.clear();
  const MutexLock lock(mutex_);
  if (!can_send()) {
    outbox_space_.notify_all();
    return false;
  }
  broker_stuck_ = false;
  const std::size_t room = connection_.room_for_acknowledged();
  if (PublicationPtr due = room > 0 ? quarantine_.take_due(Connection::Clock::now()) : nullptr) {
    batch_.push_back(std::move(due));
  } else {
    // While it searches, the quarantine must see the broker's answer before the next publication.
    outbox_.pop_batch(quarantine_.suspects_nothing() ? max_batch : 1, room, batch_);
  }
  return true;
}

bool MqttClient::can_send() noexcept {
  if (!connection_.accepts_publications() || quarantine_.testing()) {
    return false;
  }
  const bool takes_acknowledged = connection_.room_for_acknowledged() > 0;
  try {
    return outbox_.has_next(takes_acknowledged) ||
           (takes_acknowledged && quarantine_.due() <= Connection::Clock::now());
  } catch (const std::bad_alloc&) {
    return true;  // sending then fails, too, and ends the connection
  }
}

void MqttClient::sleep() {
  using Clock = Connection::Clock;
  bool work_left = connection_.more_to_read();
  {
    const MutexLock lock(mutex_);
    work_left = work_left || !subscription_changes_.empty() || can_send();
    // While the connection accepts nothing, a new publication can only wait with the others.
    leader_asleep_ = !work_left && (outbox_.size() == 0 || connection_.accepts_publications());
  }
  // A publication that is due but cannot be sent must wait for the broker.
  const auto withheld_until =
      quarantine_.due() <= Clock::now() ? Clock::time_point::max() : quarantine_.due();
  connection_.wait(wake_, work_left ? Clock::time_point()
                                    : std::min({withheld_until, delivery_.losses_due(), repetition_.due()}));
  const MutexLock lock(mutex_);
  leader_asleep_ = false;
}

void MqttClient::close_connection() {
  delivery_.close();
  {
    const MutexLock lock(mutex_);
    outbox_space_.notify_all();
  }
  if (connection_.is_up()) {
    const auto deadline = Connection::Clock::now() + close_timeout;
    if (settings_.presence) {
      const MutexLock lock(mutex_);
      outbox_.announce(settings_.presence->topic, presence(settings_.presence->offline));
    }
    bool sent = all_sent();
    while (!sent && Connection::Clock::now() < deadline) {
      connection_.wait(wake_, deadline);
      sent = all_sent();
    }
    // Without a DISCONNECT the broker publishes the last will in place of an "offline" that did not reach it.
    if (sent || !settings_.presence) {
      connection_.disconnect();
    }
  }
  connection_.close();
  const MutexLock lock(mutex_);
  outbox_.connection_lost();
  subscription_changes_.clear();
}

bool MqttClient::all_sent() {
  send();
  const MutexLock lock(mutex_);
  return !connection_.is_up() || (outbox_.size() == 0 && connection_.idle());
}

}  // namespace ecu::tamu::com::mqtt
