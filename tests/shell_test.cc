// The shell as a user meets it: options, batch and console modes, exit statuses.

#include <gtest/gtest.h>

#include "shell/result.h"
#include "support/programs.h"
#include "support/temp_dir.h"

namespace kel {
namespace {

using testing::ProgramRun;

constexpr const char* kBanner =
    "========================================\n"
    "==         KELCommander v0.19         ==\n"
    "== Address 127.0.0.1                  ==\n"
    "== Port    27015 / Ch 0               ==\n"
    "== Quit kills, Help help gives hope   ==\n"
    "========================================\n"
    "\n";

std::string Usage(const std::string& address, int channel, int port, int proxy_port) {
  return "syntax:  kelcmd -a<address> -p<port> {cmd} ... {cmd}\n"
         "\n"
         "options: -a<address>   device ip addres (default:" +
         address +
         ")\n"
         "         -c<channel>   device can channel (default:" +
         std::to_string(channel) +
         ")\n"
         "         -i<inifile>   ini-filename (default:kelcmd.ini)\n"
         "         -p<port>      device port (default:" +
         std::to_string(port) +
         ")\n"
         "         -m<filter>    search device IP with MAC address\n"
         "         -s<serial>    serial communication port (default:)\n"
         "         -x<port>      start proxy mode (use <port> or default:" +
         std::to_string(proxy_port) +
         ")\n"
         "\n"
         "params:  {cmd}         command or command to be executed,\n"
         "                       multiple command needs to separate with ';'\n"
         "                       characted.\n"
         "                       (if not defined, use console mode)\n"
         "         {cmd} {cmd}   multiple command will be joined to one\n"
         "\n";
}

class ShellTest : public ::testing::Test {
 protected:
  ProgramRun Kelcmd(const std::vector<std::string>& args, const std::string& input = "") {
    return testing::RunKelcmd(args, input, dir_.Path().string());
  }
  testing::TempDir dir_;
};

TEST_F(ShellTest, UnknownOptionLettersPrintTheUsage) {
  for (const char* option : {"-h", "-z", "-A", "-", "-y5"}) {
    const ProgramRun run = Kelcmd({option, "debug"});
    EXPECT_TRUE(run.exited) << option;
    EXPECT_EQ(0, run.status) << option;
    EXPECT_EQ(Usage("127.0.0.1", 0, 27015, 27015), run.output) << option;
  }
}

TEST_F(ShellTest, OptionsApplyInArgumentOrder) {
  EXPECT_EQ(Usage("10.9.8.7", 2, 1000, 1000),
            Kelcmd({"-a10.9.8.7", "-c2", "-p1000", "-x5", "-h"}).output);
  EXPECT_EQ(Usage("127.0.0.1", 0, 1000, 27015), Kelcmd({"-x5", "-p1000", "-h"}).output);
  EXPECT_EQ(Usage("127.0.0.1", 0, 27015, 0), Kelcmd({"-x", "-h"}).output);
  testing::WriteFile(dir_.File("other.ini"), "[SETTINGS]\nDevicePort = 7\n");
  EXPECT_EQ("IP address 127.0.0.1:7/0\r\n", Kelcmd({"-p5", "-iother.ini", "addr"}).output);
  EXPECT_EQ("IP address 127.0.0.1:5/0\r\n", Kelcmd({"-iother.ini", "-p5", "addr"}).output);
}

TEST_F(ShellTest, DiscoveryThatFindsNothingEndsAtOnce) {
  const ProgramRun run = Kelcmd({"-m00:11", "debug"});
  EXPECT_EQ(0, run.status);
  EXPECT_EQ("Scanning network ... device not found!\n", run.output);
}

TEST_F(ShellTest, BatchModeJoinsWordsAndExitsWithTheResult) {
  ProgramRun run = Kelcmd({"debug", "socket;", "debug", "worker"});
  EXPECT_EQ(0, run.status);
  EXPECT_EQ("socket = off\nworker = off\n", run.output);

  run = Kelcmd({"nosuchcmd"});
  EXPECT_EQ(testing::StatusOf(kErrBadCommand), run.status);
  EXPECT_EQ("ERROR -100: Bad or invalid command\r\n", run.output);

  run = Kelcmd({"-p1", "reset", "can"});
  EXPECT_EQ(testing::StatusOf(kErrConnect), run.status);
  EXPECT_EQ("ERROR -10: Connect failed\r\n", run.output);
}

TEST_F(ShellTest, OutputIsPrintedSafely) {
  const ProgramRun run = Kelcmd({"-a%n%s%n%d", "addr"});
  EXPECT_TRUE(run.exited);
  EXPECT_EQ(0, run.status);
  EXPECT_EQ("IP address 0:27015/0\r\n", run.output);
}

TEST_F(ShellTest, SettingsFileInTheWorkingDirectoryIsRead) {
  testing::WriteFile(
      dir_.File("kelcmd.ini"),
      "[SETTINGS]\r\nDevicePort = 2222\r\n[LOGGING]\r\nFileSizeM = 3\r\nFileCount = 7");
  EXPECT_EQ("IP address 127.0.0.1:2222/0\r\n", Kelcmd({"addr"}).output);
}

TEST_F(ShellTest, ConsoleRunsLinesUntilExit) {
  const ProgramRun run = Kelcmd({}, "debug socket on\n\n  EXIT  \ndebug worker\n");
  EXPECT_EQ(0, run.status);
  EXPECT_EQ(std::string(kBanner) + "~>socket = on\n~>~>", run.output);
}

TEST_F(ShellTest, ConsoleQuitMustStandAlone) {
  const ProgramRun run = Kelcmd({}, "debug worker;quit\r\n\t quit \nhelp\n");
  EXPECT_EQ(0, run.status);
  EXPECT_EQ(std::string(kBanner) + "~>worker = off\n~>", run.output);
}

TEST_F(ShellTest, ConsoleEndsAtTheEndOfInputWithStatusZero) {
  const ProgramRun run = Kelcmd({}, "nosuchcmd\ndebug capture");
  EXPECT_TRUE(run.exited) << "a piped script must never spin";
  EXPECT_EQ(0, run.status);
  EXPECT_EQ(std::string(kBanner) + "~>ERROR -100: Bad or invalid command\r\n~>capture = off\n~>",
            run.output);
}

TEST_F(ShellTest, BannerShowsProxyAndLogging) {
  testing::WriteFile(dir_.File("kelcmd.ini"),
                     "[LOGGING]\nActive = 1\nFileSizeM = 3\nFileCount = 7\n");
  const ProgramRun run = Kelcmd({"-iother-missing.ini"}, "exit\n");
  EXPECT_NE(std::string::npos, run.output.find("== Port    27015 / Ch 0               ==\n"
                                               "== Logging     3 MiB *     7 slice    ==\n"
                                               "== Quit kills"));
}

TEST_F(ShellTest, DelayCountsDownAndAcceptsUnits) {
  const ProgramRun run = Kelcmd({"delay", "0.2s;", "delay"});
  EXPECT_EQ(testing::StatusOf(kErrBadArgs), run.status);
  EXPECT_EQ("Sleeping 0s     \r\nERROR -102: Bad or missing arguments (try 'help delay')\r\n",
            run.output);
}

}  // namespace
}  // namespace kel
