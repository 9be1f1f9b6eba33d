#include <chrono>
#include <iostream>
#include <string>

#include <ecu/tamu/com/pb_internal_message_adapter.h>
#include <ecu/tamu/pb/messages.pb.h>

#include "quilctl/base/notes.h"
#include "quilctl/commands/commands.h"
#include "quilctl/model/values.h"
#include "quilctl/model/variable_catalogue.h"
#include "quilctl/model/variable_rows.h"
#include "quilctl/model/variable_view.h"
#include "quilctl/screen/text_table.h"
#include "quilctl/talk/request_session.h"

namespace ecu::ctl {

namespace com = tamu::com;

namespace {

constexpr const char* parameter_request = "system/quil/request/sysparam";
constexpr const char* parameter_answer = "system/sysparam/";
constexpr const char* top_version_id = "40969";  // the parameter that a unit has before all others

constexpr const char* nothing_published =
    "nothing is published: no daemon has been here, or the broker's access rules keep us from hearing it";

// What an answer of the daemon may take before ages are left out.
constexpr std::chrono::milliseconds clock_patience{500};

// Any answer tells the unit's clock; what retained messages say was true when they were sent.
void ask_for_clock(Conversation& talk, const VariableView& view, UnitClock& clock) {
  if (talk.bus().is_local()) {
    clock.take_own();
    return;
  }
  if (view.daemon_on_line() == false) {
    return;
  }
  tamu::pb::EcuVariableReq request;
  request.add_name(top_version_id);
  if (auto message = com::PbInternalMessageAdapter<tamu::pb::EcuVariableReq>().serialize(request)) {
    (void)talk.bus().publish(parameter_request, std::move(*message));
  }
  (void)talk.wait_until([&clock] { return clock.known(); }, Conversation::Clock::now() + clock_patience);
}

void print_table(const VariableView& view, const UnitClock& clock) {
  Table table(variable_headings());
  for (const VariableRow& row : variable_rows(view)) {
    table.add(columns_of(row, clock));
  }
  table.print(std::cout, OutputStyle::of_standard_output());
}

void note_if_nothing_is_published(const VariableView& view) {
  if (view.all().empty()) {
    note(nothing_published);
  }
}

[[noreturn]] void miss(const std::string& name, const VariableView& view) {
  if (find_variable(name) == nullptr && view.find(name) == nullptr) {
    throw Failure(ExitCode::unknown, "no variable is named " + name + "; quilctl describe lists them");
  }
  note_if_nothing_is_published(view);
  if (view.daemon_on_line() == false) {
    throw Failure(ExitCode::daemon_off_line, name + " has no value, and the daemon is off line");
  }
  if (!view.daemon_on_line() && view.all().empty()) {
    throw Failure(ExitCode::daemon_off_line, name + " has no value, and no daemon says that it is on line");
  }
  throw Failure(ExitCode::no_value, name + " has no value");
}

void print_info(const VariableInfo& info) {
  std::cout << info.name << "\n  " << info.meaning << "\n  kind       " << info.kind << "\n  source     "
            << (info.source_topic.empty() ? "-" : info.source_topic)
            << (info.signal.empty() ? "" : ", signal ") << info.signal << "\n  published  "
            << info.published_when << "\n  example    " << info.example << '\n';
}

Json json_of(const VariableInfo& info) {
  return {{"name", info.name},      {"meaning", info.meaning}, {"source", info.source_topic},
          {"signal", info.signal},  {"kind", info.kind},       {"published_when", info.published_when},
          {"example", info.example}};
}

}  // namespace

ExitCode list(const Options& options) {
  VariableView view;
  UnitClock clock;
  Conversation talk(options, {all_variables, daemon_presence, parameter_answer}, [&](const Event& event) {
    if (view.take(event.text, event.message) == VariableView::Change::faulty) {
      note("a message on " + event.text + " cannot be decoded");
    } else if (event.text != daemon_presence) {
      clock.take(event.message);
    }
  });
  ask_for_clock(talk, view, clock);
  if (options.json) {
    for (const VariableRow& row : variable_rows(view)) {
      print_json(json_of(row, clock));
    }
  } else {
    print_table(view, clock);
  }
  note_if_nothing_is_published(view);
  if (view.daemon_on_line() == false) {
    note("the daemon is off line: these are the values that it published last");
  }
  return ExitCode::done;
}

ExitCode get(const Options& options) {
  const std::string& name = options.words.front();
  if (name.empty() || name.find_first_of("+#") != std::string::npos) {
    throw Failure(ExitCode::unknown, "no variable is named '" + name + "'");
  }
  VariableView view;
  bool is_faulty = false;  // the variable's last message
  // All of them, as one of the others tells that there was a daemon.
  Conversation talk(options, {all_variables, daemon_presence}, [&](const Event& event) {
    const auto change = view.take(event.text, event.message);
    is_faulty = variable_of(event.text) == name ? change == VariableView::Change::faulty : is_faulty;
  });
  const auto has_value = [&] {
    const Variable* const variable = view.find(name);
    return variable != nullptr && variable->value.has_value();
  };
  if (!has_value() && options.wait &&
      (find_variable(name) != nullptr || view.find(name) != nullptr || is_faulty)) {
    talk.allow(*options.wait);
    if (!talk.wait_until(has_value) && !is_faulty) {
      throw Failure(ExitCode::time_out, name + " got no value within " + talk.time_limit());
    }
  }
  if (!has_value() && is_faulty) {
    throw Failure(ExitCode::failure,
                  "the message on system/var/" + name + " cannot be decoded; quilctl decode shows it");
  }
  if (!has_value()) {
    miss(name, view);
  }
  if (view.daemon_on_line() == false) {
    note("the daemon is off line: this is the value that it published last");
  }
  const Variable& variable = *view.find(name);
  if (options.json) {
    print_json({{"name", name}, {"value", json_value(variable.value)}, {"timestamp_ns", variable.timestamp}});
  } else {
    print_value(options, *variable.value);
  }
  return ExitCode::done;
}

ExitCode describe(const Options& options) {
  for (const VariableInfo& info : variables()) {
    if (!options.words.empty() && info.name != options.words.front()) {
      continue;
    }
    if (options.json) {
      print_json(json_of(info));
    } else {
      print_info(info);
    }
  }
  if (!options.words.empty() && find_variable(options.words.front()) == nullptr) {
    throw Failure(ExitCode::unknown, "no variable is named " + options.words.front());
  }
  return ExitCode::done;
}

}  // namespace ecu::ctl
