// The board commands against the virtual board: what they print, the frames the board
// receives, and the board's faults.

#include <gtest/gtest.h>

#include <algorithm>

#include "device/command_codes.h"
#include "sim/simulator.h"
#include "support/board_fixture.h"

namespace kel {
namespace {

using testing::Command;
using testing::LineRun;

class BoardCommandsTest : public testing::BoardTest {};

TEST_F(BoardCommandsTest, PinCommandsSendTheMaskAndReadThePinsBack) {
  // No word at all is refused; so are yank and out with a list that names no pin.
  for (const char* line : {"set", "clr \"\"", "yank bogus", "out nothing"}) {
    const LineRun run = Run(line);
    EXPECT_EQ(kErrBadIo, run.result) << line;
    EXPECT_EQ(0U, run.text.find("ERROR -103: Bad or missing io argument (try 'P0.13'/'b1'/"))
        << line;
  }
  struct Case {
    const char* line;
    const char* text;
    std::vector<FrameBytes> frames;
  };
  const Case cases[] = {
      // The refused lines before it sent nothing.
      {"set 23V,CAN1",
       "Output bits (0x0500):\nCAN1 23V power = on\n23V power = on\n",
       {Command(code::kSetOut, 0x05000000), Command(code::kOutputs)}},
      {"clr p2.6;toggle B1,\"Modem reset\"",
       "Output bits (0x0400):\nCAN1 23V power = off\n"
       "Output bits (0x2402):\nD9 12V power = on\nModem reset = on\n",
       {Command(code::kClrOut, 0x01000000), Command(code::kOutputs),
        Command(code::kToggleOut, 0x20020000), Command(code::kOutputs)}},
      // A list that names no pin adds nothing to the mask: the frame changes nothing.
      {"clear nothing;toggle ,",
       "Output bits (0x2402):\nOutput bits (0x2402):\n",
       {Command(code::kClrOut, 0), Command(code::kOutputs), Command(code::kToggleOut, 0),
        Command(code::kOutputs)}},
      {"yank 23V,CAN1 20ms",
       "Output bits (0x2402):\nCAN1 23V power = off\n23V power = on\n",
       {Command(code::kToggleOut, 0x05000000), Command(code::kToggleOut, 0x05000000),
        Command(code::kOutputs)}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.text, Run(c.line).text) << c.line;
    EXPECT_EQ(c.frames, Frames(c.frames.size())) << c.line;
    board_->ClearReceivedFrames();
  }
  const std::string all = Run("out").text;
  EXPECT_EQ(0U, all.find("Output bits (0x2402):\nD9 12V power = on\nM12 12V power = off\n"));
  EXPECT_EQ(15, std::count(all.begin(), all.end(), '\n'));
}

TEST_F(BoardCommandsTest, BaudWritesReadsBackAndPrintsAndFailsWhenTheRateDoesNotTake) {
  EXPECT_EQ("Baudrate 1 Mbaud (0x00000005)\n", Run("baud 1M", 2).text);
  EXPECT_EQ((std::vector<FrameBytes>{Command(code::kSetBaud, 0, 5), Command(code::kGetBaud),
                                     Command(code::kGetBaud)}),
            Frames(3, 2));
  LineRun run = Run("baud 200000");
  EXPECT_EQ(kErrBadBaud, run.result);
  EXPECT_EQ("ERROR -104: Invalid baudrate (try 'help baud')\r\n", run.text);
  EXPECT_EQ("Baudrate 250 kbaud (0x00000003)\n", Run("baud").text) << "the channel's own rate";
  EXPECT_EQ(std::vector<FrameBytes>{Command(code::kGetBaud)}, Frames(1)) << "no SET_BAUD";

  sim::Faults faults;
  faults.baud_ignored = true;
  board_->SetFaults(faults);
  run = Run("baud 1M");
  EXPECT_EQ(kErrMsgIo, run.result);
  EXPECT_EQ("ERROR -101: MsgIO failed\r\n", run.text);
}

TEST_F(BoardCommandsTest, ResetPairsItsWordsWithTheirFrames) {
  const LineRun bad = Run("reset board");
  EXPECT_EQ(kErrBadArgs, bad.result);
  EXPECT_EQ("ERROR -102: Bad or missing arguments (try 'help reset')\r\n", bad.text);
  EXPECT_EQ(kOk, Run("reset can;reset ALL").result);
  EXPECT_EQ((std::vector<FrameBytes>{Command(code::kReset), Command(code::kClrEvents)}), Frames(2));
}

TEST_F(BoardCommandsTest, InternalShowsTheAnswerAndSocketDebugEveryFrame) {
  ::testing::internal::CaptureStdout();
  const std::string text = Run("debug socket on;int 0x1234 5;debug socket off").text;
  EXPECT_EQ(
      "[Sending 0xFFFFFFFF 0x00000000 0x00001234 0x00000005]\n"
      "[Receivd 0xFFFFFFFF 0x00000000 0x00001234 0xFFFFFFFF]\n",
      ::testing::internal::GetCapturedStdout());
  EXPECT_EQ(
      "socket = on\nReponse command : 0x00001234\nReponse data    : 0xFFFFFFFF\nsocket = off\n",
      text);
}

TEST_F(BoardCommandsTest, UnrelatedFramesAndSplitFramesDoNotMatter) {
  sim::Faults faults;
  faults.noise_before_answer = 3;
  faults.split_bytes = true;
  board_->SetFaults(faults);
  EXPECT_EQ(
      "Baudrate 250 kbaud (0x00000003)\nReponse command : 0x00000000\n"
      "Reponse data    : 0x00000000\n",
      Run("baud;int 0").text);
}

TEST_F(BoardCommandsTest, ALateAnswerCostsDotsAndNoAnswerOrAClosedBoardFailsTheCommand) {
  sim::Faults faults;
  faults.delayed_code = code::kInternal;
  faults.answer_delay_ms = 1500;
  board_->SetFaults(faults);
  ::testing::internal::CaptureStdout();
  EXPECT_GE(Run("int 0").result, 0);
  EXPECT_EQ(".", ::testing::internal::GetCapturedStdout());

  faults.answer_delay_ms = -1;
  board_->SetFaults(faults);
  ::testing::internal::CaptureStdout();
  LineRun run = Run("int 0");
  EXPECT_EQ(".....", ::testing::internal::GetCapturedStdout()) << "one per quiet second";
  EXPECT_EQ(kErrMsgIo, run.result);
  EXPECT_EQ("ERROR -101: MsgIO failed\r\n", run.text);

  sim::Faults closing;
  closing.close_after_frames = 0;
  closing.close_mid_frame = true;
  board_->SetFaults(closing);
  ::testing::internal::CaptureStdout();
  run = Run("int 0;int 0");
  EXPECT_EQ("", ::testing::internal::GetCapturedStdout()) << "no waiting dots";
  EXPECT_EQ(kErrMsgIo, run.result);
  EXPECT_EQ("ERROR -101: MsgIO failed\r\n", run.text);
}

}  // namespace
}  // namespace kel
