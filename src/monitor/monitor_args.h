#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kel {

/// What `mon` shows.
enum class MonitorMode {
  kCan,       ///< every frame received: CAN frames as table rows, command frames named
  kIds,       ///< one line per identifier: count, period, last data
  kCurrents,  ///< measurement rows streamed by the board
  kOutputs,   ///< a row when an output changes
};

/// candump's `<id>:<mask>` filter: a CAN frame passes when (id & mask) == (filter id & mask).
struct IdFilter {
  uint32_t id = 0;
  uint32_t mask = 0;
  bool Passes(uint32_t frame_id) const { return ((frame_id ^ id) & mask) == 0; }
};

/// The arguments of `mon [<mode>] [<id>:<mask>] [<interval>] [<duration>]`.
struct MonitorArgs {
  MonitorMode mode = MonitorMode::kCan;
  std::optional<IdFilter> filter;
  std::optional<uint32_t> interval_ms;  ///< nothing: the mode's default
  std::optional<uint32_t> duration_ms;  ///< nothing: until a key or the board's end
};

/// Reads the words of `mon` off the front of `rest` (up to the command's end):
///   - the mode first, whole word, any case: can/data, ids, curr/current, out/output
///     (none: can);
///   - `<id>:<mask>`, hexadecimal with or without 0x, up to 8 digits each (can and ids
///     only): "123:7FF", "0x18DA00F1:0x1FFFFF00";
///   - durations (ParseDurationWord): one is the duration, two are the interval then the
///     duration. can takes no interval; ids redraws at its interval; curr and out measure
///     at it (at least 1 ms).
/// Nothing for any other word, a second filter, a third duration or an interval of 0.
///   "curr 1ms 80s" -> kCurrents, interval 1, duration 80000; "out 90s" -> duration 90000
std::optional<MonitorArgs> ParseMonitorArgs(std::string_view& rest);

/// The arguments of `trace [[i/]<regex>] [<duration>]`.
struct TraceArgs {
  std::string pattern;       ///< POSIX extended; empty matches every line
  bool ignore_case = false;  ///< the pattern was written "i/<regex>"
  std::optional<uint32_t> duration_ms;
};

/// Reads the words of `trace` off the front of `rest`. A single word that is a duration
/// (ParseDurationWord) and not quoted is the duration; otherwise the first word (quotes
/// removed) is the pattern and a second word must be a duration. Nothing when it is not.
///   "GET_BAUD 500ms" -> "GET_BAUD", 500; "500ms" -> "", 500; "i/esc" -> "esc", ignore case;
///   "\"12\"" -> "12", forever
std::optional<TraceArgs> ParseTraceArgs(std::string_view& rest);

/// True when `word` is a duration: a number (digits, an optional fraction) with no unit or
/// one of ms, s, m, h, d, w, or the word "forever". `ms` is then its milliseconds as
/// ParseDuration reads them, nothing for "forever" (no limit).
///   "500ms" -> 500; "1.5s" -> 1500; "90" -> 90; "forever" -> no limit; "5x", "ms" -> false
bool ParseDurationWord(std::string_view word, std::optional<uint32_t>& ms);

}  // namespace kel
