#include "sim/buzzer.h"

#include <gtest/gtest.h>

#include "device/command_codes.h"
#include "sim/board.h"

namespace kel::sim {
namespace {

FrameBytes Buzzer(uint32_t hz, uint32_t duty, uint32_t duration) {
  return EncodeCommand(CommandFrame{code::kBuzzer, 0, hz << 16 | duty, duration});
}

// The board keeps the last 256 tones; a silence comes from a frame of zeros or from the
// power going while a tone still sounds.
TEST(BuzzerStateTest, TheHistoryKeepsTheLastTonesAndThePowerSilencesATone) {
  Board board(kDefaultWiring, 0);
  for (uint32_t i = 0; i < kToneHistory + 10; ++i) {
    board.HandleCommand(0, Buzzer(100 + i, 50, 20).data(), 1000 + i);
  }
  const BuzzerState& buzzer = board.State().buzzer;
  EXPECT_EQ(kToneHistory + 10, buzzer.frames);
  ASSERT_EQ(kToneHistory, buzzer.tones.size());
  EXPECT_EQ((Tone{110, 50, 20, 1010}), buzzer.tones.front());
  EXPECT_EQ(buzzer.tones.back(), buzzer.current);

  // The last tone, 20 ms long, has ended by itself at 1285: nothing to silence.
  EXPECT_TRUE(buzzer.current.SoundsAt(1284));
  EXPECT_FALSE(board.SilenceBuzzer(1285));
  board.HandleCommand(1, Buzzer(440, 25, kBuzzerHeld).data(), 2000);
  EXPECT_TRUE(buzzer.current.SoundsAt(90000)) << "held until the next frame";
  EXPECT_TRUE(board.SilenceBuzzer(90000));
  EXPECT_EQ((Tone{0, 0, 0, 90000}), buzzer.current);
  EXPECT_FALSE(board.SilenceBuzzer(90001));
  EXPECT_EQ(kToneHistory + 12, buzzer.frames);
}

}  // namespace
}  // namespace kel::sim
