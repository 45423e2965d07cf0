// kelsim as a user meets it: its options, its ports, frames over them and a clean end.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "device/command_codes.h"
#include "device/frame.h"
#include "sim/frame_client.h"
#include "support/kelsim_process.h"
#include "support/programs.h"
#include "support/temp_dir.h"

namespace kel {
namespace {

using testing::ProgramRun;

constexpr int kLongMs = 20000;

class KelsimTest : public ::testing::Test {
 protected:
  ProgramRun Kelsim(const std::vector<std::string>& args) {
    return testing::RunProgram(testing::KelsimPath(), args, "", dir_.Path().string());
  }

  testing::TempDir dir_;
};

TEST_F(KelsimTest, HelpListsEveryOptionAndABadOptionEndsWithStatus2) {
  const ProgramRun help = Kelsim({"--help"});
  EXPECT_TRUE(help.exited && help.status == 0) << help.status;
  EXPECT_EQ(0U, help.output.find("usage: kelsim [options]\n"));
  for (const char* option :
       {"--port N", "--bind ADDR", "--wire GROUPS", "--pace", "--help", "--noise N",
        "--delay-answer CODE:MS", "--drop-answer CODE", "--split-bytes", "--drop-every N",
        "--close-after N", "--close-mid-frame", "--ignore-set-baud", "--serial",
        "--serial-link PATH", "--verbose", "--buzzer-wav FILE"}) {
    EXPECT_NE(std::string::npos, help.output.find("  " + std::string(option) + " ")) << option;
  }
  const ProgramRun bad = Kelsim({"-x"});
  EXPECT_TRUE(bad.exited && bad.status == 2) << bad.status;
  EXPECT_EQ("kelsim: unknown option '-x' (kelsim --help lists the options)\n", bad.output);
}

// Options of both groups (wiring and a fault) reach the board.
TEST_F(KelsimTest, ServesTheBoardOnThePortsItNamesAndHoldsThem) {
  testing::KelsimProcess kelsim({"--wire", "0-1", "--noise", "1"});
  const std::string base = std::to_string(kelsim.BasePort());
  ASSERT_NE(0, kelsim.BasePort()) << kelsim.Output();
  EXPECT_EQ("kelsim: board on 127.0.0.1 ports " + base + "-" +
                std::to_string(kelsim.BasePort() + 3) + "\n",
            kelsim.Output());
  sim::FrameClient c0, c1;
  ASSERT_TRUE(c0.Connect(kelsim.Address(0)) && c1.Connect(kelsim.Address(1)));
  ASSERT_TRUE(kelsim.WaitForClients(2));
  ASSERT_TRUE(c0.SendCommand(code::kGetBaud));
  ASSERT_TRUE(c0.Receive(kLongMs)) << "the noise frame that --noise 1 asks for";
  EXPECT_EQ(EncodeCommand(CommandFrame{code::kBaudrate, 0, 3, 0}), c0.Receive(kLongMs));
  // --wire 0-1: channel 1 hears channel 0, with its own channel number.
  ASSERT_TRUE(c0.Send(EncodeCanData(CanDataFrame{0x321, 2, 0, 0, 0, {0xAB, 0xCD}})));
  EXPECT_EQ(EncodeCanData(CanDataFrame{0x321, 2, 1, 0, 0, {0xAB, 0xCD}}), c1.Receive(kLongMs));

  const ProgramRun second = Kelsim({"--port", base});
  EXPECT_TRUE(second.exited && second.status == 1) << second.status;
  EXPECT_EQ("kelsim: cannot listen on 127.0.0.1 port " + base +
                " (in use, or the address is not this host's)\n",
            second.output);
}

// Started in the background by a script, where SIGINT arrives ignored, kelsim still ends
// cleanly on it, as on SIGTERM.
TEST_F(KelsimTest, EndsCleanlyOnSigtermAndOnSigintFromAScript) {
#ifdef _WIN32
  GTEST_SKIP() << "needs a POSIX shell and signals";
#endif
  const std::string script =
      "\"$0\" --port 0 >$1.out 2>&1 & pid=$!\n"
      "n=0; until grep -qs ports $1.out || [ $n -ge 400 ]; do sleep 0.05; n=$((n+1)); done\n"
      "kill -$1 $pid; wait $pid; echo \"status $?\"; cat $1.out\n";
  for (const std::string signal : {"TERM", "INT"}) {
    const ProgramRun run = testing::RunProgram(
        "/bin/sh", {"-c", script, testing::KelsimPath(), signal}, "", dir_.Path().string());
    EXPECT_EQ(0U, run.output.find("status 0\nkelsim: board on 127.0.0.1 ports ")) << run.output;
    EXPECT_TRUE(run.output.ends_with("\nkelsim: SIG" + signal + ", board stopped\n")) << run.output;
  }
}

}  // namespace
}  // namespace kel
