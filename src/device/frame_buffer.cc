#include "device/frame_buffer.h"

namespace kel {

std::span<uint8_t> FrameBuffer::Space() {
  if (start_ > 0) {
    // The partial frame goes to the front, so that the next receive completes it.
    std::memmove(data_.data(), data_.data() + start_, end_ - start_);
    end_ -= start_;
    start_ = 0;
  }
  return std::span<uint8_t>(data_).subspan(end_);
}

void FrameBuffer::DropFramesIfFull() {
  if (end_ < data_.size()) return;
  start_ += (end_ - start_) / kFrameSize * kFrameSize;
  if (start_ == end_) start_ = end_ = 0;
}

}  // namespace kel
