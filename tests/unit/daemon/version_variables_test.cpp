#include <ecu/quil/serial_task.h>
#include <ecu/quil/uboot_version.h>
#include <ecu/quil/version_variables.h>

#include "support/rt_messages.h"
#include "support/temp_dir.h"
#include "support/testing.h"

namespace {

using namespace ecu::quil;

const std::string unset(16, '\xff');

TEST(SWVersion, IsTheUnchangedRecord) {
  for (const std::string& record :
       {"1.2.3-rc4\0\0\0\0\0\0\0"s, std::string(16, '\0'), std::string(15, '\xff') + '\xfe'}) {
    CSPVersionVariable variable;
    EXPECT_TRUE(variable.extract(tests::Group().bytes("version", record).message(4)));
    EXPECT_EQ(variable.value(), record);
    EXPECT_EQ(variable.timestamp(), 4u);
    EXPECT_FALSE(variable.extract(tests::Group().bytes("version", unset).message(5)));
    EXPECT_EQ(variable.value(), record);
    EXPECT_EQ(variable.timestamp(), 4u);
  }
}

TEST(SWVersion, ReportsUnderItsPublishedName) {
  TPAKernelVersionVariable variable;
  const auto log = tests::logged_lines([&] {
    variable.extract(tests::Group().bytes("version", "0123456789abcde\x7f").message());
    variable.extract(tests::Group().bytes("version", unset).message());
    variable.extract(tests::Group().bytes("data", unset).message());
    variable.extract(tests::raw_message(""));
  });
  const std::string name = "SWVersionVariable:versiontpakernel", at = "rt/system/version_linux_kernel";
  EXPECT_THAT(
      log, ElementsAre(
               "DEBUG " + name + "(48495051525354555657979899100101127) ",
               "INFO SwVersion:versiontpakernel: 0123456789abcde\\x7f",
               "DEBUG " + name + "(" + "255255255255255255255255255255255255255255255255) ",
               "NOTICE Ignore unset " + name,
               "ERROR [" + name + "] Unable to extract 'version' signal from SignalGroup for topic: " + at,
               testing::_, "ERROR [" + name + "] Unable to deserialize (error 1) message for topic: " + at));
}

TEST(SWVersionDeathTest, ARecordOfAnotherSizeEndsTheProcessAndIsLogged) {
  for (const char* record : {"", "0123456789abcde", "0123456789abcdefg"}) {
    const auto message = tests::Group().bytes("version", record).message();
    const auto extract = [&] {
      ecu::tamu::logging::set_log_mode(ecu::tamu::logging::LogMode::standard_error);
      CSPVersionVariable().extract(message);
    };
    EXPECT_DEATH(
        extract(),
        "ALERT \\[SWVersionVariable:versioncsp\\] The version record on rt/system/version_csp holds " +
            std::to_string(std::string(record).size()) +
            R"( bytes instead of 16.*sw_s->data\(\)\.size\(\) == 16)");
  }
}

TEST(UBootVersion, IsTheTextBetweenTheFirstTwoDashesAfterTheName) {
  const std::pair<const char*, const char*> cases[] = {
      {"U-Boot 2015.07-r12-gabcdef", "r12"},
      {"U-Boot 2015.07-r12", "r12"},
      {"U-Boot-r1-", "r1"},
      {"U-Boot SPL 2016.01-", ""},
      {"U-Boot--r12", ""},
      {"U-Boot SPL 2016.01", "U"},
      {"U-Boot", "U"},
      {"", "Unknown"},
      {"U-Boo", "Unknown"},
      {"u-boot 2015.07-r12", "Unknown"},
      {" U-Boot-r12", "Unknown"},
  };
  for (const auto& [text, version] : cases) {
    EXPECT_EQ(uboot_version(text), version) << text;
  }
}

TEST(UBootVersion, IsReadFromThePageNineMebibytesIntoTheDevice) {
  const tests::TempDir dir;
  const std::string path = dir.path("mem");
  const auto read = [&](const std::string& memory) {
    std::ofstream(path, std::ios::binary).seekp(0x900000) << memory;
    std::filesystem::resize_file(path, 0x900000 + 0x20000);
    return read_uboot_version(path.c_str());
  };
  const std::string name = "U-Boot 1-";
  EXPECT_EQ(read("u-boot 1-r12"), "Unknown");
  const auto log = tests::logged_lines([&] { EXPECT_EQ(read(name + "r12\0-x"s), "r12"); });
  EXPECT_THAT(log, ElementsAre("INFO UBootVersion (original string): " + name + "r12"));
  const std::string endless = name + std::string(0x20000 - name.size(), 'x');
  EXPECT_EQ(read(endless).size() + name.size(), static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)));
}

TEST(UBootVersion, IsUnknownWhenTheMemoryCannotBeRead) {
  const tests::TempDir dir;
  const std::string path = dir.write("mem", "U-Boot 1-r12");
  std::filesystem::resize_file(path, 0x900000);
  const auto log = tests::logged_lines([&] {
    EXPECT_EQ(read_uboot_version("/nonexistent"), "Unknown");
    EXPECT_EQ(read_uboot_version("/"), "Unknown");
    EXPECT_EQ(read_uboot_version(path.c_str()), "Unknown");
  });
  EXPECT_THAT(log, ElementsAre("ALERT [UBootVersionVariable] Could not open U-Boot device",
                               "ERROR [UBootVersionVariable] Can't map memory",
                               "ERROR [UBootVersionVariable] Can't map memory"));
}

TEST(TopVersion, KeepsTheTimeOfTheLastChange) {
  std::string version;
  const TopVersionVariable variable([&] { return version; });
  const auto log = tests::logged_lines([&] {
    EXPECT_EQ(tests::variable_in(*variable.to_message()).SerializeAsString(), "");
    version = "1.2";
    const auto first = tests::variable_in(*variable.to_message());
    EXPECT_EQ(first.value(), "1.2");
    EXPECT_GT(first.timestamp(), 0u);
    EXPECT_EQ(tests::variable_in(*variable.to_message()).timestamp(), first.timestamp());
    version = "1.3";
    EXPECT_GT(tests::variable_in(*variable.to_message()).timestamp(), first.timestamp());
  });
  EXPECT_THAT(log, ElementsAre("INFO Top Version: 1.2", "INFO Top Version: 1.3"));
  EXPECT_THROW((void)TopVersionVariable(nullptr).value(), std::bad_function_call);
}

// The start-up publishes the top version on the main thread while the first parameters arrive on another.
TEST(TopVersion, PublishedByTwoThreadsTheLastPublicationHoldsTheLastValue) {
  constexpr int rounds = 500;
  std::atomic<int> version = 0;
  const TopVersionVariable variable([&] { return std::to_string(version); });
  std::vector<std::string> published;
  SerialTask publish([&] { published.push_back(tests::variable_in(*variable.to_message()).value()); });
  std::latch start(2);
  const auto work = [&] {
    start.arrive_and_wait();
    for (int i = 0; i < rounds; ++i) {
      ++version;
      publish.request();
    }
  };
  std::thread other(work);
  work();
  other.join();
  EXPECT_EQ(published.size(), 2u * rounds);
  EXPECT_EQ(published.back(), std::to_string(2 * rounds));
}

TEST(SerialTask, RunsAgainAfterItsTaskThrew) {
  int runs = 0;
  SerialTask task([&] { ++runs == 1 ? throw std::runtime_error("") : 0; });
  EXPECT_THROW(task.request(), std::runtime_error);
  task.request();
  EXPECT_EQ(runs, 2);
}

}  // namespace
