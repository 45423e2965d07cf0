#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

#include "device/frame.h"

namespace kel {

/// The bytes of a frame stream received and not handed out yet: whole 16-byte frames at
/// the front, at most one partial frame behind them. Receives go straight into its free
/// space, so a fast stream costs one system call per buffer, not per frame.
///
///   FrameBuffer buffer(64 * 1024);
///   std::span<uint8_t> space = buffer.Space();
///   buffer.Added(Receive(socket, space.data(), space.size()));
///   while (buffer.HasFrame()) buffer.TakeFrame(frame);
class FrameBuffer {
 public:
  explicit FrameBuffer(size_t capacity) : data_(capacity < kFrameSize ? kFrameSize : capacity) {}

  /// True when a whole frame waits.
  bool HasFrame() const { return end_ - start_ >= kFrameSize; }
  /// Copies the next whole frame into `frame`. Only when HasFrame.
  void TakeFrame(uint8_t* frame) { std::memcpy(frame, TakeFrameInPlace(), kFrameSize); }
  /// Hands out the next whole frame where it lies: valid until the next Space or Added.
  /// Only when HasFrame.
  const uint8_t* TakeFrameInPlace() { return Take(kFrameSize); }

  /// Hands out every whole frame held, where they lie: a span of whole frames, valid
  /// until the next Space or Added; empty when none is held.
  std::span<const uint8_t> TakeFramesInPlace() {
    const size_t whole = (end_ - start_) / kFrameSize * kFrameSize;
    return {Take(whole), whole};
  }

  /// The free space behind the bytes held, which move to the front first; empty when the
  /// buffer is full.
  std::span<uint8_t> Space();
  /// Counts `n` bytes received into Space() as held.
  void Added(size_t n) { end_ += n; }
  /// Drops every whole frame held, keeping a partial one, when the buffer is full.
  void DropFramesIfFull();
  /// Drops everything held, a partial frame too.
  void Clear() { start_ = end_ = 0; }
  /// Bytes held.
  size_t Size() const { return end_ - start_; }

 private:
  // Hands out `n` held bytes from the front, where they lie.
  const uint8_t* Take(size_t n) {
    const uint8_t* const bytes = data_.data() + start_;
    start_ += n;
    if (start_ == end_) start_ = end_ = 0;
    return bytes;
  }

  std::vector<uint8_t> data_;
  size_t start_ = 0;
  size_t end_ = 0;
};

}  // namespace kel
