// The device link's reassembly of 16-byte frames from a stream that arrives in pieces of
// any size: every whole frame comes out once, in order, and unchanged, whether frames are
// taken one at a time or all at once.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "device/frame_buffer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  // The first byte sets the buffer's size and the piece sizes; the rest is the stream.
  const size_t capacity = 16 + data[0] % 64;
  const size_t piece = 1 + data[0] % 37;
  const uint8_t* stream = data + 1;
  const size_t length = size - 1;
  kel::FrameBuffer buffer(capacity);
  size_t fed = 0;
  size_t taken = 0;
  uint8_t frame[kel::kFrameSize];
  while (fed < length) {
    const std::span<uint8_t> space = buffer.Space();
    if (space.empty()) __builtin_trap();  // whole frames are always taken before the next piece
    const size_t n = std::min({piece, space.size(), length - fed});
    std::memcpy(space.data(), stream + fed, n);
    buffer.Added(n);
    fed += n;
    // Frames one at a time, or all that are whole at once where they lie, by turns.
    if ((fed / piece) % 2 == 0) {
      const std::span<const uint8_t> frames = buffer.TakeFramesInPlace();
      if (frames.size() % kel::kFrameSize != 0 || buffer.HasFrame()) __builtin_trap();
      if (std::memcmp(frames.data(), stream + taken, frames.size()) != 0) __builtin_trap();
      taken += frames.size();
    }
    while (buffer.HasFrame()) {
      buffer.TakeFrame(frame);
      if (std::memcmp(frame, stream + taken, kel::kFrameSize) != 0) __builtin_trap();
      taken += kel::kFrameSize;
    }
  }
  if (taken != length / kel::kFrameSize * kel::kFrameSize) __builtin_trap();
  if (buffer.Size() != length % kel::kFrameSize) __builtin_trap();
  return 0;
}
