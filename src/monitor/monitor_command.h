#pragma once

#include <string_view>

#include "core/command.h"

namespace kel {

/// `mon [<mode>] [<id>:<mask>] [<interval>] [<duration>]`: the live views of the
/// connection's frames (see ParseMonitorArgs).
ResultCode HandleMonitor(const CommandEntry& entry, std::string_view& rest, Output& out);

/// `trace [[i/]<regex>] [<duration>]`: the board's remote trace on this connection.
ResultCode HandleTrace(const CommandEntry& entry, std::string_view& rest, Output& out);

/// Names output pins (1-14) in the rows of `mon out`. The program wires in the board's
/// short pin names; without them a pin shows as "b<n>".
using PinNameFunction = std::string_view (*)(int pin);
void SetOutputPinNames(PinNameFunction name_of);

}  // namespace kel
