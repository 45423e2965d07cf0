#include "platform/process.h"

namespace kel::platform {

// A Windows exit code holds the whole 32-bit result.
int ExitStatusForResult(int32_t result) { return static_cast<int>(result); }

int32_t ResultFromExitStatus(int status) { return static_cast<int32_t>(status); }

}  // namespace kel::platform
