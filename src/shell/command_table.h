#pragma once

#include <string_view>
#include <vector>

#include "core/command.h"

namespace kel {

/// The 42 commands in their fixed order; lookup takes the first match.
const std::vector<CommandEntry>& CommandTable();

/// The first row with a name equal to `name` without regard to case, or null.
const CommandEntry* FindCommand(std::string_view name);

}  // namespace kel
