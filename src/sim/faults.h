#pragma once

#include <cstddef>
#include <cstdint>
#include <map>

#include "device/frame.h"
#include "sim/board.h"
#include "sim/config.h"

namespace kel::sim {

/// The unrelated frame sent before an answer when the noise fault is on: a CAN data frame
/// (id 0x7FF, eight bytes 0xA5, on `channel`) and an ESC_UP event, taking turns by `index`.
FrameBytes NoiseFrame(uint32_t index, int channel);

/// The bytes a connection may be sent before the close-after fault ends it: unlimited
/// without the fault, else the frames it allows and, with close_mid_frame, half a frame more.
uint64_t CloseLimitBytes(const Faults& faults);

/// Answers held back by the delayed-answer fault, due at a monotonic time in ms. Each
/// remembers its connection by slot and serial, so that an answer to a connection that has
/// gone, even if its slot was reused, is dropped.
class DelayedAnswers {
 public:
  void Add(uint64_t due_ms, uint64_t serial, size_t slot, const Answers& answers) {
    pending_.emplace(due_ms, Entry{serial, slot, answers});
  }
  bool Empty() const { return pending_.empty(); }
  uint64_t NextDueMs() const { return pending_.begin()->first; }

  /// Calls `send(serial, slot, answers)` for every entry due at `now_ms`, in due order.
  template <typename Send>
  void FireDue(uint64_t now_ms, Send send) {
    while (!pending_.empty() && pending_.begin()->first <= now_ms) {
      const Entry due = pending_.begin()->second;
      pending_.erase(pending_.begin());
      send(due.serial, due.slot, due.answers);
    }
  }

 private:
  struct Entry {
    uint64_t serial = 0;
    size_t slot = 0;
    Answers answers;
  };
  std::multimap<uint64_t, Entry> pending_;
};

}  // namespace kel::sim
