#include "mqtt/mqtt_client.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "mqtt/fault.h"
#include "mqtt/mqtt_log.h"
#include "system/supervised_wait.h"
#include "system/supervision.h"

namespace ecu::tamu::com::mqtt {

namespace {

// How long a stop waits for the broker to acknowledge the last messages and to close the connection.
constexpr std::chrono::milliseconds close_timeout{1000};

// Whether the broker retains nothing on the topic after this message, which it acknowledges.
bool clears_topic(const Message& message) {
  return message.retained && message.acknowledged && message.payload.empty();
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
      queue_(settings_.presence, delivery_, wake_),
      connection_(settings_, *this),
      quarantine_(settings_.retest_after),
      repetition_(settings_.repeat_after),
      refused_(settings_.retest_after),
      threads_([this] { lead(); }),
      heartbeat_("mqtt", [this] { handle_wake_up_request(); }) {}

MqttClient::~MqttClient() {
  request_stop();
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
  if (!stop_requested_) {
    notify_stopping();
  }
  request_stop();
}

// The process may go on without this client, so the service manager must not be notified.
void MqttClient::request_stop() {
  stop_requested_ = true;
  queue_.stop();
  stop_.signal();
  wake_.signal();
}

void MqttClient::subscribe(const std::string& topic, int max_qos,
                           std::shared_ptr<ISubscriptionObserver> observer) {
  queue_.subscribe(topic, max_qos, observer);
}

void MqttClient::unsubscribe(const std::string& topic,
                             const std::shared_ptr<ISubscriptionObserver>& observer) {
  queue_.unsubscribe(topic, observer.get());
  delivery_.wait_for(topic, observer.get());
}

PublishResult MqttClient::publish(const std::string& topic, Message message) {
  return queue_.publish(topic, std::move(message));
}

bool MqttClient::connected() const {
  return queue_.connected();
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
  const auto now = Connection::Clock::now();
  first_fence_wanted_ = quarantine_.connection_made(now);
  repetition_.connection_up(now);
  queue_.connection_up();
}

void MqttClient::connection_down(ConnectionFailure failure, const std::string& reason) {
  const bool was_up = queue_.connection_lost();
  settled_after_.reset();
  clearing_.clear();
  repetition_.connection_lost();
  refused_.connection_lost();
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
  if (!refused_.refused(filter, Connection::Clock::now())) {
    return;
  }
  mqtt_log.warning("broker refuses the subscription to ", filter);
  if (observer_) {
    observer_->subscription_refused(filter);
  }
}

void MqttClient::subscription_granted(const std::string& filter) {
  if (refused_.granted(filter)) {
    mqtt_log.notice("broker grants the subscription to ", filter, " that it had refused");
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

// An observer may block for a long time. The network is not at fault while no thread can be started to take
// the lead.
void MqttClient::handle_wake_up_request() {
  if (!threads_.ensure_relief()) {
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
    queue_.repeat();
  }
}

void MqttClient::retry_subscriptions() {
  if (!refused_.take_due(Connection::Clock::now())) {
    return;
  }
  for (const auto& [filter, max_qos] : delivery_.subscriptions()) {
    if (refused_.contains(filter)) {
      connection_.subscribe(filter, max_qos);
    }
  }
}

void MqttClient::send_all() {
  repeat_publications();
  retry_subscriptions();
  std::vector<SubscriptionChange> changes;
  const bool several = queue_.take_changes(changes) > 1;
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
  forget_cleared_topics();
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
      if (handling == Quarantine::Handling::fence_and_test) {
        connection_.request_fence(Fence::publication);
      }
      if (handling != Quarantine::Handling::withhold) {
        if (settings_.topic_cleared && clears_topic(publication->message)) {
          clearing_.push_back(publication);  // first, because a failure to publish discards it
        }
        connection_.publish(publication->topic, publication->message, now);
      }
      if (quarantine_.testing()) {
        connection_.request_fence(Fence::publication);
      }
    }
  }
}

// Until then they are published again, because the broker may not have cleared the topics.
void MqttClient::forget_cleared_topics() {
  if (clearing_.empty() || repetition_.is_planned() || !connection_.idle()) {
    return;
  }
  queue_.forget(clearing_);
  for (const PublicationPtr& publication : std::exchange(clearing_, {})) {
    settings_.topic_cleared(publication->topic);
  }
}

bool MqttClient::take_batch() {
  batch_.clear();
  const SendQueue::Room room = this->room();
  if (room.acknowledged > 0) {
    if (PublicationPtr due = quarantine_.take_due(Connection::Clock::now())) {
      batch_.push_back(std::move(due));
    }
  }
  return queue_.take_batch(room, batch_);
}

SendQueue::Room MqttClient::room() const {
  if (!connection_.accepts_publications() || quarantine_.testing()) {
    return {};
  }
  // While it searches, the quarantine must see the broker's answer before the next publication.
  return {quarantine_.suspects_nothing() ? max_batch : 1, connection_.room_for_acknowledged()};
}

void MqttClient::sleep() {
  using Clock = Connection::Clock;
  const SendQueue::Room room = this->room();
  const bool retry_is_due = quarantine_.due() <= Clock::now();
  const bool work_left = connection_.more_to_read() || (retry_is_due && room.acknowledged > 0) ||
                         !queue_.begin_sleep(room, connection_.accepts_publications());
  // A publication that is due but cannot be sent must wait for the broker.
  const auto withheld_until = retry_is_due ? Clock::time_point::max() : quarantine_.due();
  connection_.wait(wake_, work_left ? Clock::time_point()
                                    : std::min({withheld_until, delivery_.losses_due(), repetition_.due(),
                                                refused_.due()}));
  queue_.end_sleep();
}

void MqttClient::close_connection() {
  delivery_.close();
  if (connection_.is_up()) {
    const auto deadline = Connection::Clock::now() + close_timeout;
    queue_.announce_offline();
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
  queue_.connection_lost();
}

bool MqttClient::all_sent() {
  send();
  return !connection_.is_up() || (!queue_.has_publications() && connection_.idle());
}

}  // namespace ecu::tamu::com::mqtt
