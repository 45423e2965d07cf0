#pragma once

#include <string_view>

#include "core/command.h"

namespace kel {

// The shell's own commands.
ResultCode HandleHelp(const CommandEntry& entry, std::string_view& rest, Output& out);
ResultCode HandleDebug(const CommandEntry& entry, std::string_view& rest, Output& out);
ResultCode HandleDelay(const CommandEntry& entry, std::string_view& rest, Output& out);
ResultCode HandleQuit(const CommandEntry& entry, std::string_view& rest, Output& out);
ResultCode HandleClearScreen(const CommandEntry& entry, std::string_view& rest, Output& out);

}  // namespace kel
