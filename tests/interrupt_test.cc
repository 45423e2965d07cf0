// Long commands stopped from outside: SIGTERM from a script and Ctrl-C at a terminal end
// kelcmd cleanly, with its connection closed gracefully and its log files closed whole.

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <string>

#include "logging/log_files.h"
#include "logging/parsed_log.h"
#include "support/board_fixture.h"
#include "support/programs.h"
#include "support/temp_dir.h"

#ifndef _WIN32
#include <signal.h>
#endif

namespace kel {
namespace {

constexpr int kWaitMs = 60000;  // generous: sanitizer builds on a busy machine

class InterruptTest : public testing::BoardTest {
 protected:
  // kelcmd.ini in the working directory: the board as the device and as the logging ports,
  // logging active.
  void SetUp() override {
#ifdef _WIN32
    GTEST_SKIP() << "needs POSIX signals and a pseudo-terminal (script)";
#endif
    BoardTest::SetUp();
    port_ = std::to_string(board_->BasePort());
    testing::WriteFile(dir_.File("kelcmd.ini"), "[SETTINGS]\nDevicePort = " + port_ +
                                                    "\n[PROXY]\nProxyPort = " + port_ +
                                                    "\n[LOGGING]\nActive = 1\n");
  }

  ParsedLog Log() const {
    return ParseLog(testing::ReadFile(dir_.File(LogFileName("", "kelcmd.log", "", 0))));
  }

  testing::TempDir dir_;
  std::string port_;
};

#ifndef _WIN32
// A count that wrapped from -1 (4294967295 messages, shown as -1 where counts are signed):
// the sender would go on for weeks. SIGTERM stops it, every
// frame it reports sent has reached the board and the log, and the log ends with its footer.
TEST_F(InterruptTest, SigtermStopsAnEndlessSendCleanly) {
  testing::RunningProgram kelcmd(testing::KelcmdPath(), {"send 0x123:count@1ms*-1"}, "",
                                 dir_.Path().string());
  ASSERT_TRUE(WaitForClients(4 + 1)) << "the logger's four connections and the sender's";
  ASSERT_TRUE(board_->WaitForState(
      [](const sim::BoardState& s) { return s.channels[0].frames_transmitted >= 20; }, kWaitMs));
  kelcmd.Terminate();
  const testing::ProgramRun run = kelcmd.Finish();
  EXPECT_FALSE(run.exited);
  EXPECT_EQ(SIGTERM, run.signal) << "ended as the request asked";
  std::smatch end;
  const std::regex last("([0-9]+)/-1 sent 0xC000013A: User termination\r\n$");
  ASSERT_TRUE(std::regex_search(run.output, end, last)) << run.output;
  const uint32_t sent = static_cast<uint32_t>(std::stoul(end[1]));
  EXPECT_EQ(sent, board_->State().channels[0].frames_transmitted);
  const ParsedLog log = Log();
  EXPECT_TRUE(log.header && log.footer && log.bad_lines.empty());
  const auto on_channel_2 = [](const CanRow& row) { return row.channel == 3; };  // slot 2
  EXPECT_EQ(sent, std::count_if(log.rows.begin(), log.rows.end(), on_channel_2));
  EXPECT_TRUE(WaitForClients(0));
}

// A request to stop that only the shell gets (a script's SIGTERM) reaches its workers too:
// they stop, report it, and the shell ends after them.
TEST_F(InterruptTest, SigtermDuringATestRunTellsTheWorkers) {
  testing::RunningProgram kelcmd(testing::KelcmdPath(), {"test send"}, "", dir_.Path().string());
  ASSERT_TRUE(WaitForClients(4 + 1)) << "the logger's four connections and the worker's";
  kelcmd.Terminate();
  const testing::ProgramRun run = kelcmd.Finish();
  EXPECT_EQ(SIGTERM, run.signal);
  EXPECT_NE(std::string::npos,
            run.output.find("  M:send 0x123:count@10ms*1000 => 0xC000013A: User termination\n"))
      << run.output;
  EXPECT_TRUE(WaitForClients(0)) << "the worker has gone too";
}

// At a terminal (a pseudo-terminal made by script(1)) Ctrl-C ends an hour's delay.
TEST_F(InterruptTest, CtrlCAtATerminalStopsALongDelayCleanly) {
  // exec: a shell left waiting in between would take the Ctrl-C itself and die of it. The
  // key comes once kelcmd is connected, so it meets kelcmd and not its start.
  const std::string script =
      "(while [ ! -e ready ]; do sleep 0.05; done; printf '\\003'; sleep 2) | script -qfec "
      "\"exec " +
      testing::KelcmdPath() + " 'delay 1h'\" /dev/null";
  testing::RunningProgram shell("/bin/sh", {"-c", script}, "", dir_.Path().string());
  ASSERT_TRUE(WaitForClients(4));
  testing::WriteFile(dir_.File("ready"), "");
  const testing::ProgramRun run = shell.Finish();
  EXPECT_NE(std::string::npos, run.output.find("0xC000013A: User termination")) << run.output;
  const ParsedLog log = Log();
  EXPECT_TRUE(log.header && log.footer && log.bad_lines.empty());
  EXPECT_TRUE(WaitForClients(0));
}
#endif

}  // namespace
}  // namespace kel
