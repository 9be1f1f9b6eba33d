#include "quilctl/commands/commands.h"

namespace ecu::ctl {

ExitCode run(const Options& options) {
  switch (options.command) {
    case Command::list:
      return list(options);
    case Command::get:
      return get(options);
    case Command::watch:
      return watch(options);
    case Command::describe:
      return describe(options);
    case Command::param_get:
      return param_get(options);
    case Command::param_list:
      return param_list(options);
    case Command::param_set:
      return param_set(options);
    case Command::secstore_get:
      return secstore_get(options);
    case Command::secstore_set:
      return secstore_set(options);
    case Command::status:
      return status(options);
    case Command::check:
      return check(options);
    case Command::decode:
      return decode(options);
    case Command::record:
      return record(options);
    case Command::replay:
      return replay(options);
  }
  return ExitCode::failure;
}

}  // namespace ecu::ctl
