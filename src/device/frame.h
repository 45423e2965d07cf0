#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kel {

/// Every frame on the board's stream is 16 bytes: four 32-bit little-endian words.
inline constexpr size_t kFrameSize = 16;
using FrameBytes = std::array<uint8_t, kFrameSize>;

/// A command or its answer. The first word always has bit 31 set.
struct CommandFrame {
  uint32_t command = 0;
  uint32_t value1 = 0;
  uint32_t value2 = 0;
  uint32_t value3 = 0;
};

/// One CAN message. The identifier's bit 31 is always clear.
///   bytes 0-3   id
///   byte  4     dlc
///   byte  5     info: bits 0-1 channel, bit 7 extended identifier
///   byte  6     flag_r
///   byte  7     flag_s
///   bytes 8-15  data
/// Seen as the second word: bits 0-7 DLC, 8-9 channel, 15 extended, 16-23 flag_r,
/// 24-31 flag_s (bit 24 asks for an echo, bit 25 marks the echo).
struct CanDataFrame {
  uint32_t id = 0;
  uint8_t dlc = 0;
  uint8_t info = 0;
  uint8_t flag_r = 0;
  uint8_t flag_s = 0;
  std::array<uint8_t, 8> data{};

  uint32_t InfoWord() const {
    return uint32_t{dlc} | uint32_t{info} << 8 | uint32_t{flag_r} << 16 | uint32_t{flag_s} << 24;
  }
  void SetInfoWord(uint32_t word) {
    dlc = static_cast<uint8_t>(word);
    info = static_cast<uint8_t>(word >> 8);
    flag_r = static_cast<uint8_t>(word >> 16);
    flag_s = static_cast<uint8_t>(word >> 24);
  }
  int Channel() const { return info & 0x03; }
  bool Extended() const { return (info & 0x80) != 0; }
};

inline constexpr uint32_t kInfoExtended = 1U << 15;     ///< second word: 29-bit identifier
inline constexpr uint32_t kInfoRemote = 1U << 16;       ///< second word: remote request
inline constexpr uint32_t kInfoEchoRequest = 1U << 24;  ///< second word: echo wanted
inline constexpr uint32_t kInfoEcho = 1U << 25;         ///< second word: this is the echo

/// Word `index` (0-3) of a frame, little-endian.
/// On a little-endian host this is one load: the hot loops over received frames (the
/// receiver's check, kelsim's routing) read words where frames lie.
inline uint32_t FrameWord(const uint8_t* bytes, size_t index) {
  const uint8_t* p = bytes + 4 * index;
  if constexpr (std::endian::native == std::endian::little) {
    uint32_t word;
    std::memcpy(&word, p, sizeof word);
    return word;
  } else {
    return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
  }
}

inline void SetFrameWord(uint8_t* bytes, size_t index, uint32_t word) {
  uint8_t* p = bytes + 4 * index;
  if constexpr (std::endian::native == std::endian::little) {
    std::memcpy(p, &word, sizeof word);
    return;
  }
  p[0] = static_cast<uint8_t>(word);
  p[1] = static_cast<uint8_t>(word >> 8);
  p[2] = static_cast<uint8_t>(word >> 16);
  p[3] = static_cast<uint8_t>(word >> 24);
}

/// A frame whose first word is negative as a signed 32-bit number is a command frame;
/// zero or positive means a CAN data frame.
inline bool IsCommandFrame(const uint8_t* bytes) { return (bytes[3] & 0x80) != 0; }

FrameBytes EncodeCommand(const CommandFrame& frame);
CommandFrame DecodeCommand(const uint8_t* bytes);
FrameBytes EncodeCanData(const CanDataFrame& frame);
CanDataFrame DecodeCanData(const uint8_t* bytes);

}  // namespace kel
