#include "platform/process.h"

namespace kel::platform {

int ExitStatusForResult(int32_t result) { return static_cast<int>(result) & 0xFF; }

int32_t ResultFromExitStatus(int status) { return static_cast<int8_t>(status & 0xFF); }

}  // namespace kel::platform
