#include "sim/faults.h"

#include "device/command_codes.h"

namespace kel::sim {
namespace {

constexpr uint32_t kNoiseId = 0x7FF;
constexpr uint8_t kNoiseData = 0xA5;

}  // namespace

FrameBytes NoiseFrame(uint32_t index, int channel) {
  if (index % 2 == 1) return EncodeCommand(CommandFrame{code::kEscUp, 0, 0, 0});
  CanDataFrame frame;
  frame.id = kNoiseId;
  frame.SetInfoWord(8 | static_cast<uint32_t>(channel) << 8);
  frame.data.fill(kNoiseData);
  return EncodeCanData(frame);
}

uint64_t CloseLimitBytes(const Faults& faults) {
  if (!faults.close_after_frames) return UINT64_MAX;
  return uint64_t{*faults.close_after_frames} * kFrameSize +
         (faults.close_mid_frame ? kFrameSize / 2 : 0);
}

}  // namespace kel::sim
