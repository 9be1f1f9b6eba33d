#include "mqtt/connection.h"

#include <poll.h>
#include <sys/stat.h>

#include "mqtt/name_lookup.h"
#include "support/authority.h"
#include "support/mqtt.h"
#include "support/scripted_broker.h"
#include "support/temp_dir.h"
#include "support/testing.h"

namespace {

using namespace ecu::tamu::com;
using namespace ecu::tamu::com::mqtt;
using Reaction = tests::ScriptedBroker::Reaction;
using tests::raw_message;
using tests::settings_for;

/// The connection, and the broker that it is to find.
class ConnectionTest : public testing::Test {
 protected:
  /// Begins to connect to a new broker. Everything before is forgotten.
  void open(tests::ScriptedBroker::Script script, Resolver resolve = look_up) {
    connection.reset();
    broker.emplace(std::move(script));
    settings.port = broker->port();
    listener.events.clear();
    connection.emplace(settings, listener, std::move(resolve));
    connection->open();
  }
  void run_until(const std::function<bool()>& done) {
    const ecu::tamu::posix::Event wake;
    const auto deadline = Connection::Clock::now() + tests::time_limit;
    while (!done() && Connection::Clock::now() < deadline) {
      connection->wait(wake, deadline);
    }
  }
  /// Runs the connection until this number of events has occurred.
  std::vector<std::string> run(std::size_t count) {
    run_until([&] { return listener.events.size() >= count; });
    return listener.events;
  }
  /// The regular answers; a subscription to "in" brings a message.
  static Reaction answer(const std::string& packet) {
    return packet == "SUBSCRIBE in" ? Reaction("\x30\x04\x00\x02in"s) : Reaction::answer;
  }

