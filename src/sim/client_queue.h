#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kel::sim {

/// Bytes taken from one connection per receive; whole frames are handled straight from it.
inline constexpr size_t kReadChunk = 64 * 1024;

/// How much may wait to go to one connection, and how long a connection may take nothing.
struct QueueLimits {
  /// A queue holding more than this is full: while its connection still takes bytes, the
  /// board holds the CAN frames of its bus back (lossless back-pressure).
  size_t full_bytes = 1024 * 1024;
  /// A full queue is relieved once it holds less than this.
  size_t relieved_bytes = 256 * 1024;
  /// A full queue whose connection takes no byte for this long is not being read: it stops
  /// holding the bus, and frames for it are lost while it stays full.
  uint32_t stall_ms = 1000;
  /// A connection that takes no byte for this long while its queue is full is closed.
  uint32_t close_ms = 10000;
};

/// Where a queue stands.
enum class QueueState {
  kFlowing,     ///< not full
  kFull,        ///< full, and its connection takes bytes: it holds its bus
  kNotReading,  ///< full, and its connection took nothing for stall_ms: frames are lost
};

/// The frames waiting to go to one connection. Appends go to the back, sends take from the
/// front; the queue tells a connection that reads slowly (kFull) from one that does not
/// read at all (kNotReading), by the time since it last took a byte.
class ClientQueue {
 public:
  void SetLimits(const QueueLimits& limits) { limits_ = limits; }

  size_t Size() const { return tail_ - head_; }
  const uint8_t* Data() const { return data_.data() + head_; }
  QueueState State() const { return state_; }
  /// Appends lost because the connection did not read: one per frame, as frames are
  /// appended one at a time.
  uint64_t Lost() const { return lost_; }

  /// Room for `n` more bytes at the back, to be filled by the caller; null when the
  /// connection is not reading and its queue is full: the bytes are lost. The room is not
  /// cleared first: every frame routed costs an append, so it is a check and a bump here.
  uint8_t* Append(size_t n, uint64_t now_ms) {
    if (state_ == QueueState::kNotReading || head_ == tail_ || tail_ + n > data_.size()) {
      return AppendSlowly(n, now_ms);
    }
    uint8_t* const room = data_.data() + tail_;
    tail_ += n;
    return room;
  }

  /// Drops `n` sent bytes from the front at `now_ms`: the connection takes bytes.
  void Consume(size_t n, uint64_t now_ms);

  /// Moves the state on by the size and the time `now_ms`; true when it changed.
  bool Update(uint64_t now_ms);

  /// True when the connection has taken nothing for close_ms while its queue stayed full.
  bool Expired(uint64_t now_ms) const;

  /// When Update or Expired may next change their answer without any send (0: never).
  uint64_t NextDeadlineMs() const;

  /// Milliseconds since the connection last took a byte (or since bytes began to wait).
  uint64_t IdleMs(uint64_t now_ms) const { return now_ms - progress_ms_; }

 private:
  // Append when the queue is not reading, was empty or has no room behind its bytes.
  uint8_t* AppendSlowly(size_t n, uint64_t now_ms);

  QueueLimits limits_;
  std::vector<uint8_t> data_;  // the bytes held are [head_, tail_); the rest is room
  size_t head_ = 0;
  size_t tail_ = 0;
  QueueState state_ = QueueState::kFlowing;
  uint64_t progress_ms_ = 0;
  uint64_t lost_ = 0;
};

}  // namespace kel::sim
