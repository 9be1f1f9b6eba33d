#include <ecu/quil/environment_daemon.h>
#include <ecu/quil/environment_variable.h>
#include <ecu/quil/process.h>

#include "support/fake_client.h"
#include "support/ports.h"
#include "support/rt_messages.h"
#include "support/testing.h"

namespace {

using namespace ecu::quil;
using ecu::tamu::com::PublishResult;
using ecu::tamu::config::Configuration;

class EnvironmentDaemonTest : public testing::Test {
 protected:
  std::vector<std::string> published_topics() const {
    std::vector<std::string> topics;
    for (const auto& publication : client->published) {
      topics.push_back(publication.topic);
    }
    return topics;
  }

  /// The log of `call` on this thread. The VIN requester's thread logs the start of its wait at its own time.
  template <class Call>
  static std::vector<std::string> lines_of(Call call) {
    std::vector<std::string> lines = tests::logged_lines(call);
    std::erase(lines, "DEBUG Start thread wait 12 seconds to Receive VIN");
    return lines;
  }

  std::shared_ptr<tests::FakeClient> client = std::make_shared<tests::FakeClient>();
  std::unique_ptr<Configuration> config = std::make_unique<Configuration>();
  std::unique_ptr<EnvironmentDaemon> daemon = std::make_unique<EnvironmentDaemon>(client, config);
};

TEST_F(EnvironmentDaemonTest, SubscribesOncePerEntryInRegistryOrderAndUnsubscribesAll) {
  const auto log = lines_of([this] {
    daemon->init();
    daemon->stop();
  });
  std::vector<std::string> topics{"system/quil/request/sysparam",   "system/quil/request/sysparams",
                                  "system/sysparams/write",         "system/quil/secstore/setmaster",
                                  "system/quil/secstore/setremote", "rt/system/rtc_ee",
                                  "rt/j1939can/rx/vi_00",           "rt/j1939can/rx/vi_ee",
                                  "rt/j1939can/rx/vi_fe",           "rt/system/hw_variant",
                                  "rt/system/version_hypervisor",   "rt/system/version_csp",
                                  "rt/system/version_tele_kernel",  "rt/system/version_tele_dtb",
                                  "rt/system/version_linux_kernel", "rt/system/version_update_kernel",
                                  "rt/system/version_update_dtb",   "rt/system/hw_variant",
                                  "rt/system/network_variant"};
  topics.insert(topics.end(), 17, "rt/system/hw_properties");
  topics.emplace_back("rt/io/kl15");
  EXPECT_EQ(client->subscribed, topics);
  EXPECT_EQ(client->max_qos_seen, 0);
  EXPECT_EQ(client->observers["rt/system/rtc_ee"].get(), daemon.get());
  EXPECT_THAT(
      log,
      ElementsAre("ERROR [QueuingPortHandler] Unable to open System Parameter queueing port for reading: ",
                  HasSubstr("UBootVersion"), "DEBUG Subscribed to 31 topics", "NOTICE Stop vin thread"));
  daemon.reset();
  EXPECT_THAT(client->unsubscribed, testing::UnorderedElementsAreArray(topics));
}

TEST_F(EnvironmentDaemonTest, EachPropertyIsPublishedFromItsOwnSignal) {
  daemon->init();
  tests::Group all;
  std::vector<std::string> topics;
  for (const std::string property :
       {"vehicle_type=vehicletype", "region=hwregion", "modem_type=modemtype", "diversity_antenna=divantenna",
        "is_wifi_bt=haswifibt", "is_external_wifi_bt_antenna=hasextwifibtant", "is_gnss=hasgnss",
        "is_ethernet1=haseth1", "is_ethernet2=haseth2", "is_accelerometer=hasaccelerometer",
        "is_digital_io=hasdigio", "is_d8=hasd8", "is_can1=hascan1", "is_can2=hascan2",
        "is_network_management=hasnm", "is_int_sim=hasintsim", "is_ext_sim=hasextsim"}) {
    const std::string signal = property.substr(0, property.find('='));
    daemon->message("rt/system/hw_properties", tests::Group().value(signal, 1).message());
    topics.push_back("system/var/" + property.substr(signal.size() + 1));
    EXPECT_THAT(published_topics(), ElementsAre(topics.back())) << signal;
    client->published.clear();
    all.value(signal, 1);
  }
  daemon->message("rt/system/hw_properties", all.message());
  EXPECT_EQ(published_topics(), topics);
}

TEST_F(EnvironmentDaemonTest, AMessageIsPassedToEveryEntryOfItsTopicEvenAfterOneThatTakesNoValue) {
  daemon->init();
  const auto log = lines_of([this] {
    for (const char* topic : {"rt/system/hw_variant/", "rt/system/hw_varian", "RT/system/hw_variant"}) {
      daemon->message(topic, tests::Group().bytes("variant", "R08").message());
    }
    daemon->message("rt/system/hw_variant", tests::Group().bytes("variant", "R08_B1").message(9));
    daemon->message("rt/system/hw_variant", tests::Group().bytes("variant", "R8").message());
  });
  const std::string version = "INFO Received data for EcuVar hwversion (from rt/system/hw_variant)",
                    variant = "INFO Received data for EcuVar hwvariant (from rt/system/hw_variant)";
  EXPECT_THAT(log, ElementsAre(version, "INFO HW Version: r08", variant, "INFO HW Variant: 'R08_B1'", version,
                               "NOTICE [HWVersionVariable] Received string too short",
                               "DEBUG Unable to extract EcuVar from topic: rt/system/hw_variant", variant,
                               "INFO HW Variant: 'R8'"));
  EXPECT_THAT(published_topics(),
              ElementsAre("system/var/hwversion", "system/var/hwvariant", "system/var/hwvariant"));
  const auto& message = client->published[1].message;
  EXPECT_TRUE(message.retained);
  EXPECT_EQ(tests::variable_in(message).value(), "R08_B1");
  EXPECT_EQ(tests::variable_in(message).timestamp(), 9u);
}

TEST_F(EnvironmentDaemonTest, PublishesVariablesWithoutAMessageAtTheStart) {
  daemon->init();
  const auto log = lines_of([this] { daemon->initial_publish(); });
  EXPECT_THAT(log, ElementsAre("WARNING [SysParam] Unable to find system parameter for TopVersion (0xa009)"));
  EXPECT_THAT(published_topics(), ElementsAre("system/var/versionuboot", "system/var/topversion"));
  EXPECT_TRUE(client->published[0].message.retained && client->published[1].message.retained);
  EXPECT_NE(tests::variable_in(client->published[0].message).value(), "");
  EXPECT_FALSE(tests::variable_in(client->published[1].message).has_value());
  daemon->sysparams_received();
  EXPECT_EQ(published_topics().back(), "system/var/topversion");
  EXPECT_EQ(client->published.size(), 3u);
}

TEST_F(EnvironmentDaemonTest, NothingIsWrittenToThePortOnceItIsStopped) {
  const tests::TempDir dir;
  tests::Fifo port(dir, "send");
  port.open();
  config->set_value("qpwrite", port.path());
  EnvironmentDaemon with_port(client, config);
  const auto set_secret = [this] {
    client->last_observer->message("system/quil/secstore/setmaster", tests::raw_message("x"));
  };
  set_secret();
  EXPECT_NE(port.read(), "");
  with_port.stop();
  set_secret();
  EXPECT_EQ(port.read(), "");
}

TEST_F(EnvironmentDaemonTest, PublishPassesOnItsFlagAndTheClientsResult) {
  const EnvironmentVariable variable("name", "topic", VariableSource::SIGNAL);
  client->result = PublishResult::overload;
  EXPECT_EQ(daemon->publish(variable, false), PublishResult::overload);
  EXPECT_THAT(published_topics(), ElementsAre("system/var/name"));
  EXPECT_FALSE(client->published[0].message.retained);
}

TEST(ProcessDeathTest, AnUncaughtExceptionIsLogged) {
  const auto fail = [](const auto& exception) {
    log_uncaught_exceptions();
    ecu::tamu::logging::set_log_mode(ecu::tamu::logging::LogMode::standard_error);
    std::thread([&] { throw exception; }).join();
  };
  EXPECT_DEATH(fail(std::runtime_error("full")),
               "ALERT uncaught exception, the process ends: full\nterminate called");
  EXPECT_DEATH(fail(1), "ALERT uncaught exception, the process ends\nterminate called");
}

}  // namespace
