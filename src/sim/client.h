#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/socket.h"

namespace kel::sim {

/// Bytes taken from one connection per receive; whole frames are handled straight from it.
inline constexpr size_t kReadChunk = 64 * 1024;

/// Bytes waiting to go to one connection. Appends go to the back, sends take from the front.
class OutQueue {
 public:
  size_t Size() const { return data_.size() - head_; }
  const uint8_t* Data() const { return data_.data() + head_; }

  /// Room for `n` more bytes at the back, to be filled by the caller.
  uint8_t* Append(size_t n) {
    const size_t old = data_.size();
    data_.resize(old + n);
    return data_.data() + old;
  }

  /// Drops `n` sent bytes from the front; the storage moves down once most of it is spent.
  void Consume(size_t n) {
    head_ += n;
    if (head_ == data_.size()) {
      data_.clear();
      head_ = 0;
    } else if (head_ >= kReadChunk && head_ * 2 >= data_.size()) {
      data_.erase(data_.begin(), data_.begin() + static_cast<std::ptrdiff_t>(head_));
      head_ = 0;
    }
  }

 private:
  std::vector<uint8_t> data_;
  size_t head_ = 0;
};

/// One connection to a board channel, as the board's thread keeps it.
struct Client {
  platform::Socket socket;
  uint64_t serial = 0;  ///< unique per connection: delayed answers find their connection by it
  size_t slot = 0;      ///< index in the client table, and the poller token
  int channel = 0;
  int bus = 0;
  std::vector<uint8_t> in = std::vector<uint8_t>(kReadChunk);
  size_t in_size = 0;  ///< bytes held in `in`: whole frames not yet handled and a partial one
  OutQueue out;
  uint64_t bytes_sent = 0;
  uint32_t interest = 0;         ///< the poller events asked for now
  bool dirty = false;            ///< listed for the next flush
  bool congested = false;        ///< counted in its bus's congestion
  bool read_closed = false;      ///< the client sends no more
  bool waiting_for_bus = false;  ///< pacing holds its next CAN frame
  bool dead = false;             ///< closed; the slot is freed at the end of the wake-up
};

}  // namespace kel::sim
