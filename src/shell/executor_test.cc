#include "shell/executor.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "config/settings.h"
#include "shell/command_table.h"

namespace kel {
namespace {

struct LineRun {
  ResultCode result;
  std::string text;
};

// Runs a line against a port where nothing listens, so device commands fail to connect.
LineRun RunLine(std::string_view line, size_t size = 16384) {
  Output out(size);
  const ResultCode result = RunCommandLine(DeviceTarget{"127.0.0.1", 1}, line, out);
  return LineRun{result, std::string(out.Text())};
}

class ExecutorTest : public ::testing::Test {
 protected:
  void TearDown() override { CurrentSettings() = Settings(); }
};

TEST_F(ExecutorTest, SeparatorsSplitCommandsAndTheFirstFailureStopsTheLine) {
  const std::string both = "socket = on\nsocket = on\n";
  EXPECT_EQ(both, RunLine("debug socket on;debug socket").text);
  EXPECT_EQ(both, RunLine("debug socket on\r\ndebug socket").text);
  EXPECT_EQ(both, RunLine("debug socket on;;  ;DEBUG socket").text);
  EXPECT_EQ("socket = on\n", RunLine("debug socket on debug socket").text)
      << "a second command on the same segment is an ignored argument";

  struct Case {
    const char* line;
    ResultCode result;
    const char* text;
  };
  const Case cases[] = {
      {"", kOk, ""},
      {";debug", kErrSyntax, "ERROR -3: Syntax error\r\n"},
      {"badcmd;debug", kErrBadCommand, "ERROR -100: Bad or invalid command\r\n"},
      {"debu", kErrBadCommand, "ERROR -100: Bad or invalid command\r\n"},
      {"debug worker;delay", kErrBadArgs,
       "worker = off\nERROR -102: Bad or missing arguments (try 'help delay')\r\n"},
      {"debug capture;reset can;debug capture", kErrConnect,
       "capture = off\nERROR -10: Connect failed\r\n"},
  };
  for (const Case& c : cases) {
    const LineRun run = RunLine(c.line);
    EXPECT_EQ(c.result, run.result) << c.line;
    EXPECT_EQ(c.text, run.text) << c.line;
  }
  EXPECT_EQ(99U, RunLine("help", 100).text.size()) << "output cut at the buffer size";
}

TEST_F(ExecutorTest, HugeAndHostileLinesGetAClearResult) {
  std::string line;
  for (int i = 0; i < 10000; ++i) line += "quit;";
  EXPECT_EQ(kOk, RunLine(line).result);
  std::string noise(100000, 'a');
  noise[500] = '\x80';
  noise[600] = '\x01';
  noise[700] = '"';
  EXPECT_EQ(kErrBadCommand, RunLine(noise).result);
  EXPECT_EQ(kErrBadCommand, RunLine(std::string(63, 'q') + "quit").result)
      << "names are cut at 63 characters";
}

TEST_F(ExecutorTest, DebugSetsAndShowsFlags) {
  EXPECT_EQ("Debugging options:\nsocket = off\nworker = off\ncapture = off\nserial = off\n",
            RunLine("debug").text);
  EXPECT_EQ("socket = on\n", RunLine("debug socket=on").text);
  EXPECT_TRUE(CurrentSettings().debug_socket);
  EXPECT_EQ("socket = off\n", RunLine("debug socket maybe").text)
      << "a value that is no keyword and no number reads as 0";
  EXPECT_EQ("socket = on\nworker = on\ncapture = on\nserial = on\n", RunLine("debug all 1").text);
  EXPECT_EQ("", RunLine("debug nothing on").text);
}

TEST_F(ExecutorTest, HelpListsAndDetailsTheVisibleCommands) {
  const std::string list = RunLine("help").text;
  EXPECT_EQ(0U,
            list.find("      addr - Set or get IP address\n      baud - Read or write baudrate\n"));
  EXPECT_EQ(std::string::npos, list.find("tetris"));
  EXPECT_EQ(41, std::count(list.begin(), list.end(), '\n'));
  EXPECT_EQ(
      "function:\n\tdelay, sleep\n\ndescription:\n\tExecution delay in ms\n\n"
      "arguments:\n\t<value>            - number of millisecods to sleep\n"
      "\t<value>s           - number of secods to sleep\n\n",
      RunLine("help SLEEP").text);
  EXPECT_EQ("function:\n\tquit\n\ndescription:\n\tQuits the program\n\narguments:\n\t<none>\n\n",
            RunLine("help quit").text);
  const std::string version = RunLine("help version").text;
  EXPECT_EQ(0U, version.find("function:\n\tsver, version\n"));
  EXPECT_NE(std::string::npos, version.find("function:\n\tver, version\n"));
  EXPECT_NE(std::string::npos,
            RunLine("help addr")
                .text.find("examples:\n\t'addr 1.2.3.4'     - set address to '1.2.3.4'\n"));
  EXPECT_EQ("", RunLine("help tetris").text);
  // Hidden, but still a command (run at a terminal and without one by the e2e tests).
  EXPECT_NE(nullptr, FindCommand("tetris"));
}

}  // namespace
}  // namespace kel
