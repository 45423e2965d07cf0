#pragma once

#include <cstdint>

namespace kel::platform {

/// The process exit status that carries a command result. On Linux a status holds
/// 8 bits, so the result's low 8 bits are returned (-100 becomes 156).
int ExitStatusForResult(int32_t result);

/// Reads a child's exit status back as the result it carried (156 becomes -100).
int32_t ResultFromExitStatus(int status);

}  // namespace kel::platform
