// `filt` against the virtual board: what each subcommand leaves and prints, the listing of
// tst, the channel written, and the failures.

#include <gtest/gtest.h>

#include <string>

#include "config/settings.h"
#include "shell/executor.h"
#include "support/board_fixture.h"

namespace kel {
namespace {

using FilterCommandTest = testing::BoardTest;

TEST_F(FilterCommandTest, SubcommandsPrintTheFilterTheyLeave) {
  const char* const steps[][2] = {
      {"filt", "CAN=2, MIDE=0, AM=0x000, PRI=0, IDE=0, AR=0x000\n"},
      {"filter add 0x100,0x101", "CAN=2, MIDE=0, AM=0x7FE, PRI=0, IDE=0, AR=0x100\n"},
      {"filt ADD 0x102-0x103", "CAN=2, MIDE=0, AM=0x7FC, PRI=0, IDE=0, AR=0x100\n"},
      // One mask cannot leave 0x103 alone out of 0x100-0x103.
      {"filt del 0x103", "CAN=2, MIDE=0, AM=0x7FC, PRI=0, IDE=0, AR=0x100\n"},
      {"filt del 0x102-0x103", "CAN=2, MIDE=0, AM=0x7FE, PRI=0, IDE=0, AR=0x100\n"},
      {"filt delete 0x101", "CAN=2, MIDE=0, AM=0x7FF, PRI=0, IDE=0, AR=0x100\n"},
      // 0x800 needs 12 bits: the 29-bit form, from the cover as read (AM without bit 11).
      {"filt add 0x800", "CAN=2, MIDE=0, AM=0x000006FF, PRI=0, IDE=1, AR=0x00000000\n"},
      {"filt clr", "CAN=2, MIDE=0, AM=0x000, PRI=0, IDE=0, AR=0x000\n"},
      {"filt set AR=0x800", "CAN=2, MIDE=0, AM=0x00000000, PRI=2, IDE=1, AR=0x00000800\n"},
      {"filt set IDE=0,AR=0x800", "CAN=2, MIDE=0, AM=0x000, PRI=2, IDE=0, AR=0x000\n"},
      {"filt set mide=1 am=0x7F0 ar=0x120", "CAN=2, MIDE=1, AM=0x7F0, PRI=2, IDE=0, AR=0x120\n"},
      {"filt add 0x130", "CAN=2, MIDE=1, AM=0x7E0, PRI=2, IDE=0, AR=0x120\n"},
      {"filt set IDE=1,AM=0x1FFF0000,AR=0x120000",
       "CAN=2, MIDE=1, AM=0x1FFF0000, PRI=2, IDE=1, AR=0x00120000\n"},
      {"filt del 0x128000-0x12FFFF", "CAN=2, MIDE=1, AM=0x1FFF8000, PRI=2, IDE=1, AR=0x00120000\n"},
  };
  for (const auto& [line, text] : steps) {
    const testing::LineRun run = Run(line, 2);
    EXPECT_EQ(text, run.text) << line;
    EXPECT_EQ(static_cast<ResultCode>(run.text.size()), run.result) << line;
  }
}

TEST_F(FilterCommandTest, TstListsTheMatchesOnTheConsole) {
  const std::string first16 =
      "0x0 0x1 0x2 0x3 0x4 0x5 0x6 0x7 0x8 0x9 0xA 0xB 0xC 0xD 0xE 0xF \n  ";
  const std::string next16 =
      "0x10 0x11 0x12 0x13 0x14 0x15 0x16 0x17 0x18 0x19 0x1A 0x1B 0x1C 0x1D 0x1E 0x1F \n  ";
  const std::string cases[][3] = {
      {"filt clear", "", "CAN filter not set\n"},
      {"filt add 0x100,0x101", "0x100 0x101 \n", "Total 2 CAN ID matches\n"},
      {"filt set AM=0x7F0,AR=0", first16 + "\n", "Total 16 CAN ID matches\n"},
      {"filt set AM=0x7E0", first16 + next16, "Total 32 CAN ID matches\n"},
      // The whole 29-bit space is walked, up to its last identifier.
      {"filt set IDE=1,AM=0x1FFFFFEE,AR=0x1FFFFFEE",
       "0x1FFFFFEE 0x1FFFFFEF 0x1FFFFFFE 0x1FFFFFFF \n", "Total 4 CAN ID matches\n"},
  };
  for (const auto& [set, console, text] : cases) {
    Run(set, 2);
    ::testing::internal::CaptureStdout();
    const testing::LineRun run = Run("filt tst", 2);
    EXPECT_EQ(console, ::testing::internal::GetCapturedStdout()) << set;
    EXPECT_EQ(text, run.text) << set;
  }
}

TEST_F(FilterCommandTest, WritesGoToTheChannelOfTheSettings) {
  // Connected to channel 0, with the channel set to 3: channel 3 takes the filter.
  CurrentSettings().device_channel = 3;
  Output out(256);
  RunCommandLine({"127.0.0.1", board_->Port(0)}, "filt add 0x100", out);
  EXPECT_EQ("CAN=0, MIDE=0, AM=0x000, PRI=0, IDE=0, AR=0x000\n", out.Text())
      << "what is printed is read from the connection's channel";
  const sim::BoardState state = board_->State();
  EXPECT_EQ(0x1FFC0000U, state.channels[3].filter_mask);
  EXPECT_EQ(0x04000000U, state.channels[3].filter_arbitration);
}

TEST_F(FilterCommandTest, BadArgumentsChangeNothingAndASilentBoardFailsTheRead) {
  Run("filt add 0x100,0x101", 2);
  const char* const bad[][2] = {{"filt bogus", "filt"},  {"filt set AM=1,XYZ=2", "filt"},
                                {"filt set AM", "filt"}, {"filt del", "filt"},
                                {"send", "send"},        {"recv", "recv"}};
  for (const auto& [line, help] : bad) {
    const testing::LineRun run = Run(line, 2);
    EXPECT_EQ(kErrBadArgs, run.result) << line;
    EXPECT_EQ("ERROR -102: Bad or missing arguments (try 'help " + std::string(help) + "')\r\n",
              run.text);
  }
  EXPECT_EQ(0x1FF80000U, board_->State().channels[2].filter_mask);

  sim::Faults faults;
  faults.close_after_frames = 0;
  board_->SetFaults(faults);
  for (const char* line : {"filt get", "filt add 5", "filt tst"}) {
    const testing::LineRun run = Run(line, 2);
    EXPECT_EQ(kErrMsgIo, run.result) << line;
    EXPECT_EQ("ERROR -101: MsgIO failed\r\n", run.text) << line;
  }
}

}  // namespace
}  // namespace kel
