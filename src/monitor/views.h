#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "core/command.h"
#include "monitor/live_loop.h"
#include "monitor/monitor_args.h"

namespace kel {

// The live views of `mon`, one per mode. Each prints its title and rows to the console and
// its result line into `out`.
ResultCode RunCanView(const CommandEntry& entry, const MonitorArgs& args, Output& out);
ResultCode RunIdsView(const CommandEntry& entry, const MonitorArgs& args, Output& out);
ResultCode RunCurrentsView(const CommandEntry& entry, const MonitorArgs& args, Output& out);
ResultCode RunOutputsView(const CommandEntry& entry, const MonitorArgs& args, Output& out);

/// " for 90 s", " for 1500 ms", or "" without a limit: the duration in a view's title.
std::string ForDurationText(const std::optional<uint32_t>& duration_ms);

/// The milliseconds since `start_ms`, cut to 32 bits.
uint32_t ElapsedSince(uint64_t start_ms);

/// Ends a view: its result line is already in `out`; a board that closed the connection
/// fails it with -13, a failed exchange with -101, an interrupt request with user
/// termination after that line.
ResultCode FinishView(const CommandEntry& entry, LiveEnd end, size_t start, Output& out);

/// The tick of a view that has nothing to do between frames.
inline bool NoTick(uint32_t /*elapsed_ms*/) { return true; }

/// The short name of output pin 1-14 in the rows of `mon out`.
std::string_view OutputPinName(int pin);

}  // namespace kel
