#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

#include "device/command_codes.h"
#include "device/frame.h"

namespace kel::sim {

/// How many BUZZER frames the board remembers.
inline constexpr size_t kToneHistory = 256;

/// One BUZZER frame as the board took it: value2 = frequency << 16 | duty,
/// value3 = duration. A frame with frequency 0 silences the buzzer.
struct Tone {
  uint32_t frequency_hz = 0;
  uint32_t duty = 0;         ///< percent of each period the output is high
  uint32_t duration_ms = 0;  ///< kBuzzerHeld: until the next BUZZER frame
  uint64_t at_ms = 0;        ///< when the board took it, ms of the monotonic clock

  bool Sounds() const { return frequency_hz != 0; }
  bool Held() const { return duration_ms == kBuzzerHeld; }
  /// True while the tone sounds at `now_ms`, if no later frame ended it: a tone
  /// with a duration ends by itself after it; a held one lasts.
  bool SoundsAt(uint64_t now_ms) const {
    return Sounds() && (Held() || now_ms < at_ms + duration_ms);
  }
  bool operator==(const Tone&) const = default;
};

/// The board's buzzer: the last tone it was given and the ones before it. A tone is given
/// by a BUZZER frame, and a power-on reset gives a silence to a buzzer that still sounds.
struct BuzzerState {
  Tone current;            ///< the last tone given; silent before the first
  std::deque<Tone> tones;  ///< the last kToneHistory tones given, oldest first
  uint64_t frames = 0;     ///< every tone given since the start
};

/// Reads the tone of a BUZZER frame (`frame` is its 16 bytes) taken at `at_ms`.
Tone ToneOfFrame(const uint8_t* frame, uint64_t at_ms);

/// Makes `tone` the buzzer's current one and adds it to the history.
void TakeTone(BuzzerState* buzzer, const Tone& tone);

/// The line `kelsim --verbose` prints for a tone, without its line end:
///   "kelsim: buzzer 440 Hz 50% for 200 ms", "kelsim: buzzer 262 Hz 50% held",
///   "kelsim: buzzer off".
std::string ToneText(const Tone& tone);

}  // namespace kel::sim
