#include "shell/executor.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "config/settings.h"
#include "shell/command.h"

namespace kel {
namespace {

// Runs a line against a target where nothing listens, so device commands fail to connect.
struct LineRun {
  ResultCode result;
  std::string text;
};

LineRun RunLine(std::string_view line, size_t size = 16384) {
  Output out(size);
  const ResultCode result = RunCommandLine(DeviceTarget{"127.0.0.1", 1}, line, out);
  return LineRun{result, std::string(out.Text())};
}

class ExecutorTest : public ::testing::Test {
 protected:
  void SetUp() override { CurrentSettings() = Settings(); }
  void TearDown() override { CurrentSettings() = Settings(); }
};

TEST_F(ExecutorTest, SeparatorsSplitCommandsAndStopRulesHold) {
  const std::string both = "socket = on\nsocket = on\n";
  EXPECT_EQ(both, RunLine("debug socket on;debug socket").text);
  EXPECT_EQ(both, RunLine("debug socket on\r\ndebug socket").text);
  EXPECT_EQ(both, RunLine("debug socket on;;  ;debug socket").text);
  EXPECT_EQ("socket = on\n", RunLine("debug socket on debug socket").text)
      << "a second command on the same segment is an ignored argument";

  const LineRun syntax = RunLine(";debug");
  EXPECT_EQ(kErrSyntax, syntax.result);
  EXPECT_EQ("ERROR -3: Syntax error\r\n", syntax.text);

  const LineRun unknown = RunLine("badcmd;debug socket");
  EXPECT_EQ(kErrBadCommand, unknown.result);
  EXPECT_EQ("ERROR -100: Bad or invalid command\r\n", unknown.text);

  const LineRun empty = RunLine("");
  EXPECT_EQ(kOk, empty.result);
  EXPECT_EQ("", empty.text);
}

TEST_F(ExecutorTest, NamesMatchWholeWordsWithoutCase) {
  EXPECT_EQ("socket = off\n", RunLine("DEBUG socket").text);
  EXPECT_EQ(kErrBadCommand, RunLine("debu").result);
  EXPECT_EQ(kErrBadCommand, RunLine(std::string(63, 'q') + "quit").result)
      << "names are cut at 63 characters, the rest is dropped";
}

TEST_F(ExecutorTest, OutputOfEarlierCommandsStaysBeforeAnError) {
  const LineRun run = RunLine("debug worker;delay");
  EXPECT_EQ(kErrBadArgs, run.result);
  EXPECT_EQ("worker = off\nERROR -102: Bad or missing arguments (try 'help delay')\r\n", run.text);
}

TEST_F(ExecutorTest, DeviceCommandsFailToConnectWithoutCallingTheHandler) {
  const LineRun run = RunLine("debug socket;reset can;debug socket");
  EXPECT_EQ(kErrConnect, run.result);
  EXPECT_EQ("socket = off\nERROR -10: Connect failed\r\n", run.text);
}

TEST_F(ExecutorTest, OutputIsCutAtTheBufferSize) {
  const LineRun run = RunLine("help", 100);
  EXPECT_EQ(99U, run.text.size());
}

TEST_F(ExecutorTest, HugeLinesAndManyCommandsRunToTheirEnd) {
  std::string line;
  for (int i = 0; i < 10000; ++i) line += "quit;";
  EXPECT_EQ(kOk, RunLine(line).result);
  std::string noise(100000, 'a');
  noise[500] = '\x80';
  noise[600] = '\x01';
  noise[700] = '"';
  EXPECT_EQ(kErrBadCommand, RunLine(noise).result);
  EXPECT_EQ(kErrBadCommand, RunLine("\xff\xfe;quit").result);
}

TEST_F(ExecutorTest, DebugSetsAndShowsFlags) {
  EXPECT_EQ("Debugging options:\nsocket = off\nworker = off\ncapture = off\nserial = off\n",
            RunLine("debug").text);
  EXPECT_EQ("socket = on\n", RunLine("debug socket=on").text);
  EXPECT_TRUE(CurrentSettings().debug_socket);
  EXPECT_EQ("socket = off\n", RunLine("debug socket maybe").text)
      << "a value that is no keyword and no number reads as 0";
  EXPECT_EQ("socket = on\nworker = on\ncapture = on\nserial = on\n", RunLine("debug all 1").text);
  EXPECT_EQ("capture = off\n", RunLine("debug CAPTURE off").text);
  const LineRun unknown = RunLine("debug nothing on");
  EXPECT_EQ(kOk, unknown.result);
  EXPECT_EQ("", unknown.text);
}

TEST_F(ExecutorTest, HelpListsVisibleCommandsSorted) {
  const std::string text = RunLine("help").text;
  EXPECT_EQ(0U,
            text.find("      addr - Set or get IP address\n      baud - Read or write baudrate\n"));
  EXPECT_EQ(std::string::npos, text.find("tetris"));
  EXPECT_NE(std::string::npos, text.find("       log - Start CAN packet logging\n"));
  EXPECT_EQ(41, std::count(text.begin(), text.end(), '\n'));
}

TEST_F(ExecutorTest, HelpShowsDetailsOfEveryRowWithTheName) {
  EXPECT_EQ(
      "function:\n\tdelay, sleep\n\n"
      "description:\n\tExecution delay in ms\n\n"
      "arguments:\n\t<value>            - number of millisecods to sleep\n"
      "\t<value>s           - number of secods to sleep\n\n",
      RunLine("help SLEEP").text);
  EXPECT_EQ("function:\n\tquit\n\ndescription:\n\tQuits the program\n\narguments:\n\t<none>\n\n",
            RunLine("help quit").text);
  const std::string version = RunLine("help version").text;
  EXPECT_EQ(0U, version.find("function:\n\tsver, version\n"));
  EXPECT_NE(std::string::npos, version.find("function:\n\tver, version\n"));
  const std::string addr = RunLine("help addr").text;
  EXPECT_NE(std::string::npos,
            addr.find("examples:\n\t'addr 1.2.3.4'     - set address to '1.2.3.4'\n"));
  EXPECT_EQ("", RunLine("help tetris").text);
  EXPECT_EQ("", RunLine("help nothing").text);
  EXPECT_EQ(kErrNok, RunLine("tetris").result) << "hidden, but still a command";
}

}  // namespace
}  // namespace kel
