// kelsim as a user meets it: options, the start-up line, frames over its ports, and a clean
// end on SIGTERM and SIGINT.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "device/command_codes.h"
#include "device/frame.h"
#include "platform/clock.h"
#include "platform/subprocess.h"
#include "sim/config.h"
#include "sim/frame_client.h"
#include "sim/simulator.h"
#include "support/kelsim_process.h"
#include "support/programs.h"
#include "support/temp_dir.h"

namespace kel {
namespace {

using testing::ProgramRun;

constexpr int kLongMs = 20000;

ProgramRun Kelsim(const std::vector<std::string>& args, const std::string& dir) {
  return testing::RunProgram(testing::KelsimPath(), args, "", dir);
}

platform::SocketAddress Loopback(uint16_t port) {
  return platform::SocketAddress{*sim::ParseIpv4("127.0.0.1"), port};
}

class KelsimTest : public ::testing::Test {
 protected:
  testing::TempDir dir_;
};

TEST_F(KelsimTest, HelpListsEveryOption) {
  const ProgramRun run = Kelsim({"--help"}, dir_.Path().string());
  EXPECT_TRUE(run.exited);
  EXPECT_EQ(0, run.status);
  EXPECT_EQ(0U, run.output.find("usage: kelsim [options]\n"));
  for (const char* option :
       {"--port N", "--bind ADDR", "--wire GROUPS", "--pace", "--help", "--noise N",
        "--delay-answer CODE:MS", "--drop-answer CODE", "--split-bytes", "--drop-every N",
        "--close-after N", "--close-mid-frame", "--ignore-set-baud"}) {
    EXPECT_NE(std::string::npos, run.output.find("  " + std::string(option) + " "))
        << option << " is missing from:\n"
        << run.output;
  }
}

TEST_F(KelsimTest, BadOptionsEndAtOnceWithAReason) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"--nope"}, "kelsim: unknown option '--nope' (kelsim --help lists the options)\n"},
      {{"--port", "70000"},
       "kelsim: --port needs a port number 0-65532, not 70000 (kelsim --help lists the "
       "options)\n"},
      {{"--wire", "0-5"},
       "kelsim: --wire needs groups of channels 0-3 such as 0-2,1-3, not '0-5' (kelsim --help "
       "lists the options)\n"},
  };
  for (const auto& [args, message] : cases) {
    const ProgramRun run = Kelsim(args, dir_.Path().string());
    EXPECT_TRUE(run.exited) << args[0];
    EXPECT_EQ(2, run.status) << args[0];
    EXPECT_EQ(message, run.output);
  }
}

TEST_F(KelsimTest, APortInUseEndsWithStatus1) {
  sim::Config config;
  config.base_port = 0;
  sim::Simulator other(config);
  ASSERT_TRUE(other.Start()) << other.Error();
  const std::string port = std::to_string(other.BasePort() + 3);
  const ProgramRun run = Kelsim({"--port", port}, dir_.Path().string());
  EXPECT_TRUE(run.exited);
  EXPECT_EQ(1, run.status);
  EXPECT_EQ("kelsim: cannot listen on 127.0.0.1 port " + port +
                " (in use, or the address is not this host's)\n",
            run.output);
}

// Started with options from each group (wiring and a fault), kelsim serves frames on the
// ports it names and ends with status 0 on SIGTERM.
TEST_F(KelsimTest, ServesTheBoardAndEndsCleanlyOnSigterm) {
  testing::KelsimProcess kelsim({"--wire", "0-1", "--noise", "1"});
  const uint16_t base = kelsim.BasePort();
  ASSERT_NE(0, base) << kelsim.Output();

  sim::FrameClient c0;
  sim::FrameClient c1;
  ASSERT_TRUE(c0.Connect(Loopback(base)));
  ASSERT_TRUE(c1.Connect(Loopback(base + 1)));
  // The answer, after the one noise frame that --noise 1 asks for.
  ASSERT_TRUE(c0.SendCommand(code::kGetBaud));
  ASSERT_TRUE(c0.Receive(kLongMs));
  const std::optional<FrameBytes> answer = c0.Receive(kLongMs);
  ASSERT_TRUE(answer);
  EXPECT_EQ(code::kBaudrate, FrameWord(answer->data(), 0));
  EXPECT_EQ(3U, FrameWord(answer->data(), 2));
  // Channel 1 answered too, so the board has taken its connection before the traffic.
  ASSERT_TRUE(c1.SendCommand(code::kOutputs));
  ASSERT_TRUE(c1.ReceiveAnswer(code::kOutputs, kLongMs));
  // --wire 0-1: channel 1 hears channel 0.
  ASSERT_TRUE(c0.Send(EncodeCanData(CanDataFrame{0x321, 2, 0, 0, 0, {0xAB, 0xCD}})));
  const std::optional<FrameBytes> routed = c1.Receive(kLongMs);
  ASSERT_TRUE(routed);
  EXPECT_EQ(0x321U, FrameWord(routed->data(), 0));
  EXPECT_EQ(0x0102U, FrameWord(routed->data(), 1));

  [[maybe_unused]] const platform::ChildExit end = kelsim.Stop();
  EXPECT_TRUE(c0.ReceiveAll(kLongMs).empty());
  EXPECT_TRUE(c0.PeerClosed());
#ifndef _WIN32
  // Windows has no SIGTERM: there the test can only terminate the process.
  EXPECT_TRUE(end.exited);
  EXPECT_EQ(0, end.status);
  EXPECT_EQ("kelsim: board on 127.0.0.1 ports " + std::to_string(base) + "-" +
                std::to_string(base + 3) + "\nkelsim: SIGTERM, board stopped\n",
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
  EXPECT_TRUE(run.exited);
  EXPECT_EQ(0U, run.output.find("status 0\nkelsim: board on 127.0.0.1 ports ")) << run.output;
  EXPECT_NE(std::string::npos, run.output.find("\nkelsim: SIGINT, board stopped\n")) << run.output;
}

}  // namespace
}  // namespace kel
