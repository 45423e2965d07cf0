#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

#include "board/tune.h"
#include "core/command.h"
#include "device/device_link.h"

namespace kel {

/// The buzzer's limits as `buzz` accepts them, and its defaults.
inline constexpr uint32_t kBuzzMinHz = 20;
inline constexpr uint32_t kBuzzMaxHz = 20000;
inline constexpr uint32_t kBuzzDefaultMs = 200;
inline constexpr uint32_t kBuzzDefaultDuty = 50;

/// How a tune ended.
struct PlayOutcome {
  ResultCode result = kOk;  ///< kOk, also when `stop` ended it early; -101 when a frame failed
  uint32_t notes_played = 0;
};

/// Plays `tune` through `link`: each note is a BUZZER frame (value3 = kBuzzerHeld) that
/// sounds for the note's sounding time, then an all-zero BUZZER frame, and the rest of the
/// note's length in silence; pauses send nothing. The times are kept against one clock, so
/// a long tune does not drift. While waiting it takes (and drops) what the board sends, so
/// that a closed connection ends the tune at once, and asks `stop` about every 20 ms; when
/// that says yes the tune ends there. A note that sounds is always followed by the
/// all-zero frame, whatever ends the tune.
PlayOutcome PlayTune(DeviceLink& link, const Tune& tune, const std::function<bool()>& stop);

/// buzz <freq|note|off> [<duration>] [<duty>]: one BUZZER frame.
ResultCode HandleBuzz(const CommandEntry& entry, std::string_view& rest, Output& out);
/// play <notes>: the tune of the rest of the command, note by note. A key at the terminal
/// stops it; Ctrl-C or SIGTERM end the program only once the buzzer is silent.
ResultCode HandlePlay(const CommandEntry& entry, std::string_view& rest, Output& out);

}  // namespace kel
