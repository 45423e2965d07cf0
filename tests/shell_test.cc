// The shell as a user meets it: options, batch and console modes, exit statuses.

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>

#include "core/result.h"
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
  char text[1024];
  std::snprintf(text, sizeof text,
                "syntax:  kelcmd -a<address> -p<port> {cmd} ... {cmd}\n\n"
                "options: -a<address>   device ip addres (default:%s)\n"
                "         -c<channel>   device can channel (default:%d)\n"
                "         -i<inifile>   ini-filename (default:kelcmd.ini)\n"
                "         -p<port>      device port (default:%d)\n"
                "         -m<filter>    search device IP with MAC address\n"
                "         -s<serial>    serial communication port (default:)\n"
                "         -x<port>      start proxy mode (use <port> or default:%d)\n\n"
                "params:  {cmd}         command or command to be executed,\n"
                "                       multiple command needs to separate with ';'\n"
                "                       characted.\n"
                "                       (if not defined, use console mode)\n"
                "         {cmd} {cmd}   multiple command will be joined to one\n\n",
                address.c_str(), channel, port, proxy_port);
  return text;
}

class ShellTest : public ::testing::Test {
 protected:
  ProgramRun Kelcmd(const std::vector<std::string>& args, const std::string& input = "") {
    return testing::RunKelcmd(args, input, dir_.Path().string());
  }
  testing::TempDir dir_;
};

TEST_F(ShellTest, OptionsThatEndTheProgramPrintTheUsageOrTheEmptyScan) {
  const std::string usage = Usage("127.0.0.1", 0, 27015, 27015);
  // A filter that is no MAC address is never scanned for: no datagram leaves this machine.
  const std::pair<const char*, std::string> cases[] = {
      {"-h", usage}, {"-z", usage},  {"-A", usage},
      {"-", usage},  {"-y5", usage}, {"-mxyz", "Scanning network ... device not found!\n"}};
  for (const auto& [option, output] : cases) {
    const ProgramRun run = Kelcmd({option, "debug"});
    EXPECT_TRUE(run.exited) << option;
    EXPECT_EQ(0, run.status) << option;
    EXPECT_EQ(output, run.output) << option;
  }
}

TEST_F(ShellTest, OptionsAndSettingsFilesApplyInArgumentOrder) {
  EXPECT_EQ(Usage("10.9.8.7", 2, 1000, 1000),
            Kelcmd({"-a10.9.8.7", "-c2", "-p1000", "-x5", "-h"}).output);
  EXPECT_EQ(Usage("127.0.0.1", 0, 1000, 27015), Kelcmd({"-x5", "-p1000", "-h"}).output);
  testing::WriteFile(
      dir_.File("kelcmd.ini"),
      "[SETTINGS]\r\nDevicePort = 2222\r\n[LOGGING]\r\nFileSizeM = 3\r\nFileCount = 7");
  testing::WriteFile(dir_.File("other.ini"), "[SETTINGS]\nDevicePort = 7\n");
  const std::pair<std::vector<std::string>, const char*> cases[] = {
      {{"addr"}, "IP address 127.0.0.1:2222/0\r\n"},  // the file in the working directory
      {{"-p5", "-iother.ini", "addr"}, "IP address 127.0.0.1:7/0\r\n"},
      {{"-iother.ini", "-p5", "addr"}, "IP address 127.0.0.1:5/0\r\n"},
      {{"-a%n%s%n%d", "addr"}, "IP address 0:2222/0\r\n"},  // printed safely
  };
  for (const auto& [args, output] : cases) EXPECT_EQ(output, Kelcmd(args).output) << args[0];
}

TEST_F(ShellTest, BatchModeJoinsWordsAndExitsWithTheResult) {
  ProgramRun run = Kelcmd({"debug", "socket;", "debug", "worker"});
  EXPECT_EQ(0, run.status);
  EXPECT_EQ("socket = off\nworker = off\n", run.output);

  run = Kelcmd({"delay", "0.2s;", "delay"});
  EXPECT_EQ(testing::StatusOf(kErrBadArgs), run.status);
  EXPECT_EQ("Sleeping 0s     \r\nERROR -102: Bad or missing arguments (try 'help delay')\r\n",
            run.output);
}

TEST_F(ShellTest, ConsoleRunsLinesUntilAStandAloneExitOrQuitOrTheEndOfInput) {
  const std::pair<const char*, const char*> cases[] = {
      {"debug socket on\n\n  EXIT  \ndebug worker\n", "~>socket = on\n~>~>"},
      {"debug worker;quit\r\n\t quit \nhelp\n", "~>worker = off\n~>"},
      {"nosuchcmd\ndebug capture", "~>ERROR -100: Bad or invalid command\r\n~>capture = off\n~>"},
  };
  for (const auto& [input, output] : cases) {
    const ProgramRun run = Kelcmd({}, input);
    EXPECT_TRUE(run.exited) << "a piped script must never spin";
    EXPECT_EQ(0, run.status) << input;
    EXPECT_EQ(kBanner + std::string(output), run.output) << input;
  }
}

TEST_F(ShellTest, BannerShowsTheProxyAndLoggingSettings) {
  testing::WriteFile(dir_.File("kelcmd.ini"),
                     "[PROXY]\nProxyMode = on\nProxyPort = 0\n"
                     "[LOGGING]\nActive = 1\nFileSizeM = 3\nFileCount = 7\n");
  const ProgramRun run = Kelcmd({"-iother-missing.ini"}, "exit\n");
  EXPECT_NE(std::string::npos, run.output.find("== Port    27015 / Ch 0 (Proxy     0) ==\n"
                                               "== Logging     3 MiB *     7 slice    ==\n"
                                               "== Quit kills"))
      << run.output;
}

#ifndef _WIN32
// A save that runs out of room (here: a file size limit of 512 bytes, less than the long
// log path makes the document) reports "failed" and leaves the old file as it was.
TEST_F(ShellTest, ASaveThatFailsMidwayLeavesTheOldFileWhole) {
  const std::string old = "[SETTINGS]\r\nDevicePort = 27100\r\n";
  testing::WriteFile(dir_.File("kelcmd.ini"), old);
  const std::string line = "log path " + std::string(1000, 'p') + "\nconf save";
  // The limit's signal is ignored, so that the write fails instead of ending the program.
  const ProgramRun run = testing::RunProgram(
      "/bin/sh",
      {"-c", "trap '' XFSZ; ulimit -f 1; exec \"$0\" \"$1\"", testing::KelcmdPath(), line}, "",
      dir_.Path().string());
  EXPECT_NE(std::string::npos, run.output.find("Saving configs failed\n")) << run.output;
  EXPECT_EQ(old, testing::ReadFile(dir_.File("kelcmd.ini")));
  EXPECT_EQ(1, std::distance(std::filesystem::directory_iterator(dir_.Path()),
                             std::filesystem::directory_iterator()));
}
#endif

}  // namespace
}  // namespace kel
