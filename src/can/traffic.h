#pragma once

#include <cstdint>

#include "can/send_text.h"
#include "device/frame.h"
#include "platform/clock.h"
#include "platform/interrupt.h"

namespace kel {

/// The live progress line of a traffic command, printed to the console between
/// repetitions: the first time, then at most about once a second. The line shows the
/// count of messages handled, the total and the count handled since the line before.
class ProgressLine {
 public:
  /// `format` takes three unsigned values: done, total, done since the last line.
  ProgressLine(const char* format, uint32_t total);

  /// Prints the line for `done` messages handled when none was printed yet or a second has
  /// passed since the last. With `defer`, only when none was printed yet: the clock is not
  /// read, and a deferred update after the first line costs no call.
  void Update(uint32_t done, bool defer = false) {
    if (defer && last_count_ != 0) return;
    UpdateNow(done, defer);
  }

 private:
  void UpdateNow(uint32_t done, bool defer);

  const char* format_;
  uint32_t total_;
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

/// One message of a walk as the four words of its frame (see CanDataFrame), held as
/// numbers: a walk keeps them in registers, where bytes would be stored and loaded again.
struct MessageWords {
  uint32_t id = 0;
  uint32_t info = 0;
  uint32_t data_low = 0;   ///< data bytes 0-3, the payload of counter and time messages
  uint32_t data_high = 0;  ///< data bytes 4-7

  /// The data bytes 0-7 as one little-endian number.
  uint64_t Data() const { return uint64_t{data_high} << 32 | data_low; }
  /// The frame as it goes on the stream.
  FrameBytes Bytes() const {
    FrameBytes frame;
    SetFrameWord(frame.data(), 0, id);
    SetFrameWord(frame.data(), 1, info);
    SetFrameWord(frame.data(), 2, data_low);
    SetFrameWord(frame.data(), 3, data_high);
    return frame;
  }
};

/// The first message of `spec` as words: its frame (BuildFrame), payload 0.
inline MessageWords FirstMessage(const SendSpec& spec) {
  const FrameBytes frame = BuildFrame(spec);
  return {FrameWord(frame.data(), 0), FrameWord(frame.data(), 1), FrameWord(frame.data(), 2),
          FrameWord(frame.data(), 3)};
}

/// Walks the messages of `spec` in the order the sender sends them and the receiver
/// expects them, calling `visit(message)` for each: per repetition r the payload is set
/// (counter: r; time: milliseconds since the walk began), then each identifier from first
/// to last in turn. After each repetition it pauses for the interval and calls
/// `after_repetition()` (the progress line). Stops and returns false as soon as `visit`
/// returns false. An interrupt request cuts the pause short.
template <typename Visit, typename AfterRepetition>
bool ForEachMessage(const SendSpec& spec, Visit&& visit, AfterRepetition&& after_repetition) {
  MessageWords message = FirstMessage(spec);
  const PayloadClock clock;
  const uint32_t repeat = RepeatCount(spec);
  for (uint32_t r = 0; r < repeat; ++r) {
    if (spec.count) {
      message.data_low = r;
    } else if (spec.time) {
      message.data_low = clock.ElapsedMs();
    }
    // 64-bit, so that a range ending at 0xFFFFFFFF ends.
    for (uint64_t id = spec.first_id; id <= spec.last_id; ++id) {
      message.id = static_cast<uint32_t>(id);
      if (!visit(static_cast<const MessageWords&>(message))) return false;
    }
    if (spec.interval_ms != 0) platform::SleepUnlessInterrupted(spec.interval_ms);
    after_repetition();
  }
  return true;
}

}  // namespace kel
