#pragma once

#include <string>
#include <string_view>

#include "config/settings.h"
#include "core/command.h"
#include "logging/logging_service.h"

namespace kel {

/// The status lines of `log`: the service's state with the settings' size, count, name
/// and path, then one line per connection.
std::string LoggingStatusText(const LoggingStatus& status, const Settings& settings);

/// `log` / `logging`: shows the status, starts and stops the service, writes comment
/// notes and changes the file name, path, size, count and the monitor flags.
ResultCode HandleLog(const CommandEntry& entry, std::string_view& rest, Output& out);

}  // namespace kel
