#pragma once

#include <string_view>

#include "core/command.h"

namespace kel {

// The output pin commands. set, clr and toggle change the named pins and read them back;
// yank toggles them for a while and restores them; out reads the output states.
ResultCode HandleSetOutput(const CommandEntry& entry, std::string_view& rest, Output& out);
ResultCode HandleClearOutput(const CommandEntry& entry, std::string_view& rest, Output& out);
ResultCode HandleToggleOutput(const CommandEntry& entry, std::string_view& rest, Output& out);
ResultCode HandleYank(const CommandEntry& entry, std::string_view& rest, Output& out);
ResultCode HandleOutputs(const CommandEntry& entry, std::string_view& rest, Output& out);

}  // namespace kel
