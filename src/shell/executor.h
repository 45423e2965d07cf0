#pragma once

#include <string>
#include <string_view>

#include "core/output.h"
#include "core/result.h"

namespace kel {

/// Where device commands connect: the device address and its TCP port (device port
/// plus channel).
struct DeviceTarget {
  std::string address;
  int port = 0;
};

/// Runs every command of `text` (commands separated by ';', CR or LF) into `out`,
/// which it clears first, until the end or the first negative result; then closes the
/// device connection. Returns the last result, 0 when nothing ran. Not re-entrant: the
/// pending text is one process-wide buffer.
ResultCode RunCommandLine(const DeviceTarget& target, std::string_view text, Output& out);

/// Runs the first command of `pending` and takes it, with its separators, off the front.
ResultCode ExecuteCommand(const DeviceTarget& target, std::string_view& pending, Output& out);

/// Looks `name` up in the command table and calls its handler with `rest`; connects to
/// the device first when the command needs it.
ResultCode DispatchCommand(const DeviceTarget& target, std::string_view name,
                           std::string_view& rest, Output& out);

}  // namespace kel
