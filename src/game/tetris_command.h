#pragma once

#include <string_view>

#include "core/command.h"

namespace kel {

/// tetris: the console game, at a terminal only; elsewhere it returns 0 at once and
/// writes nothing. Its result line is the final score and the rows cleared.
ResultCode HandleTetris(const CommandEntry& entry, std::string_view& rest, Output& out);

}  // namespace kel
