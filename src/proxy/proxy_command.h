#pragma once

#include <string_view>

#include "core/command.h"

namespace kel {

/// `proxy [start|on|stop|off|view|status]`: starts or stops the process-wide proxy, then
/// writes its status line; no word, "view" or "status" only writes the status.
ResultCode HandleProxy(const CommandEntry& entry, std::string_view& rest, Output& out);

}  // namespace kel
