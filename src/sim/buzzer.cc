#include "sim/buzzer.h"

#include <cstdio>

namespace kel::sim {

Tone ToneOfFrame(const uint8_t* frame, uint64_t at_ms) {
  const uint32_t value2 = FrameWord(frame, 2);
  Tone tone;
  tone.frequency_hz = value2 >> 16;
  tone.duty = value2 & 0xFFFF;
  tone.duration_ms = FrameWord(frame, 3);
  tone.at_ms = at_ms;
  return tone;
}

void TakeTone(BuzzerState* buzzer, const Tone& tone) {
  buzzer->current = tone;
  if (buzzer->tones.size() == kToneHistory) buzzer->tones.pop_front();
  buzzer->tones.push_back(tone);
  ++buzzer->frames;
}

std::string ToneText(const Tone& tone) {
  if (!tone.Sounds()) return "kelsim: buzzer off";
  char text[96];
  if (tone.Held()) {
    std::snprintf(text, sizeof text, "kelsim: buzzer %u Hz %u%% held", tone.frequency_hz,
                  tone.duty);
  } else {
    std::snprintf(text, sizeof text, "kelsim: buzzer %u Hz %u%% for %u ms", tone.frequency_hz,
                  tone.duty, tone.duration_ms);
  }
  return text;
}

}  // namespace kel::sim
