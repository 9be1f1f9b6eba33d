#include <sys/stat.h>

#include <ecu/tamu/config/configuration.h>

#include "support/testing.h"

using ecu::tamu::config::Configuration;

namespace {

std::unique_ptr<Configuration> parsed(std::istream& input) {
  auto config = std::make_unique<Configuration>();
  config->register_key("qpread");
  set_config_from_input(config, input);
  return config;
}

std::unique_ptr<Configuration> parsed(const std::string& text) {
  std::istringstream input(text);
  return parsed(input);
}

std::string verified(const Configuration& config, bool expected) {
  return tests::logged_by([&] { EXPECT_EQ(config.verify(), expected); });
}

}  // namespace

TEST(ConfigurationTest, WellFormedFilesAreRead) {
  const std::pair<std::string, std::string> cases[] = {
      {"\t host \t=  a b\t ", "a b"},
      {"\n# host = x\n  # host = y\r\n\r\nhost=a\r\n", "a"},
      {"host = \" a \"", " a "},
      {"host = \"\"", ""},
      {"host = a=b#c # d", "a=b#c # d"},
      {"host = " + std::string(100'000, 'x') + "\nport = 1", std::string(100'000, 'x')},
      {"port = 65535\nkeepalive = 5\npresence = no\nloglevel = info\ncafile = /etc/passwd\ncertfile = "
       "/etc/passwd\nkeyfile=/etc/passwd",
       ""},
      {"keepalive = 65535\npresence =\nloglevel =\ncafile =\ncertfile =\nkeyfile =\nusername = u\nhost =",
       ""},
  };
  for (const auto& [text, host] : cases) {
    EXPECT_EQ(parsed(text)->get("host"), host);
    EXPECT_EQ(verified(*parsed(text), true), "");
  }
}

TEST(ConfigurationTest, ProgramsValueOverridesTheFilesWhichOverridesADefault) {
  const auto config = parsed("client_name = file\nqpread = file");
  config->set_default("qpread", "default");
  config->set_default("qpwrite", "default");
  config->set_value("client_name", "program");
  EXPECT_EQ(config->get("client_name"), "program");
  EXPECT_EQ(config->get("qpread"), "file");
  EXPECT_EQ(config->get("qpwrite"), "default");
}

TEST(ConfigurationTest, EachFaultIsOneErrorLineWithoutAnyPassword) {
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      {"host\n\npassword secret\npassword: secret = x",
       {"line 1: 'host'", "line 3: 'password'", "line 4: 'pass"}},
      {"= secret\npassword = \"secret\nhost = secret\"",
       {"line 1: ''", "line 2: 'password'", "line 3: 'host'"}},
      {"host = \"a\" b\nhost = \"a\"b\"\nhost = a\0b"s,
       {"line 1: 'host'", "line 2: 'host'", "line 3: 'host'"}},
      {"hots = a\r\nHost = b\r\n", {"line 1: unknown key 'hots'", "line 2: unknown key 'Host'"}},
      {"password = secret\n\npassword = secret", {"line 3: key 'password' is already set in line 1"}},
      {"port = 1\nport = 65536",
       {"line 2: key 'port' is already set in line 1", "line 2: key 'port': '65536'"}},
      {"port =", {"line 1: key 'port'"}},
      {"port = 0", {"line 1: key 'port'"}},
      {"port = +1", {"line 1: key 'port'"}},
      {"port = 1883 # default", {"line 1: key 'port'"}},
      {"port = 18446744073709551617", {"line 1: key 'port'"}},
      {"keepalive = 4\nloglevel = LOUD", {"line 1: key 'keepalive'", "line 2: key 'loglevel'"}},
      {"keepalive = 65536", {"line 1: key 'keepalive'"}},
      {"certfile = /etc/passwd", {"line 1: key 'certfile' requires key 'keyfile'"}},
      {"certfile =\nkeyfile = /etc/passwd", {"line 2: key 'keyfile' requires key 'certfile'"}},
      {"cafile = /nowhere\ncertfile = /\nkeyfile = /dev/null",
       {"1: key 'cafile'", "2: key 'cert", "3: key 'key"}},
  };
  for (const auto& [text, faults] : cases) {
    const std::string log = verified(*parsed(text), false);
    EXPECT_EQ(std::ranges::count(log, '\n'), std::ssize(faults)) << log;
    for (const std::string& fault : faults) {
      EXPECT_THAT(log, AllOf(HasSubstr(" ERROR "), HasSubstr(fault), Not(HasSubstr("secret"))));
    }
  }
}

TEST(ConfigurationTest, AnUnusableValueThatDoesNotPreventTheStartIsAWarning) {
  EXPECT_THAT(verified(*parsed("certfile = /etc/passwd\nkeyfile = /etc/passwd"), true),
              AllOf(HasSubstr(" WARNING "), HasSubstr("line 1: key 'certfile' has no effect without key "
                                                      "'cafile': the connection is not encrypted")));
  EXPECT_THAT(verified(*parsed("\npresence = No"), true),
              AllOf(HasSubstr(" WARNING "), HasSubstr("line 2: key 'presence': 'No'")));
}

TEST(ConfigurationTest, PasswordInAWorldReadableFileIsAWarning) {
  const std::string path = testing::TempDir() + "tolquil_" + std::to_string(::getpid()) + ".conf";
  std::ofstream file(path);
  const auto config = parsed("password = secret");
  config->set_source_file(path);
  ::chmod(path.c_str(), 0644);
  EXPECT_THAT(verified(*config, true), HasSubstr(" WARNING "));
  ::chmod(path.c_str(), 0640);
  EXPECT_EQ(verified(*config, true), "");
  ::unlink(path.c_str());
}

TEST(ConfigurationTest, InputThatCannotBeReadIsAFault) {
  std::ifstream directory("/");
  EXPECT_THAT(verified(*parsed(directory), false), HasSubstr(" ERROR "));
}
