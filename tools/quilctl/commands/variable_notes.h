#pragma once

#include "common/notes.h"
#include "quilctl/model/variable_view.h"

namespace ecu::ctl {

/// Tells the user when the bus holds no variable at all.
inline void note_if_nothing_is_published(const VariableView& view) {
  if (view.all().empty()) {
    tools::note(
        "no variable is published: no daemon has run with this broker, or the broker's access rules deny us "
        "access");
  }
}

}  // namespace ecu::ctl
