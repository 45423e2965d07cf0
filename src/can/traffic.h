#pragma once

#include <cstdint>

#include "can/send_text.h"
#include "device/frame.h"
#include "platform/clock.h"
#include "platform/interrupt.h"

namespace kel {

/// The live progress line of a traffic command, printed to the console between
/// repetitions: the first time, then at most about once a second. `done` is the caller's
/// counter of messages handled; the line shows it, the total and the count handled since
/// the line before.
class ProgressLine {
 public:
  /// `format` takes three unsigned values: done, total, done since the last line.
  ProgressLine(const char* format, uint32_t total, const uint32_t& done);

  /// Prints the line when none was printed yet or a second has passed since the last.
  /// With `defer`, only when none was printed yet: the clock is not read, and a deferred
  /// update after the first line costs no call.
  void Update(bool defer = false) {
    if (defer && last_count_ != 0) return;
    UpdateNow(defer);
  }

 private:
  void UpdateNow(bool defer);

  const char* format_;
  uint32_t total_;
  const uint32_t& done_;
  uint32_t last_count_ = 0;
  uint64_t last_ms_;
};

/// Milliseconds since construction, from the monotonic high-resolution clock, cut to 32
/// bits: the payload of time messages.
class PayloadClock {
 public:
  PayloadClock() : start_ns_(platform::MonotonicNs()) {}
  uint32_t ElapsedMs() const {
    return static_cast<uint32_t>((platform::MonotonicNs() - start_ns_) / 1000000);
  }

 private:
  uint64_t start_ns_;
};

/// Walks the messages of `spec` in the order the sender sends them and the receiver
/// expects them, calling `visit(frame)` for each: per repetition r the payload is set
/// (counter: r; time: milliseconds since the walk began), then each identifier from first
/// to last in turn. After each repetition it pauses for the interval and calls
/// `after_repetition()` (the progress line). Stops and returns false as soon as `visit`
/// returns false. An interrupt request cuts the pause short.
template <typename Visit, typename AfterRepetition>
bool ForEachMessage(const SendSpec& spec, Visit&& visit, AfterRepetition&& after_repetition) {
  FrameBytes frame = BuildFrame(spec);
  const PayloadClock clock;
  const uint32_t repeat = RepeatCount(spec);
  for (uint32_t r = 0; r < repeat; ++r) {
    if (spec.count) {
      SetPayload(frame, r);
    } else if (spec.time) {
      SetPayload(frame, clock.ElapsedMs());
    }
    // 64-bit, so that a range ending at 0xFFFFFFFF ends.
    for (uint64_t id = spec.first_id; id <= spec.last_id; ++id) {
      SetFrameWord(frame.data(), 0, static_cast<uint32_t>(id));
      if (!visit(static_cast<const FrameBytes&>(frame))) return false;
    }
    if (spec.interval_ms != 0) platform::SleepUnlessInterrupted(spec.interval_ms);
    after_repetition();
  }
  return true;
}

}  // namespace kel