  MqttSettings settings = settings_for("127.0.0.1");
  tests::EventLog listener;
  std::optional<tests::ScriptedBroker> broker;
  std::optional<Connection> connection;
};

TEST_F(ConnectionTest, AFailureOfTheListenerFailsTheConnectionWhichIsRetried) {
  const struct {
    std::string event;
    std::function<void()> failure;
    std::string reason;
  } cases[] = {
      {"up", [] { throw std::bad_alloc(); }, "out of memory"},
      {"up", [] { throw std::runtime_error("full"); }, "full"},
      {"up", [] { throw 1; }, "unknown fault"},
      {"fence", [] { throw std::bad_alloc(); }, "out of memory"},
      {"fence", [] { throw 1; }, "a packet could not be handled"},
      {"in", [] { throw 1; }, "a packet could not be handled"},
  };
  for (const auto& c : cases) {
    listener.on_event = [&, failed = false](const std::string& event) mutable {
      if (event == c.event && !std::exchange(failed, true)) {
        c.failure();
      }
      if (event == "up") {
        !failed&& c.event == "in" ? connection->subscribe("in", 0)
                                  : connection->request_fence(Fence::subscriptions);
      }
    };
    open(answer);
    const auto events = run(c.event == "up" ? 4 : 5);
    EXPECT_EQ(listener.down, ConnectionFailure::internal);
    EXPECT_THAT(events, Contains("down: " + c.reason).Times(1));
    EXPECT_EQ(events.back(), "fence");
    EXPECT_TRUE(connection->is_up());
  }
}

TEST_F(ConnectionTest, APermanentLackOfMemoryEndsTheProcessWithALine) {
  const Fault no_memory{ConnectionFailure::internal, "out of memory"};
  settings.port = 1;
  connection.emplace(settings, listener);
  for (const Fault& last : {Fault{ConnectionFailure::internal, "another failure"}, no_memory}) {
    for (int failures = 0; failures < 8; ++failures) {
      connection->fail(no_memory);
    }
    connection->fail(last);
  }
  const auto fail = [&] {
    ecu::tamu::logging::set_log_mode(ecu::tamu::logging::LogMode::standard_error);
    connection->fail(no_memory);
  };
  EXPECT_DEATH(fail(),
               "ALERT .tamu.com.mqtt. no connection to 127.0.0.1 for lack of memory, 10 times in a row");
}

TEST_F(ConnectionTest, AnAttemptFailsWithItsReason) {
  const tests::Authority authority;
  const tests::TempDir dir;
  const std::string fifo = dir.path("fifo");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const auto use_tls = [&](const std::string& certificate, const std::string& key) {
    settings.cafile = authority.file();
    settings.certfile = certificate;
    settings.keyfile = key;
  };
  const struct {
    Reaction to_connect;
    std::function<void()> change;
    ConnectionFailure kind;
    std::string reason;
  } cases[] = {
      {Reaction::answer, [this] { settings.username = "\xff"; }, ConnectionFailure::internal,
       "user name: Malformed UTF-8"},
      {Reaction::answer,
       [this] {
         settings.presence = {"+", "online", "offline", "offline"};
       },
       ConnectionFailure::internal, "presence topic: Invalid function arguments provided."},
      {Reaction::answer, [this] { settings.client_id = "\xff"; }, ConnectionFailure::internal,
       "invalid client identifier"},
      {Reaction::answer, [this] { settings.host = '/' + std::string(107, 's'); }, ConnectionFailure::internal,
       "the path of the socket has more than 107 bytes"},
      {Reaction::ignore, [this] { settings.connect_timeout = 50ms; }, ConnectionFailure::no_answer,
       "no answer"},
      {Reaction("\x20\x02\x00\x04"s), [] {}, ConnectionFailure::bad_credentials,
       "Connection Refused: bad user name or password."},
      {Reaction("\x20\x02\x00\x03"s), [] {}, ConnectionFailure::refused,
       "Connection Refused: broker unavailable."},
      {Reaction("\x40\x02\x00\x01"s), [] {}, ConnectionFailure::protocol,
       "A network protocol error occurred when communicating with the broker."},
      // A ClientHello passes for the packet CONNECT, and the answer is a fatal alert.
      {Reaction("\x15\x03\x03\x00\x02\x02\x28"s), [&] { settings.cafile = authority.file(); },
       ConnectionFailure::tls, "the broker refuses the TLS handshake: handshake failure"},
      {Reaction::answer, [&] { use_tls(authority.file(), authority.file()); }, ConnectionFailure::tls,
       "cafile, certfile or keyfile is damaged or empty, or the key belongs to another certificate"},
      {Reaction::answer, [&] { use_tls(authority.file(), authority.encrypted_key()); },
       ConnectionFailure::tls, "keyfile is encrypted; encrypted keys are not supported"},
      {Reaction::answer, [&] { use_tls("/no/such/file", authority.file()); }, ConnectionFailure::tls,
       "certfile '/no/such/file': No such file or directory"},
      {Reaction::answer, [&] { use_tls(authority.file(), fifo); }, ConnectionFailure::tls,
       "keyfile '" + fifo + "': not a regular file"},
  };
  for (const auto& c : cases) {
    settings = settings_for("127.0.0.1");
    c.change();
    open([&](const std::string&) { return c.to_connect; });
    EXPECT_THAT(run(1), ElementsAre("down: " + c.reason));
    EXPECT_EQ(listener.down, c.kind);
    connection.reset();  // before the settings that it refers to change
  }
}

TEST_F(ConnectionTest, AnOverdueAnswerFailsTheConnection) {
  settings.answer_timeout = 100ms;
  const std::pair<std::string, std::function<void()>> requests[] = {
      {"PUBLISH a=1", [&] { connection->publish("a", raw_message("1", true), Connection::Clock::now()); }},
      {"SUBSCRIBE a", [&] { connection->subscribe("a", 0); }},
      {"UNSUBSCRIBE a", [&] { connection->unsubscribe("a"); }},
      {"UNSUBSCRIBE $echo", [&] { connection->request_fence(Fence::publication); }},
  };
  for (const auto& [request, send] : requests) {
    listener.on_event = [&send = send](const std::string& event) { event == "up" ? send() : void(); };
    open([request = request](const std::string& packet) {
      return packet == request ? Reaction::ignore : Reaction::answer;
    });
    EXPECT_THAT(run(3), ElementsAre("up", "down: no acknowledgement", "up")) << request;
    EXPECT_EQ(listener.down, ConnectionFailure::no_answer);
  }
}

TEST_F(ConnectionTest, AFloodOfAnswersIsReadInParts) {
  listener.on_event = [this](const std::string&) {
    connection->subscribe("a", 0);
    connection->unsubscribe("a");
  };
  for (const auto& [packet, answer] : {std::pair{"CONNECT"s, "\x20\x02\x00\x00"s},
                                       {"SUBSCRIBE a", "\x90\x03\x00\x01\x00"s},
                                       {"UNSUBSCRIBE a", "\xb0\x02\x00\x01"s}}) {
    std::string flood;
    for (int i = 0; i < 1000; ++i) {
      flood += answer;
    }
    open([flood, answered = packet](const std::string& name) {
      return name == answered ? Reaction(flood) : Reaction::answer;
    });
    run_until([this] { return connection->more_to_read(); });
    EXPECT_TRUE(connection->more_to_read()) << packet;
  }
}

TEST_F(ConnectionTest, WhatCannotBeSentOrHandledIsLoggedAndAffectsNothingElse) {
  listener.on_event = [this](const std::string& event) {
    if (event == "in") {
      throw std::runtime_error("full");
    }
    connection->publish("a/+", raw_message("1"), Connection::Clock::now());
    connection->subscribe("a/#/b", 0);
    connection->unsubscribe("a/#/b");
    connection->subscribe("in", 0);
  };
  open(answer);
  const auto log = tests::logged_lines([this] { EXPECT_THAT(run(2), ElementsAre("up", "in")); });
  EXPECT_TRUE(connection->is_up());
  EXPECT_THAT(broker->packets(), ElementsAre("CONNECT", "SUBSCRIBE in"));
  const std::string module = "[tamu.com.mqtt] ", reason = ": Invalid function arguments provided.";
  EXPECT_THAT(log, ElementsAre("NOTICE " + module + "connected to " + settings.broker(),
                               "WARNING " + module + "cannot publish on topic a/+" + reason,
                               "WARNING " + module + "cannot subscribe to a/#/b" + reason,
                               "ERROR " + module + "incoming message on topic in lost: full"));
}

TEST_F(ConnectionTest, AConnectionThatIsLostAgainAndAgainIsLoggedOnceForEachReason) {
  open(answer);
  const auto log = tests::logged_lines([this] {
    std::size_t events = 0;
    for (const char* reason : {"one", "one", "one", "other", "other"}) {
      (void)run(++events);
      ++events;
      connection->fail({ConnectionFailure::internal, reason});
    }
    (void)run(events + 1);
  });
  const std::string module = "[tamu.com.mqtt] ", address = settings.broker();
  EXPECT_THAT(log, ElementsAre("NOTICE " + module + "connected to " + address,
                               "WARNING " + module + "connection to " + address + " lost: one",
                               "NOTICE " + module + "connected to " + address,
                               "WARNING " + module + "connection to " + address + " lost: other",
                               "NOTICE " + module + "connected to " + address));
}

TEST_F(ConnectionTest, OnlyOneNameLookupRunsAtATimeAndALateResultIsUsed) {
  settings.host = "broker.invalid";
  settings.connect_timeout = 10ms;
  // May outlive the test, like the thread of the lookup.
  struct Resolution {
    std::latch answered{1};
    std::atomic<int> lookups = 0;
  };
  const auto resolution = std::make_shared<Resolution>();
  open(answer, [resolution](const std::string&) {
    ++resolution->lookups;
    resolution->answered.wait();
    return LookupResult{{"127.0.0.1"}, ""};
  });
  const std::string no_answer = "down: name server does not answer";
  EXPECT_THAT(run(3), ElementsAre(no_answer, no_answer, no_answer));
  settings.connect_timeout = 10s;
  resolution->answered.count_down();
  EXPECT_EQ(run(4).back(), "up");
  EXPECT_EQ(resolution->lookups, 1);
}

TEST_F(ConnectionTest, EveryAddressIsTriedBeforeAnAttemptFailsAndALostConnectionNeedsALookup) {
  settings.host = "broker.invalid";
  const auto lookups = std::make_shared<std::atomic<int>>(0);
  open(answer, [lookups](const std::string&) {
    return ++*lookups == 1 ? LookupResult{{}, "no such host"} : LookupResult{{"127.0.0.2", "127.0.0.1"}, ""};
  });
  EXPECT_THAT(run(2), ElementsAre("down: no such host", "up"));
  connection->fail({ConnectionFailure::internal, "lost"});
  EXPECT_THAT(run(4), ElementsAre("down: no such host", "up", "down: lost", "up"));
  EXPECT_EQ(*lookups, 3);
}

TEST(NameLookupTest, ExplainsWhyAHostHasNoAddress) {
  EXPECT_THAT(look_up("192.0.2.1").addresses, ElementsAre("192.0.2.1"));
  const LookupResult too_long = look_up(std::string(300, 'x'));
  EXPECT_THAT(too_long.addresses, IsEmpty());
  EXPECT_NE(too_long.error, "");
  NameLookup without_memory("broker", [](const std::string&) -> LookupResult { throw std::bad_alloc(); });
  pollfd done{without_memory.fd(), POLLIN, 0};
  ASSERT_EQ(::poll(&done, 1, std::chrono::milliseconds(tests::time_limit).count()), 1);
  EXPECT_EQ(without_memory.take().error, "out of memory");
}

TEST(NameLookupTest, AsksNoNameServerForTheAddressesOfThisMachine) {
  EXPECT_THAT(known_addresses("localhost"), ElementsAre("::1", "127.0.0.1"));
  for (const char* address : {"127.0.0.1", "192.0.2.1", "::1", "2001:db8::1"}) {
    EXPECT_THAT(known_addresses(address), ElementsAre(address));
  }
  for (const char* name : {"broker", "localhost.example", "127.0.0.1.example", "fe80::1%eth0"}) {
    EXPECT_THAT(known_addresses(name), IsEmpty()) << name;
  }
}

}  // namespace
