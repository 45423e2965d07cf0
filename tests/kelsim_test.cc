// kelsim as a user meets it: --help, a bad option, a port in use, the start-up line, frames
// over its ports, and a clean end on SIGTERM and SIGINT.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "device/command_codes.h"
#include "device/frame.h"
#include "platform/subprocess.h"
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

TEST_F(KelsimTest, HelpListsEveryOption) {
  const ProgramRun run = Kelsim({"--help"});
  EXPECT_TRUE(run.exited && run.status == 0) << run.status;
  EXPECT_EQ(0U, run.output.find("usage: kelsim [options]\n"));
  for (const char* option :
       {"--port N", "--bind ADDR", "--wire GROUPS", "--pace", "--help", "--noise N",
        "--delay-answer CODE:MS", "--drop-answer CODE", "--split-bytes", "--drop-every N",
        "--close-after N", "--close-mid-frame", "--ignore-set-baud"}) {
    EXPECT_NE(std::string::npos, run.output.find("  " + std::string(option) + " ")) << option;
  }
}

TEST_F(KelsimTest, ABadOptionEndsWithStatus2) {
  const ProgramRun run = Kelsim({"--port", "70000"});
  EXPECT_TRUE(run.exited && run.status == 2) << run.status;
  EXPECT_EQ(
      "kelsim: --port needs a port number 0-65532, not 70000 (kelsim --help lists the "
      "options)\n",
      run.output);
}

// Started with options from each group (wiring and a fault), kelsim serves frames on the
// ports its start-up line names, keeps them from a second kelsim, and ends with status 0 on
// SIGTERM.
TEST_F(KelsimTest, ServesTheBoardHoldsItsPortsAndEndsCleanlyOnSigterm) {
  testing::KelsimProcess kelsim({"--wire", "0-1", "--noise", "1"});
  const std::string base = std::to_string(kelsim.BasePort());
  ASSERT_NE(0, kelsim.BasePort()) << kelsim.Output();
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

  [[maybe_unused]] const platform::ChildExit end = kelsim.Stop();
  EXPECT_TRUE(c0.ReceiveAll(kLongMs).empty() && c0.PeerClosed());
#ifndef _WIN32  // Windows has no SIGTERM: there the test can only terminate the process.
  EXPECT_TRUE(end.exited && end.status == 0) << end.status;
  EXPECT_EQ("kelsim: board on 127.0.0.1 ports " + base + "-" +
                std::to_string(kelsim.BasePort() + 3) + "\nkelsim: SIGTERM, board stopped\n",
            kelsim.Output());
#endif
}

// Started in the background by a script, where SIGINT arrives ignored, kelsim still ends
// cleanly on it.
TEST_F(KelsimTest, EndsCleanlyOnSigintFromAScript) {
#ifdef _WIN32
  GTEST_SKIP() << "needs a POSIX shell and signals";
#endif
  const std::string script =
      "\"$0\" --port 0 >out 2>&1 & pid=$!\n"
      "n=0; until grep -qs ports out || [ $n -ge 400 ]; do sleep 0.05; n=$((n+1)); done\n"
      "kill -INT $pid; wait $pid; echo \"status $?\"; cat out\n";
  const ProgramRun run = testing::RunProgram("/bin/sh", {"-c", script, testing::KelsimPath()}, "",
                                             dir_.Path().string());
  EXPECT_TRUE(run.exited) << run.status;
  EXPECT_EQ(0U, run.output.find("status 0\nkelsim: board on 127.0.0.1 ports ")) << run.output;
  EXPECT_NE(std::string::npos, run.output.find("\nkelsim: SIGINT, board stopped\n")) << run.output;
}

}  // namespace
}  // namespace kel
