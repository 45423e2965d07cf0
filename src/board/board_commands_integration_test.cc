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

class BoardCommandsTest : public testing::BoardTest {};

TEST_F(BoardCommandsTest, SetClearAndToggleSendTheMaskAndReadThePinsBack) {
  testing::LineRun run = Run("set 23V,CAN1");
  EXPECT_GE(run.result, 0);
  EXPECT_EQ("Output bits (0x0500):\nCAN1 23V power = on\n23V power = on\n", run.text);
  EXPECT_EQ((std::vector<FrameBytes>{Command(code::kSetOut, 0x05000000), Command(code::kOutputs)}),
            Frames(2));

  board_->ClearReceivedFrames();
  run = Run("clr p2.6;toggle B1,\"Modem reset\"");
  EXPECT_EQ(
      "Output bits (0x0400):\nCAN1 23V power = off\n"
      "Output bits (0x2402):\nD9 12V power = on\nModem reset = on\n",
      run.text);
  EXPECT_EQ(
      (std::vector<FrameBytes>{Command(code::kClrOut, 0x01000000), Command(code::kOutputs),
                               Command(code::kToggleOut, 0x20020000), Command(code::kOutputs)}),
      Frames(4));
  EXPECT_EQ(0x2402, board_->State().outputs);

  run = Run("out");
  EXPECT_EQ(0U, run.text.find("Output bits (0x2402):\nD9 12V power = on\nM12 12V power = off\n"));
  EXPECT_EQ(15, std::count(run.text.begin(), run.text.end(), '\n'));
  EXPECT_NE(std::string::npos, run.text.find("3.7V power = off\n"));
}

TEST_F(BoardCommandsTest, PinListsThatNameNothingAreRefusedWithTheNames) {
  for (const char* line : {"set", "clear nothing", "toggle ,;", "yank bogus", "out nothing"}) {
    const testing::LineRun run = Run(line);
    EXPECT_EQ(kErrBadIo, run.result) << line;
    EXPECT_EQ(0U, run.text.find("ERROR -103: Bad or missing io argument (try 'P0.13'/'b1'/"))
        << line;
  }
  Run("int 0");  // a frame of its own shows that nothing came before it
  const std::vector<FrameBytes> frames = Frames(1);
  ASSERT_EQ(1U, frames.size());
  EXPECT_EQ(code::kInternal, FrameWord(frames[0].data(), 0));
}

TEST_F(BoardCommandsTest, YankTogglesAndRestores) {
  Run("set 23V");
  board_->ClearReceivedFrames();
  const testing::LineRun run = Run("yank 23V,CAN1 20ms");
  EXPECT_EQ("Output bits (0x0400):\nCAN1 23V power = off\n23V power = on\n", run.text);
  EXPECT_EQ(
      (std::vector<FrameBytes>{Command(code::kToggleOut, 0x05000000),
                               Command(code::kToggleOut, 0x05000000), Command(code::kOutputs)}),
      Frames(3));
}

TEST_F(BoardCommandsTest, BaudWritesReadsBackAndPrints) {
  testing::LineRun run = Run("baud 250k;baudrate 0.25M;baud 1000000", 2);
  EXPECT_EQ(
      "Baudrate 250 kbaud (0x00000003)\nBaudrate 250 kbaud (0x00000003)\n"
      "Baudrate 1 Mbaud (0x00000005)\n",
      run.text);
  EXPECT_EQ(5, board_->State().channels[2].baud_index) << "the channel's own port";
  EXPECT_EQ(3, board_->State().channels[0].baud_index);
  const std::vector<FrameBytes> frames = Frames(9, 2);
  EXPECT_EQ(Command(code::kSetBaud, 0, 3), frames[0]);
  EXPECT_EQ(Command(code::kGetBaud), frames[1]);
  EXPECT_EQ(Command(code::kGetBaud), frames[2]);
  EXPECT_EQ(Command(code::kSetBaud, 0, 5), frames[6]);

  for (const char* bad : {"baud 6", "baud 200000", "baud 0", "baud fast"}) {
    run = Run(bad);
    EXPECT_EQ(kErrBadBaud, run.result) << bad;
    EXPECT_EQ("ERROR -104: Invalid baudrate (try 'help baud')\r\n", run.text) << bad;
  }
  EXPECT_TRUE(board_->ReceivedFrames(0).empty()) << "a bad rate sends nothing";
  EXPECT_EQ("Baudrate 250 kbaud (0x00000003)\n", Run("baud").text);
}

