#include <getopt.h>

#include <cstdlib>
#include <iostream>

#include <ecu/quil/options.h>
#include <ecu/tamu/logging/logging.h>

namespace ecu::quil {

namespace logging = tamu::logging;

namespace {

constexpr const char* version = "HEAD - 13.3.0 - 48a1f73 - 2022-04-06 14:26:03 +0200 - DEBUG";

constexpr const char* short_options = "Hc:l:vVL";
constexpr option long_options[] = {
    {"config", required_argument, nullptr, 'c'}, {"loglevel", required_argument, nullptr, 'l'},
    {"verbose", no_argument, nullptr, 'v'},      {"log-stdout", no_argument, nullptr, 'L'},
    {"version", no_argument, nullptr, 'V'},      {"help", no_argument, nullptr, 'H'},
    {nullptr, no_argument, nullptr, 0},
};

}  // namespace

Options& options() {
  static Options options;
  return options;
}

bool parse_opts(int argc, char* argv[]) {
  for (int opt = 0; (opt = getopt_long(argc, argv, short_options, long_options, nullptr)) != -1;) {
    switch (opt) {
      case 'c':
        options().config_path = optarg;
        break;
      case 'l':
        options().log_level = optarg;
        break;
      case 'v':
        options().log_level = "DEBUG";
        break;
      case 'L':
        options().log_to_stdout = true;
        logging::set_log_mode(logging::LogMode::standard_output);
        break;
      case 'V':
        std::cout << version << std::endl;
        std::exit(EXIT_SUCCESS);
      default:
        return false;
    }
  }
  if (optind < argc) {
    logging::error("No additional arguments required!");
    std::exit(EXIT_FAILURE);
  }
  return true;
}

void usage() {
  std::cout << "Usage: tolquil [OPTION]\n\n"
               "Options:\n\n"
               "  -c, --config CONFIG     Provide a configuration file\n"
               "  -v, --verbose           Set verbose logging\n"
               "  -L, --log-stdout        Set logging to STDOUT instead of syslog\n"
               "  -l, --loglevel          Enforces the loglevel and overrides the LOG_LEVEL\n"
               "        Possible values: EMERG, ALERT, CRITICAL, ERROR, WARNING, NOTICE, INFO, DEBUG\n"
               "        Default: "
            << logging::get_default_log_level_name()
            << "\n"
               "  -H, --help              Show this help\n"
               "  -V, --version           Show version\n"
            << std::endl;
}

}  // namespace ecu::quil
