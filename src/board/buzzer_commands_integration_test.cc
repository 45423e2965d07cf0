// buzz and play against the virtual board: the frames it takes and the tones it records.

#include <gtest/gtest.h>

#include <thread>

#include "board/buzzer_commands.h"
#include "device/command_codes.h"
#include "sim/simulator.h"
#include "support/board_fixture.h"

namespace kel {
namespace {

using testing::Command;
using testing::LineRun;

constexpr int kLongMs = 20000;

class BuzzerCommandsTest : public testing::BoardTest {
 protected:
  // The board's tone history once it has taken `count` BUZZER frames.
  std::deque<sim::Tone> Tones(uint64_t count) {
    EXPECT_TRUE(board_->WaitForState(
        [count](const sim::BoardState& s) { return s.buzzer.frames >= count; }, kLongMs));
    return board_->State().buzzer.tones;
  }

  // Frequency, duty and duration of each tone, without the times.
  static std::vector<std::array<uint32_t, 3>> Words(const std::deque<sim::Tone>& tones) {
    std::vector<std::array<uint32_t, 3>> words;
    for (const sim::Tone& t : tones) words.push_back({t.frequency_hz, t.duty, t.duration_ms});
    return words;
  }
};

TEST_F(BuzzerCommandsTest, BuzzSendsOneFrameOfToneOrSilenceAndRefusesBadWords) {
  const std::pair<const char*, FrameBytes> cases[] = {
      {"buzz 1000 300 25", Command(code::kBuzzer, 0, 1000U << 16 | 25, 300)},
      {"buzzer A4", Command(code::kBuzzer, 0, 440U << 16 | 50, 200)},
      {"buzz 0x3E8 1s", Command(code::kBuzzer, 0, 1000U << 16 | 50, 1000)},
      {"buzz c#5 forever 99", Command(code::kBuzzer, 0, 554U << 16 | 99, kBuzzerHeld)},
      {"buzz 20000 0x0FFFFFFE 1", Command(code::kBuzzer, 0, 20000U << 16 | 1, 0x0FFFFFFE)},
      {"buzz off", Command(code::kBuzzer)},
      {"buzz 0 300 25", Command(code::kBuzzer)},
  };
  for (const auto& [line, frame] : cases) {
    const LineRun run = Run(line);
    EXPECT_EQ(kOk, run.result) << line;
    EXPECT_EQ("", run.text) << line;
    EXPECT_EQ(std::vector<FrameBytes>{frame}, Frames(1)) << line;
    board_->ClearReceivedFrames();
  }
  const std::deque<sim::Tone> tones = Tones(7);
  EXPECT_EQ((std::vector<std::array<uint32_t, 3>>{{1000, 25, 300},
                                                  {440, 50, 200},
                                                  {1000, 50, 1000},
                                                  {554, 99, kBuzzerHeld},
                                                  {20000, 1, 0x0FFFFFFE},
                                                  {0, 0, 0},
                                                  {0, 0, 0}}),
            Words(tones))
      << "the board keeps every tone";
  EXPECT_LE(tones.front().at_ms, tones.back().at_ms);
  EXPECT_EQ(tones.back(), board_->State().buzzer.current);
  EXPECT_FALSE(board_->State().buzzer.current.Sounds()) << "the last frame silenced it";

  for (const char* line :
       {"buzz", "buzz 19", "buzz 20001", "buzz H4", "buzz C0", "buzz x", "buzz 440 0", "buzz 440 x",
        "buzz 440 200 0", "buzz 440 200 100", "buzz 440 200 on"}) {
    const LineRun run = Run(line);
    EXPECT_EQ(kErrBadArgs, run.result) << line;
    EXPECT_EQ("ERROR -102: Bad or missing arguments (try 'help buzz')\r\n", run.text) << line;
  }
  Run("buzz off");
  EXPECT_EQ(std::vector<FrameBytes>{Command(code::kBuzzer)}, Frames(1))
      << "refused lines send nothing";
}

TEST_F(BuzzerCommandsTest, PlayHoldsEachNoteAndEndsItWithSilence) {
  const LineRun run = Run("play \"T240 L16 C D\"; play T240 L16 P E");
  EXPECT_LT(0, run.result);
  EXPECT_EQ("2 notes played\r\n1 notes played\r\n", run.text);
  const std::vector<std::array<uint32_t, 3>> expected = {{262, 50, kBuzzerHeld}, {0, 0, 0},
                                                         {294, 50, kBuzzerHeld}, {0, 0, 0},
                                                         {330, 50, kBuzzerHeld}, {0, 0, 0}};
  EXPECT_EQ(expected, Words(Tones(6)));
  EXPECT_EQ(Command(code::kBuzzer, 0, 262U << 16 | 50, kBuzzerHeld), Frames(6)[0])
      << "the frame as it went";

  for (const char* line : {"play", "play \"\"", "play T240 CDX", "play O8 C", "play T20 C"}) {
    const LineRun bad = Run(line);
    EXPECT_EQ(kErrBadArgs, bad.result) << line;
    EXPECT_EQ("ERROR -102: Bad or missing arguments (try 'help play')\r\n", bad.text) << line;
  }
  board_->ClearReceivedFrames();
  Run("buzz off");
  EXPECT_EQ(std::vector<FrameBytes>{Command(code::kBuzzer)}, Frames(1))
      << "a bad tune plays nothing";
}

// A key at the terminal asks PlayTune's stop; the tune ends there, silent.
TEST_F(BuzzerCommandsTest, AStoppedTuneEndsSilent) {
  DeviceLink link;
  ASSERT_TRUE(link.Connect("127.0.0.1", board_->Port(0)));
  int asked = 0;
  const PlayOutcome outcome =
      PlayTune(link, ParseTune("T60 L1 C D E"), [&asked] { return ++asked > 1; });
  EXPECT_EQ(kOk, outcome.result);
  EXPECT_EQ(1U, outcome.notes_played);
  EXPECT_EQ((std::vector<std::array<uint32_t, 3>>{{262, 50, kBuzzerHeld}, {0, 0, 0}}),
            Words(Tones(2)));
}

// The board goes away in the middle of a long note: the tune ends at once with -101.
TEST_F(BuzzerCommandsTest, ABoardThatGoesEndsTheTuneWithAFailure) {
  std::thread stopper([this] {
    board_->WaitForState([](const sim::BoardState& s) { return s.buzzer.frames >= 1; }, kLongMs);
    board_->Stop();
  });
  const LineRun run = Run("play T32 L1 C D E F G A B");
  stopper.join();
  EXPECT_EQ(kErrMsgIo, run.result);
  EXPECT_EQ("ERROR -101: MsgIO failed\r\n", run.text);
  EXPECT_EQ(1U, board_->State().buzzer.frames);
}

}  // namespace
}  // namespace kel
