#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <set>
#include <streambuf>
#include <system_error>
#include <utility>

#include <ecu/tamu/com/topic.h>

#include "quilctl/base/failure.h"
#include "quilctl/base/notes.h"
#include "quilctl/commands/commands.h"
#include "quilctl/model/recording.h"
#include "quilctl/talk/request_session.h"

namespace ecu::ctl {

namespace com = tamu::com;

namespace {

using Clock = Bus::Clock;

constexpr const char* real_time_side = "rt/#";
constexpr const char* requests_of_daemon = "rt/j1939can/tx/#";

// How long to wait before a message is offered again that the broker was too slow for.
constexpr std::chrono::milliseconds overload_pause{5};

// How many published messages may be on their way back, and for how long.
constexpr std::size_t max_waiting = 1000;
constexpr std::chrono::seconds usual_patience{5};

com::Message message_of(const Recorded& recorded, const std::string& payload) {
  com::Message message;
  message.acknowledged = recorded.acknowledged;
  message.retained = recorded.retained;
  message.payload.assign(payload.begin(), payload.end());
  return message;
}

bool is_played(const Options& options, const std::string& topic) {
  return options.filter.empty()
             ? com::topic_matches(real_time_side, topic) && !com::topic_matches(requests_of_daemon, topic)
             : com::topic_matches(options.filter, topic);
}

/// Publishes messages and sees whether they come back: a broker does not say when it keeps one to itself.
class Player {
 public:
  explicit Player(const Options& options)
      : talk_(
            options, {options.filter.empty() ? real_time_side : options.filter},
            [this](const Event& event) { take(event); }, usual_patience),
        patience_(options.timeout.value_or(usual_patience)) {
    talk_.allow_any_time();
  }

  Conversation& conversation() noexcept { return talk_; }

  void publish(const Recorded& recorded) {
    if (waiting_.size() >= max_waiting) {
      wait_until_back(max_waiting / 2);
    }
    while (!talk_.bus().publish(recorded.topic, message_of(recorded, *recorded.payload))) {
      talk_.listen_until(Clock::now() + overload_pause);
    }
    waiting_.emplace(recorded.topic, *recorded.payload);
    ++count_;
    talk_.listen_until(Clock::now());
  }

  /// Returns when all messages but `rest` have come back; throws `Failure` when they do not.
  void wait_until_back(std::size_t rest = 0) {
    const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(patience_);
    if (!talk_.wait_until([&] { return waiting_.size() <= rest; }, deadline)) {
      throw Failure(waiting_.size() == count_ ? ExitCode::refused : ExitCode::time_out,
                    std::to_string(waiting_.size()) + " of " + std::to_string(count_) +
                        " messages have not come back from the broker: its access rules keep us from "
                        "publishing or from hearing them");
    }
  }

  [[nodiscard]] std::size_t count() const noexcept { return count_; }

 private:
  using TopicAndPayload = std::pair<std::string, std::string>;

  void take(const Event& event) {
    const auto& payload = event.message.payload;
    const auto found = waiting_.find(TopicAndPayload(event.text, {payload.begin(), payload.end()}));
    if (found != waiting_.end()) {
      waiting_.erase(found);
    }
  }

  std::multiset<TopicAndPayload> waiting_;
  std::size_t count_ = 0;
  Conversation talk_;  // calls `take` from its constructor on
  const std::chrono::duration<double> patience_;
};

/// Standard input, for whose bytes `wait` is called before they are read.
class StandardInput final : public std::streambuf {
 public:
  explicit StandardInput(std::function<void()> wait) : wait_(std::move(wait)) {}

 private:
  int_type underflow() override {
    wait_();
    const auto count = ::read(STDIN_FILENO, block_.data(), block_.size());
    if (count < 0) {
      throw Failure(ExitCode::usage, "standard input: " + std::generic_category().message(errno));
    }
    setg(block_.data(), block_.data(), block_.data() + count);
    return count == 0 ? traits_type::eof() : traits_type::to_int_type(block_.front());
  }

  const std::function<void()> wait_;
  std::array<char, 4096> block_{};
};

// A fault in the last line is found before the first message is published.
void read_through(std::istream& file, const std::string& name) {
  RecordingReader reader(file, name);
  while (reader.next()) {
  }
  file.clear();
  file.seekg(0);
}

/// The next message behind those that have been published already.
std::optional<Recorded> next(RecordingReader& reader, const Player& player) {
  try {
    return reader.next();
  } catch (const Failure& failure) {
    throw Failure(failure.code(), failure.what() + ("; " + std::to_string(player.count())) +
                                      " messages have been published already");
  }
}

void play(const Options& options, std::istream& input, std::optional<Player>& player) {
  RecordingReader reader(input, options.file);
  player.emplace(options);
  const auto begin = Clock::now();
  while (const auto recorded = next(reader, *player)) {
    if (!recorded->payload || !is_played(options, recorded->topic)) {
      continue;
    }
    if (options.speed > 0) {
      const auto at = std::chrono::duration<double>(recorded->at) / options.speed;
      player->conversation().listen_until(begin + std::chrono::duration_cast<Clock::duration>(at));
    }
    player->publish(*recorded);
  }
  player->wait_until_back();
}

}  // namespace

ExitCode replay(const Options& options) {
  std::optional<Player> player;
  if (options.file == "-") {
    StandardInput input([&player] {
      if (player) {
        player->conversation().listen_until_readable(STDIN_FILENO);
      }
    });
    std::istream lines(&input);
    lines.exceptions(std::ios::badbit);  // lets through what the wait throws
    play(options, lines, player);
  } else {
    std::ifstream file(options.file);
    if (!file) {
      throw Failure(ExitCode::usage, options.file + ": " + std::generic_category().message(errno));
    }
    if (std::filesystem::is_regular_file(options.file)) {
      read_through(file, options.file);
    }
    play(options, file, player);
  }
  note(std::to_string(player->count()) + " messages published");
  return ExitCode::done;
}

}  // namespace ecu::ctl
