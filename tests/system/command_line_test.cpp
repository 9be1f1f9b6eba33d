#include "system/daemon.h"

namespace tests {
namespace {

constexpr const char* version_text = "HEAD - 13.3.0 - 48a1f73 - 2022-04-06 14:26:03 +0200 - DEBUG\n";

constexpr const char* usage_text =
    "Usage: tolquil [OPTION]\n"
    "\n"
    "Options:\n"
    "\n"
    "  -c, --config CONFIG     Provide a configuration file\n"
    "  -v, --verbose           Set verbose logging\n"
    "  -L, --log-stdout        Set logging to STDOUT instead of syslog\n"
    "  -l, --loglevel          Enforces the loglevel and overrides the LOG_LEVEL\n"
    "        Possible values: EMERG, ALERT, CRITICAL, ERROR, WARNING, NOTICE, INFO, DEBUG\n"
    "        Default: NOTICE\n"
    "  -H, --help              Show this help\n"
    "  -V, --version           Show version\n"
    "\n";

TEST(CommandLineTest, OptionsThatEndTheProgramHaveTheirExitCodeAndText) {
  // The text is that on standard output; log lines are without their times.
  for (const auto& [options, status, text] :
       std::vector<std::tuple<std::vector<std::string>, int, std::string>>{
           {{"-V"}, 0, version_text},
           {{"-L", "-v", "--version", "-x"}, 0, version_text},
           {{"-H"}, 1, usage_text},
           {{"--help", "-V"}, 1, usage_text},
           {{"-x"}, 1, usage_text},
           {{"-c"}, 1, usage_text},
           {{"extra"}, 1, ""},
           {{"extra", "-H"}, 1, usage_text},
           {{"-L", "extra"}, 1, "ERROR No additional arguments required!\n"},
           {{"-L", "--", "-V"}, 1, "ERROR No additional arguments required!\n"},
           {{"-L", "-c", "/no/such/file"}, 1, "ERROR Unable to open configuration file!\n"},
           {{"-L", "-l", "CRITICAL", "-c", "/no/such/file"}, 1, ""},
       }) {
    auto command = options;
    command.insert(command.begin(), program);
    Process process(command);
    EXPECT_EQ(process.wait(), status) << testing::PrintToString(options);
    std::string written = process.standard_output();
    if (text.starts_with("ERROR")) {
      written.erase(0, written.find(' ') + 1);
    }
    EXPECT_EQ(written, text) << testing::PrintToString(options);
  }
  const std::string without_reader = R"(exec > >(:); wait $!; exec "$0" -L extra)";
  EXPECT_EQ(Process({"/bin/bash", "-c", without_reader, program}).wait(), 1);
}

TEST(CommandLineTest, AToolNamesTheInvalidWord) {
  for (const auto& [line, text] : std::vector<std::pair<std::string, std::string>>{
           {"quilctl lst", "unknown command 'lst'; did you mean 'list'?\n"},
           {"quilctl secstore sett master -",
            "unknown command 'sett'; did you mean 'set'?\nquilctl secstore --help "},
           {"quilctl param watch", "unknown command 'watch'\n"},
           {"quilctl param", "a command is missing\n"},
           {"quilctl --jsno", "unknown option '--jsno'\n"},
           {"QUILCTL_PORT=0 quilctl describe", "QUILCTL_PORT: "},
           {"QUILCTL_PORT=0 quilctl describe -p 0", "--port: "},
           {"quilctl watch --table --json", "--json excludes --table\n"},
           {"quilctl record - --json", "--json: "},
           {"quilctl decode --count 0", "--count: "},
           {"quilctl --host \"\" describe", "--host: "},
           {"quilctl watch --exec \"\"", "--exec: "},
           {"quilctl list --format \"\"", "--format: "},
           {"quilctl list a --raw", "--raw: for one value only, or with --format\n"},
           {"ecusim --ports \"\"", "--ports: '' is not a folder\n"},
           {"ecusim \"\"", "SCENARIO: "},
           {"ecusim fleet --host a:0", "invalid address 'a:0'"},
           {"ecusim fleet --host mqtts://a", "the units of a fleet connect without TLS"},
       }) {
    Process tool({"/bin/sh", "-c", "PATH=\"" PROGRAM_DIR ":$PATH\"; " + line});
    EXPECT_EQ(tool.wait(), 2) << line;
    const std::string name = line.starts_with("ecusim") ? "ecusim: " : "quilctl: ";
    EXPECT_THAT(tool.output(), testing::StartsWith(name + text)) << line;
  }
}

TEST(CommandLineTest, AConfigurationThatFailsVerificationEndsTheProgram) {
  Daemon daemon("port = 70000\nhots = x\n", {"-L"});
  EXPECT_EQ(daemon.wait(), 1);
  EXPECT_THAT(lines_of(daemon.standard_output()), testing::SizeIs(2)) << daemon.output();
}

TEST(CommandLineTest, ATerminalThatStopsBackgroundWritersDoesNotStopTheDaemon) {
  const std::string in_background = "stty tostop; set -m; " + program + " -V & wait $!; echo status $?";
  Process terminal({"/usr/bin/script", "-qec", in_background, "/dev/null"});
  EXPECT_EQ(terminal.wait(), 0);
  EXPECT_THAT(terminal.output(), AllOf(HasSubstr("13.3.0"), HasSubstr("status 0")));
}

TEST(CommandLineTest, TheCommandLineOverridesTheFileAndALaterOptionAnEarlierOne) {
  for (const auto& [config, options, debug_goes_to] :
       std::vector<std::tuple<std::string, std::vector<std::string>, std::string>>{
           {"", {"-L", "-v", "-l", "ERROR"}, "nowhere"},
           {"", {"-L", "--loglevel=ERROR", "--verbose"}, "stdout"},
           {"loglevel = DEBUG", {"-L"}, "stdout"},
           {"loglevel = DEBUG", {"-L", "-l", "ERROR"}, "nowhere"},
           {"loglevel = ERROR", {"-L", "-v"}, "stdout"},
           {"logmode = stderr", {"-L", "-v"}, "stdout"},
           {"logmode = bad", {"-L", "-v"}, "stdout"},
           {"logmode = stdout\nloglevel = DEBUG", {}, "stdout"},
           {"logmode = stderr", {"-v"}, "stderr"},
           {"logmode = syslog", {"-v"}, "nowhere"},
       }) {
    DatagramSocket manager;
    Daemon daemon("host = /no/such/socket\n" + config, options, {"NOTIFY_SOCKET=" + manager.path()});
    EXPECT_TRUE(manager.wait_for(HasSubstr("READY=1")));
    daemon.signal(SIGTERM);
    EXPECT_EQ(daemon.wait(), 0);
    const auto subscribed = [](const std::string& log) { return count(log, " DEBUG Subscribed to ") == 1; };
    EXPECT_EQ(subscribed(daemon.standard_output()) ? "stdout"
              : subscribed(daemon.output())        ? "stderr"
                                                   : "nowhere",
              debug_goes_to)
        << config << testing::PrintToString(options) << daemon.output();
    EXPECT_EQ(count(daemon.output(), "logmode"), 0) << daemon.output();
  }
}

}  // namespace
}  // namespace tests
