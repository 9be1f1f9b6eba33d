#include "quilctl/talk/variable_session.h"

#include <ecu/tamu/com/system_parameters.h>
#include <ecu/tamu/com/topics.h>

#include "common/notes.h"
#include "quilctl/talk/parameter_client.h"

namespace ecu::ctl {

namespace topics = tamu::com::topics;

namespace {

// Without a reply of the daemon in this time there are no ages.
constexpr std::chrono::milliseconds clock_timeout{500};

std::vector<std::string> filters(bool with_clock) {
  return with_clock ? std::vector<std::string>{topics::all_variables_filter, topics::daemon_presence,
                                               topics::parameter_answer}
                    : std::vector<std::string>{topics::all_variables_filter, topics::daemon_presence};
}

}  // namespace

VariableSession::VariableSession(const Options& options, bool with_clock,
                                 std::chrono::duration<double> default_timeout)
    : source_(options.arguments),
      session_(
          options, filters(with_clock), [this](const Event& event) { (void)source_.take(event); },
          default_timeout) {
  if (session_.bus().is_local()) {
    source_.use_local_clock();
  }
}

// Any live message has the unit's time; the send time of a retained message is in the past. Each unit has the
// parameter that is requested here.
void VariableSession::determine_clock() {
  if (clock().known() || view().daemon_on_line() == false) {
    return;
  }
  request_parameters(session_, {tamu::com::top_version_id});
  (void)session_.wait_until([this] { return clock().known(); }, RequestSession::Clock::now() + clock_timeout);
}

void VariableSession::note_if_nothing_is_published() const {
  if (view().all().empty()) {
    tools::note(
        "no variable is published: no daemon has run with this broker, or the broker's access rules deny "
        "access");
  }
}

bool VariableSession::is_without_daemon() const {
  return view().daemon_on_line() ? !*view().daemon_on_line() : view().all().empty();
}

}  // namespace ecu::ctl
