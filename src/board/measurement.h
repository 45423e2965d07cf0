#pragma once

#include <string_view>

#include "core/command.h"
#include "device/device_link.h"
#include "device/measurement_frames.h"

namespace kel {

/// Asks for one measurement report (GET_MEAS with all words zero, which also ends any
/// reporting the connection asked for) and collects its four frames, in any order, within
/// 5000 ms; other frames are dropped and a "." is printed for every second without a frame,
/// as in a transaction. False when the report is not complete in time or the link fails.
bool ReadMeasurementSet(DeviceLink& link, MeasurementSet& set);

/// `curr [<ioport>,...]`: the currents of the output pins 1-9 (or of the named ones) and the
/// rail voltages.
ResultCode HandleCurrent(const CommandEntry& entry, std::string_view& rest, Output& out);

}  // namespace kel
