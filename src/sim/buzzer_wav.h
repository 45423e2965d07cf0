#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "sim/buzzer.h"

namespace kel::sim {

/// The sound of the recording: 16-bit PCM, one channel.
inline constexpr uint32_t kWavSampleRate = 44100;
inline constexpr int16_t kWavAmplitude = 8192;
/// The longest stretch of one tone and of silence the file keeps, so that a forgotten
/// tone or an idle board cannot fill the disk.
inline constexpr uint64_t kWavMaxToneMs = 60'000;
inline constexpr uint64_t kWavMaxSilenceMs = 10'000;
/// The file stops growing at this size of its sound data.
inline constexpr uint64_t kWavMaxDataBytes = uint64_t{1} << 31;

/// The 44-byte header of a WAV file of 16-bit PCM mono at kWavSampleRate with
/// `data_bytes` bytes of sound.
std::array<uint8_t, 44> WavHeader(uint32_t data_bytes);

/// `count` samples of a square wave at `frequency_hz` that is high for `duty` percent of
/// each period, starting at the beginning of a period; duty outside 1-99 is silence.
std::vector<int16_t> SquareWave(uint32_t frequency_hz, uint32_t duty, uint64_t first,
                                uint64_t count);

/// Writes what the buzzer plays into a WAV file as the BUZZER frames come: each tone as a
/// square wave at its frequency and duty, from the frame that starts it until its duration
/// is over or the next frame ends it, and silence between tones. The file starts with the
/// first tone. Its header is brought up to date after every stretch written, so the file
/// is whole whenever the program ends.
class BuzzerRecording {
 public:
  BuzzerRecording() = default;
  /// Finish()es the recording.
  ~BuzzerRecording();
  BuzzerRecording(const BuzzerRecording&) = delete;
  BuzzerRecording& operator=(const BuzzerRecording&) = delete;

  /// Creates (or empties) the file at `path` and writes the header of no sound. False
  /// when the file cannot be written.
  bool Open(const std::string& path);
  /// Takes the next BUZZER frame's tone: the tone before it ends, the new one starts.
  void Take(const Tone& tone);
  /// Ends a tone that still sounds now, and closes the file.
  void Finish();
  /// True once a write failed; the file then stays as it was before.
  bool Failed() const { return failed_; }

 private:
  void WriteTone(const Tone& tone, uint64_t elapsed_ms);
  void WriteSamples(const std::vector<int16_t>& samples);
  void UpdateHeader();

  std::ofstream file_;
  bool failed_ = false;
  bool started_ = false;  // a tone has been written
  uint64_t end_ms_ = 0;   // when the written sound ends
  uint64_t data_bytes_ = 0;
  std::optional<Tone> sounding_;  // the tone that sounds and is not written yet
};

}  // namespace kel::sim
