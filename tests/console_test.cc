// kelcmd at a terminal as a person meets it: Ctrl-C stops the command in hand and gives the
// prompt back, the keys pressed while a command runs stay off the screen, and scripts/start
// keeps its kelsim out of the terminal's reach and usable on whatever ports it got.

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "core/parse.h"
#include "device/frame.h"
#include "logging/log_files.h"
#include "logging/parsed_log.h"
#include "platform/socket.h"
#include "support/board_fixture.h"
#include "support/programs.h"
#include "support/temp_dir.h"
#include "support/terminal_session.h"

namespace kel {
namespace {

using testing::TerminalSession;

// Shell text that runs kelcmd with `args` (each quoted already, or plain words).
std::string KelcmdCommand(const std::string& args) {
  return "exec '" + testing::KelcmdPath() + "' " + args;
}

// Shell text that runs scripts/start on the programs of this build, with `args`.
std::string StartCommand(const std::string& args) {
  const std::string programs = std::filesystem::path(testing::KelcmdPath()).parent_path().string();
  return "KEL_PROGRAMS='" + programs + "' exec '" KEL_SOURCE_DIR "/scripts/start' " + args;
}

size_t FramesWithId(const std::vector<FrameBytes>& frames, uint32_t id) {
  size_t count = 0;
  for (const FrameBytes& frame : frames) count += FrameWord(frame.data(), 0) == id ? 1 : 0;
  return count;
}

class ConsoleTest : public testing::BoardTest {
 protected:
  void SetUp() override {
#ifdef _WIN32
    GTEST_SKIP() << "needs a pseudo-terminal (script) and a POSIX shell";
#endif
    BoardTest::SetUp();
    port_ = std::to_string(board_->BasePort());
  }

  testing::TempDir dir_;
  std::string port_;
};

// The prompt's Ctrl-C: an endless send stops with its count, the connection closes, and
// the prompt comes back with the history; a Ctrl-C at the prompt drops the line typed and
// does nothing else.
TEST_F(ConsoleTest, CtrlCDuringALongSendGivesThePromptBack) {
  TerminalSession kelcmd(KelcmdCommand("-p" + port_), dir_.Path().string());
  ASSERT_TRUE(kelcmd.WaitFor("~>")) << kelcmd.Screen();
  kelcmd.Type("send 0x321:1122\r");
  ASSERT_TRUE(kelcmd.WaitFor("1 messages sent")) << kelcmd.Screen();
  kelcmd.Type("send 0x123:count@10ms*100000\r");
  ASSERT_TRUE(board_->WaitForState(
      [](const sim::BoardState& s) { return s.channels[0].frames_transmitted >= 20; }, 60000));
  kelcmd.Type("\x03");
  ASSERT_TRUE(kelcmd.WaitFor("~>", 3)) << kelcmd.Screen();
  EXPECT_TRUE(
      std::regex_search(kelcmd.Screen(), std::regex("\\^C\r\n[0-9]+/100000 sent 0xC000013A: User "
                                                    "termination\r\r\n~>$")))
      << kelcmd.Screen();
  EXPECT_TRUE(WaitForClients(0)) << "the connection is closed";

  // Up twice: the line before the stopped send, run again against the same board.
  kelcmd.Type("\x1b[A\x1b[A\r");
  ASSERT_TRUE(kelcmd.WaitFor("1 messages sent", 2)) << kelcmd.Screen();
  ASSERT_TRUE(WaitForClients(0)) << "the board has taken everything sent before the close";
  EXPECT_EQ(2u, FramesWithId(board_->ReceivedFrames(0), 0x321));

  kelcmd.Type("half a line");
  ASSERT_TRUE(kelcmd.WaitFor("~>half a line")) << kelcmd.Screen();
  kelcmd.Type("\x03");
  ASSERT_TRUE(kelcmd.WaitFor("~>half a line^C\r\n~>")) << kelcmd.Screen();
  kelcmd.Type("\x03");
  ASSERT_TRUE(kelcmd.WaitFor("~>^C\r\n~>")) << kelcmd.Screen();
  kelcmd.Type("quit\r");
  const testing::ProgramRun run = kelcmd.Finish();
  EXPECT_TRUE(run.exited && run.status == 0) << run.output;
  EXPECT_EQ(std::string::npos, run.output.find("Bad command")) << "the dropped line never ran";
}

// A key ends a delay without showing itself over the countdown ("xleeping"), whether the
// delay runs from the command line or at the prompt.
TEST_F(ConsoleTest, AKeyDuringADelayLeavesNoEcho) {
  struct Case {
    const char* args;
    const char* typed;  // what starts the delay
    const char* after;  // what ends the session after it
  };
  const Case cases[] = {
      {"'delay 1h'", "", ""},
      {"", "delay 1h\r", "quit\r"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.typed);
    testing::TempDir dir;
    TerminalSession kelcmd(KelcmdCommand("-p" + port_ + " " + c.args), dir.Path().string());
    kelcmd.Type(c.typed);
    ASSERT_TRUE(kelcmd.WaitFor("Sleeping 3600s")) << kelcmd.Screen();
    kelcmd.Type("Z");
    if (*c.after != '\0') {
      ASSERT_TRUE(kelcmd.WaitFor("~>", 2)) << kelcmd.Screen();
      kelcmd.Type(c.after);
    }
    const testing::ProgramRun run = kelcmd.Finish();
    EXPECT_TRUE(run.exited && run.status == 0) << run.output;
    EXPECT_EQ(std::string::npos, run.output.find('Z')) << run.output;
  }
}

class StartTest : public ::testing::Test {
 protected:
  void SetUp() override {
#ifdef _WIN32
    GTEST_SKIP() << "scripts/start is a POSIX shell script";
#endif
  }

