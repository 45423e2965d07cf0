#pragma once

#include <algorithm>
#include <cstring>
#include <vector>

#include "device/frame.h"
#include "sim/client.h"

namespace kel::sim {

/// The connections that asked for the remote trace (INTERNAL 7 with value3 != 0). A tap gets
/// a copy of every whole frame the board takes from, and sends to, every other connection;
/// copies are traffic of their own and are not copied again. A tap that falls behind by
/// more than kTapBacklogBytes loses copies rather than holding any bus back.
class TraceTaps {
 public:
  bool Empty() const { return taps_.empty(); }

  /// Starts (`on`) or ends the tap of `c`.
  void Set(Client& c, bool on) {
    Remove(c);
    if (on) taps_.push_back(&c);
  }
  /// Forgets `c`; called when it closes.
  void Remove(const Client& c) { std::erase(taps_, &c); }

  /// True when `c` is a tap: its full queue never holds a bus back.
  bool Contains(const Client& c) const {
    return std::find(taps_.begin(), taps_.end(), &c) != taps_.end();
  }

  /// Queues a copy of `frame`, taken from or sent to `about`, to every other tap at
  /// `now_ms` and calls `queued(tap)` for each; returns the number of copies lost to taps
  /// that are behind (or do not read at all).
  template <typename Queued>
  uint64_t Copy(const Client& about, const uint8_t* frame, uint64_t now_ms, Queued queued) const {
    uint64_t lost = 0;
    for (Client* tap : taps_) {
      if (tap == &about || tap->dead) continue;
      uint8_t* out =
          tap->out.Size() < kTapBacklogBytes ? tap->out.Append(kFrameSize, now_ms) : nullptr;
      if (out == nullptr) {
        ++lost;
        continue;
      }
      std::memcpy(out, frame, kFrameSize);
      queued(*tap);
    }
    return lost;
  }

  static constexpr size_t kTapBacklogBytes = 4 * 1024 * 1024;

 private:
  std::vector<Client*> taps_;
};

}  // namespace kel::sim