TEST_F(BoardCommandsTest, ResetPairsItsWordsWithTheirFrames) {
  EXPECT_EQ(kOk, Run("reset can;reset ALL").result);
  EXPECT_EQ((std::vector<FrameBytes>{Command(code::kReset), Command(code::kClrEvents)}), Frames(2));
  for (const char* bad : {"reset", "reset board"}) {
    const testing::LineRun run = Run(bad);
    EXPECT_EQ(kErrBadArgs, run.result);
    EXPECT_EQ("ERROR -102: Bad or missing arguments (try 'help reset')\r\n", run.text);
  }
  EXPECT_EQ(2U, board_->ReceivedFrames(0).size());
}

TEST_F(BoardCommandsTest, InternalMessagesShowTheAnswer) {
  EXPECT_EQ("Reponse command : 0x00000001\nReponse data    : 0x00000001\n", Run("int 1 1").text);
  EXPECT_EQ("Reponse command : 0x00000000\nReponse data    : 0x00000001\n", Run("internal 0").text);
  EXPECT_EQ("Reponse command : 0x80005501\nReponse data    : 0x00000000\n",
            Run("int 0x80005501").text);
  const std::vector<FrameBytes> frames = Frames(3);
  EXPECT_EQ(Command(code::kInternal, 0, 0x80005501, 0), frames[2]);
  EXPECT_EQ(2U, board_->State().events) << "the shut-down event";
}

TEST_F(BoardCommandsTest, SocketDebugShowsEveryFrame) {
  ::testing::internal::CaptureStdout();
  Run("debug socket on;int 0;debug socket off");
  const std::string console = ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(
      "[Sending 0xFFFFFFFF 0x00000000 0x00000000 0x00000000]\n"
      "[Receivd 0xFFFFFFFF 0x00000000 0x00000000 0x00000000]\n",
      console);
}

TEST_F(BoardCommandsTest, UnrelatedFramesAndSplitFramesDoNotMatter) {
  sim::Faults faults;
  faults.noise_before_answer = 3;
  faults.split_bytes = true;
  StartBoard(faults);
  EXPECT_EQ(
      "Baudrate 250 kbaud (0x00000003)\nReponse command : 0x00000000\n"
      "Reponse data    : 0x00000000\n",
      Run("baud;int 0").text);
}

TEST_F(BoardCommandsTest, ALateAnswerCostsDotsAndNoAnswerFailsAfterFiveSeconds) {
  sim::Faults faults;
  faults.delayed_code = code::kInternal;
  faults.answer_delay_ms = 1500;
  StartBoard(faults);
  ::testing::internal::CaptureStdout();
  const testing::LineRun late = Run("int 0");
  const std::string late_dots = ::testing::internal::GetCapturedStdout();
  EXPECT_GE(late.result, 0);
  EXPECT_EQ(".", late_dots);

  faults.answer_delay_ms = -1;
  board_->SetFaults(faults);
  ::testing::internal::CaptureStdout();
  const testing::LineRun never = Run("int 0");
  const std::string dots = ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(kErrMsgIo, never.result);
  EXPECT_EQ("ERROR -101: MsgIO failed\r\n", never.text);
  EXPECT_EQ(".....", dots) << "one per quiet second";
}

TEST_F(BoardCommandsTest, ABoardThatClosesMidFrameFailsAtOnce) {
  sim::Faults faults;
  faults.close_after_frames = 0;
  faults.close_mid_frame = true;
  StartBoard(faults);
  ::testing::internal::CaptureStdout();
  const testing::LineRun run = Run("int 0;int 0");
  EXPECT_EQ("", ::testing::internal::GetCapturedStdout()) << "no waiting dots";
  EXPECT_EQ(kErrMsgIo, run.result);
  EXPECT_EQ("ERROR -101: MsgIO failed\r\n", run.text);
}

TEST_F(BoardCommandsTest, ABitRateThatDoesNotTakeFails) {
  sim::Faults faults;
  faults.baud_ignored = true;
  StartBoard(faults);
  const testing::LineRun run = Run("baud 1M");
  EXPECT_EQ(kErrMsgIo, run.result);
  EXPECT_EQ("ERROR -101: MsgIO failed\r\n", run.text);
  EXPECT_EQ(3, board_->State().channels[0].baud_index);
}

}  // namespace
}  // namespace kel
