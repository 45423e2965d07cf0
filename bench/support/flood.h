#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/socket.h"

namespace kel::bench {

/// How many frames one block holds.
inline constexpr size_t kBlockFrames = 4096;

/// A block of CAN data frames with eight data bytes each; identifiers run from `first_id`
/// through `first_id + id_span - 1` and over again.
std::vector<uint8_t> FrameBlock(uint32_t first_id, uint32_t id_span);

/// A blocking connection to port `port` of 127.0.0.1; exits the program with status 1 when
/// nothing accepts there.
platform::Socket ConnectLocal(uint16_t port);

/// Sends `frames` frames of `block` (again and again) and takes in `expect_frames` frames,
/// both as fast as the connection goes. Returns early if the connection fails.
void Pump(const platform::Socket& socket, const std::vector<uint8_t>& block, size_t frames,
          size_t expect_frames);

}  // namespace kel::bench
