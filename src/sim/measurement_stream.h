#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kel::sim {

/// Measurement reporting per connection: GET_MEAS with an interval in value1 makes the board
/// send a measurement set to that connection every interval, until GET_MEAS 0 or the
/// connection goes. Each stream remembers its connection by slot and serial, so that a
/// stream of a connection that has gone, even if its slot was reused, ends.
class MeasurementStreams {
 public:
  /// A GET_MEAS from the connection (`serial`, `slot`) at `now_ms`: an interval of 0 ends its
  /// stream; any other starts it, or restarts it, at that interval (at least 1 ms), the
  /// first set due one interval from now (the answer is the set of now).
  void Request(uint64_t serial, size_t slot, uint32_t interval_ms, uint64_t now_ms);

  bool Empty() const { return streams_.empty(); }
  /// The monotonic time the earliest set is due; only when not Empty.
  uint64_t NextDueMs() const;

  /// Calls `send(serial, slot)` for every stream due at `now_ms`; a stream whose `send`
  /// returns false (its connection has gone) ends. A stream that fell behind by more than an
  /// interval sends one set and goes on from now, rather than sending the missed ones.
  template <typename Send>
  void FireDue(uint64_t now_ms, Send send) {
    for (size_t i = 0; i < streams_.size();) {
      Stream& s = streams_[i];
      if (s.next_due_ms > now_ms) {
        ++i;
        continue;
      }
      if (!send(s.serial, s.slot)) {
        streams_.erase(streams_.begin() + static_cast<std::ptrdiff_t>(i));
        continue;
      }
      s.next_due_ms += s.interval_ms;
      if (s.next_due_ms <= now_ms) s.next_due_ms = now_ms + s.interval_ms;
      ++i;
    }
  }

 private:
  struct Stream {
    uint64_t serial = 0;
    size_t slot = 0;
    uint32_t interval_ms = 0;
    uint64_t next_due_ms = 0;
  };
  std::vector<Stream> streams_;
};

}  // namespace kel::sim