  testing::TempDir dir_;
};

// A Ctrl-C for kelcmd under scripts/start stops the command, not kelsim: the board still
// answers afterwards, and goes when scripts/start ends.
TEST_F(StartTest, CtrlCLeavesKelsimServing) {
  TerminalSession start(StartCommand(""), dir_.Path().string());
  ASSERT_TRUE(start.WaitFor("~>")) << start.Screen();
  std::smatch ports;
  const std::string screen = start.Screen();
  ASSERT_TRUE(std::regex_search(screen, ports, std::regex(" ports ([0-9]+)-"))) << screen;
  start.Type("delay 1h\r");
  ASSERT_TRUE(start.WaitFor("Sleeping 3600s")) << start.Screen();
  start.Type("\x03");
  ASSERT_TRUE(start.WaitFor("User termination\r\r\n~>")) << start.Screen();
  start.Type("ver\r");
  ASSERT_TRUE(start.WaitFor("Firmware version : 1.0.0")) << start.Screen();
  start.Type("quit\r");
  const testing::ProgramRun run = start.Finish();
  EXPECT_TRUE(run.exited && run.status == 0) << run.output;

  const platform::Socket client = platform::NewTcpSocket();
  const platform::SocketAddress board{InetAddr("127.0.0.1"),
                                      static_cast<uint16_t>(std::stoi(ports[1]))};
  EXPECT_FALSE(platform::ConnectBlocking(client, board)) << "kelsim has gone with scripts/start";
}

// With the board's usual port taken, kelsim moves to free ports, and the logging service
// and the test workers follow it there.
TEST_F(StartTest, LoggingAndWorkersWorkWhilePort27015IsTaken) {
  // Held by the test itself; when something else holds it already, it is taken all the same.
  const platform::Socket holder = platform::ListenTcp({InetAddr("127.0.0.1"), 27015}, 1);
  // Where the log files go, instead of the source tree.
  testing::WriteFile(dir_.File("paths.ini"), "[LOGGING]\nFilePath = " + dir_.Path().string());
  const std::string files = "'-i" + dir_.File("paths.ini") + "' ";
  for (const char* line : {"log start; delay 1s; log stop", "test sync"}) {
    SCOPED_TRACE(line);
    const testing::ProgramRun run = testing::RunProgram(
        "/bin/sh", {"-c", StartCommand(files + "'" + line + "'")}, "", dir_.Path().string());
    EXPECT_TRUE(run.exited && run.status == 0) << run.output;
    EXPECT_EQ(std::string::npos, run.output.find("ports 27015-")) << run.output;
  }
  const ParsedLog log =
      ParseLog(testing::ReadFile(LogFileName(dir_.Path().string(), "kelcmd.log", "", 0)));
  EXPECT_TRUE(log.header && log.footer && log.bad_lines.empty());
}

}  // namespace
}  // namespace kel
