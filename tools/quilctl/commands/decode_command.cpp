#include <iostream>

#include "quilctl/base/notes.h"
#include "quilctl/commands/commands.h"
#include "quilctl/model/decoding.h"
#include "quilctl/model/values.h"
#include "quilctl/talk/bus_connection.h"
#include "quilctl/talk/monitor_session.h"

namespace ecu::ctl {

namespace {

constexpr const char* all_topics = "#";

void print(const Options& options, const Event& event) {
  Json decoded = decode(event.text, event.message, options.reveal);
  if (options.json) {
    decoded["at"] = iso_time(event.at);
    print_json(decoded);
  } else {
    std::cout << local_time(event.at) << '\n';
    print_decoded(std::cout, decoded);
    std::cout << std::endl;
  }
}

void decode_messages(const Options& options, LongWatch& watch) {
  for (unsigned shown = 0; std::cout && (!options.count || shown < *options.count);) {
    const auto event = watch.next();
    if (!watch.news().empty()) {
      note(watch.news());
    }
    if (event && event->kind == Event::Kind::message) {
      print(options, *event);
      ++shown;
    }
  }
}

}  // namespace

ExitCode decode(const Options& options) {
  Bus bus(options.broker);
  bus.subscribe(options.filter.empty() ? all_topics : options.filter);
  bus.connect();
  LongWatch watch(options, bus);
  try {
    decode_messages(options, watch);
  } catch (const Interrupted&) {
    // The way for it to end.
  }
  note_losses(watch);
  return std::cout ? ExitCode::done : ExitCode::failure;
}

}  // namespace ecu::ctl
