// `filt` against the virtual board: what each subcommand prints, what it writes to which
// channel, and the listings of tst.

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "config/settings.h"
#include "shell/executor.h"
#include "sim/simulator.h"

namespace kel {
namespace {

struct LineRun {
  ResultCode result = 0;
  std::string text;
  std::string console;  // what went straight to the console
};

class FilterCommandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    sim::Config config;
    config.base_port = 0;
    board_ = std::make_unique<sim::Simulator>(config);
    ASSERT_TRUE(board_->Start()) << board_->Error();
  }
  void TearDown() override { CurrentSettings().device_channel = 0; }

  // Runs `line` connected to `port_channel`'s port with the channel setting `channel`.
  LineRun Run(std::string_view line, int channel = 2, int port_channel = 2) {
    CurrentSettings().device_channel = channel;
    Output out(8192);
    LineRun run;
    ::testing::internal::CaptureStdout();
    run.result = RunCommandLine({"127.0.0.1", board_->Port(port_channel)}, line, out);
    run.console = ::testing::internal::GetCapturedStdout();
    run.text = std::string(out.Text());
    return run;
  }

  const sim::ChannelState Channel(int channel) const {
    return board_->State().channels[static_cast<size_t>(channel)];
  }

  std::unique_ptr<sim::Simulator> board_;
};

TEST_F(FilterCommandTest, SubcommandsPrintTheFilterTheyLeave) {
  struct Step {
    const char* line;
    const char* text;
  };
  const Step steps[] = {
      {"filt", "CAN=2, MIDE=0, AM=0x000, PRI=0, IDE=0, AR=0x000\n"},
      {"filter add 0x100,0x101", "CAN=2, MIDE=0, AM=0x7FE, PRI=0, IDE=0, AR=0x100\n"},
      {"filt ADD 0x102", "CAN=2, MIDE=0, AM=0x7FC, PRI=0, IDE=0, AR=0x100\n"},
      {"filt del 0x102-0x103", "CAN=2, MIDE=0, AM=0x7FE, PRI=0, IDE=0, AR=0x100\n"},
      {"filt delete 0x101", "CAN=2, MIDE=0, AM=0x7FF, PRI=0, IDE=0, AR=0x100\n"},
      {"filt get", "CAN=2, MIDE=0, AM=0x7FF, PRI=0, IDE=0, AR=0x100\n"},
      // An 11-bit filter seeds the cover as read: its AM has no bits above bit 10.
      {"filt add 0x800", "CAN=2, MIDE=0, AM=0x000006FF, PRI=0, IDE=1, AR=0x00000000\n"},
      {"filt clr", "CAN=2, MIDE=0, AM=0x000, PRI=0, IDE=0, AR=0x000\n"},
      {"filt add 0x800", "CAN=2, MIDE=0, AM=0x1FFFFFFF, PRI=0, IDE=1, AR=0x00000800\n"},
      {"filt set AR=0x800", "CAN=2, MIDE=0, AM=0x1FFFFFFF, PRI=2, IDE=1, AR=0x00000800\n"},
      {"filt set IDE=0,AR=0x800", "CAN=2, MIDE=0, AM=0x7FF, PRI=2, IDE=0, AR=0x000\n"},
      {"filt set mide=1 am=0x7F0 ar=0x120", "CAN=2, MIDE=1, AM=0x7F0, PRI=2, IDE=0, AR=0x120\n"},
      {"filt clear", "CAN=2, MIDE=0, AM=0x000, PRI=0, IDE=0, AR=0x000\n"},
  };
  for (const Step& step : steps) {
    const LineRun run = Run(step.line);
    EXPECT_EQ(step.text, run.text) << step.line;
    EXPECT_EQ(static_cast<ResultCode>(run.text.size()), run.result) << step.line;
  }
}

TEST_F(FilterCommandTest, TstListsTheMatchesOnTheConsole) {
  EXPECT_EQ("CAN filter not set\n", Run("filt tst").text);
  Run("filt add 0x100,0x101");
  const LineRun two = Run("filt tst");
  EXPECT_EQ("0x100 0x101 \n", two.console);
  EXPECT_EQ("Total 2 CAN ID matches\n", two.text);

  // The whole 29-bit space: 2^16 identifiers, listed in order.
  Run("filt set IDE=1,AM=0x1FFF0000,AR=0x00120000");
  const LineRun wide = Run("filt tst");
  EXPECT_EQ("Total 65536 CAN ID matches\n", wide.text);
  EXPECT_EQ(0U, wide.console.find("0x120000 0x120001 ")) << wide.console.substr(0, 40);
  EXPECT_EQ("0x12FFFF \n  ", wide.console.substr(wide.console.size() - 12));
}

TEST_F(FilterCommandTest, DelWalksTheExtendedSpace) {
  Run("filt set IDE=1,AM=0x1FFF0000,AR=0x00120000");
  EXPECT_EQ("CAN=2, MIDE=0, AM=0x1FFF8000, PRI=2, IDE=1, AR=0x00120000\n",
            Run("filt del 0x128000-0x12FFFF").text);
}

TEST_F(FilterCommandTest, WritesGoToTheChannelOfTheSettings) {
  // Connected to channel 0, with the channel set to 3: channel 3 takes the filter.
  const LineRun run = Run("filt add 0x100", 3, 0);
  EXPECT_EQ("CAN=0, MIDE=0, AM=0x000, PRI=0, IDE=0, AR=0x000\n", run.text)
      << "what is printed is read from the connection's channel";
  EXPECT_EQ(0x1FFC0000U, Channel(3).filter_mask);
  EXPECT_EQ(0x04000000U, Channel(3).filter_arbitration);
  EXPECT_EQ(0U, Channel(0).filter_mask);
  EXPECT_EQ(0U, Channel(0).filter_arbitration);
}

TEST_F(FilterCommandTest, BadInputChangesNothing) {
  Run("filt add 0x100,0x101");
  const sim::ChannelState before = Channel(2);
  struct Case {
    const char* line;
    ResultCode result;
    const char* text;
  };
  const Case cases[] = {
      {"filt bogus", kErrBadArgs, "ERROR -102: Bad or missing arguments (try 'help filt')\r\n"},
      {"filt set AM=1,XYZ=2", kErrBadArgs,
       "ERROR -102: Bad or missing arguments (try 'help filt')\r\n"},
      {"filt set AM", kErrBadArgs, "ERROR -102: Bad or missing arguments (try 'help filt')\r\n"},
      {"filt del", kErrBadArgs, "ERROR -102: Bad or missing arguments (try 'help filt')\r\n"},
  };
  for (const Case& c : cases) {
    const LineRun run = Run(c.line);
    EXPECT_EQ(c.result, run.result) << c.line;
    EXPECT_EQ(c.text, run.text) << c.line;
    EXPECT_EQ(before.filter_mask, Channel(2).filter_mask) << c.line;
    EXPECT_EQ(before.filter_arbitration, Channel(2).filter_arbitration) << c.line;
  }
}

TEST_F(FilterCommandTest, ABoardThatDoesNotAnswerFailsTheRead) {
  sim::Faults faults;
  faults.close_after_frames = 0;
  board_->SetFaults(faults);
  for (const char* line : {"filt", "filt add 5", "filt tst"}) {
    const LineRun run = Run(line);
    EXPECT_EQ(kErrMsgIo, run.result) << line;
    EXPECT_EQ("ERROR -101: MsgIO failed\r\n", run.text) << line;
  }
}

}  // namespace
}  // namespace kel
