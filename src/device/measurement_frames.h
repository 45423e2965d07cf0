#pragma once

#include <array>
#include <cstdint>

#include "device/command_codes.h"
#include "device/frame.h"

namespace kel {

/// One measurement report of the board: MEASURE_1..3 carry the currents of output pins 1-3,
/// 4-6 and 7-9 in mA, MEASURE_4 the supply rails (12 V, 5 V, 3.3 V) in mV, each in
/// value1..value3.
struct MeasurementSet {
  std::array<uint32_t, 9> currents_ma{};  ///< [i] is pin i + 1
  std::array<uint32_t, 3> rails_mv{};
};

/// Puts the four MEASURE frames of a report together, in whatever order they come.
class MeasurementCollector {
 public:
  /// Takes `frame` into the set when it is a MEASURE frame; false for any other frame.
  bool Take(const uint8_t* frame) {
    const uint32_t command = FrameWord(frame, 0);
    if (command < code::kMeasure1 || command > code::kMeasure4) return false;
    const uint32_t index = command - code::kMeasure1;
    uint32_t* words = index < 3 ? &set_.currents_ma[3 * index] : set_.rails_mv.data();
    for (size_t i = 0; i < 3; ++i) words[i] = FrameWord(frame, i + 1);
    have_ |= 1U << index;
    return true;
  }
  /// True once each of the four frames came since the start or the last Restart.
  bool Complete() const { return have_ == 0xF; }
  const MeasurementSet& Set() const { return set_; }
  /// Starts the next set.
  void Restart() { have_ = 0; }

 private:
  MeasurementSet set_;
  uint32_t have_ = 0;
};

}  // namespace kel
