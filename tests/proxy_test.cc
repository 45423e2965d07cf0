// The proxy as a user starts it: with -x or from kelcmd.ini, at the prompt with piped
// input and in batch mode, relaying kelcmd's own commands to the virtual board; and the
// starts that must fail.

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "device/command_codes.h"
#include "platform/socket.h"
#include "proxy/free_ports.h"
#include "sim/simulator.h"
#include "support/programs.h"
#include "support/temp_dir.h"

namespace kel {
namespace {

using testing::ProgramRun;

constexpr const char* kIntAnswer = "Reponse command : 0x00000000\nReponse data    : 0x00000000\n";
constexpr int kPortCount = 5;

std::string ListeningFrom(int first) {
  std::string text;
  for (int port = first; port < first + kPortCount; ++port) {
    text += "Listening port " + std::to_string(port) + "\n";
  }
  return text;
}

std::string Banner(int port, int proxy_port) {
  char line[64];
  std::snprintf(line, sizeof line, "== Port    %5d / Ch 0 (Proxy %5d) ==\n", port, proxy_port);
  return std::string(
             "========================================\n"
             "==         KELCommander v0.19         ==\n"
             "== Address 127.0.0.1                  ==\n") +
         line +
         "== Quit kills, Help help gives hope   ==\n"
         "========================================\n"
         "\n";
}

class ProxyTest : public ::testing::Test {
 protected:
  ProgramRun Kelcmd(const std::vector<std::string>& args, const std::string& input = "") {
    return testing::RunKelcmd(args, input, dir_.Path().string());
  }

  // A board on the free ports 2P..2P+3 for free proxy ports P..P+4: `-p<P> -x` leaves the
  // proxy port 0, so the proxy relays its port P + n to the device port P + (P + n).
  int StartBoardAtTwiceTheProxyPorts() {
    for (int attempt = 0; attempt < 50; ++attempt) {
      const int first = FindFreePorts(kPortCount);
      if (first == 0) continue;
      sim::Config config;
      config.base_port = static_cast<uint16_t>(2 * first);
      config.record_frames = true;
      auto board = std::make_unique<sim::Simulator>(config);
      if (!board->Start()) continue;
      board_ = std::move(board);
      return first;
    }
    return 0;
  }

  testing::TempDir dir_;
  std::unique_ptr<sim::Simulator> board_;
};

TEST_F(ProxyTest, OptionXStartsTheProxyBeforeThePromptAndRelaysTheShellsCommands) {
  const int first = StartBoardAtTwiceTheProxyPorts();
  ASSERT_NE(0, first);
  const ProgramRun run =
      Kelcmd({"-p" + std::to_string(first), "-x"}, "proxy\nint 0\nproxy off\nint 0\nquit\n");
  EXPECT_TRUE(run.exited);
  EXPECT_EQ(0, run.status);
  EXPECT_EQ(ListeningFrom(first) + Banner(first, 0) + "~>Proxy is running.\n" + "~>" + kIntAnswer +
                "~>Proxy is not running.\n" + "~>ERROR -10: Connect failed\r\n" + "~>",
            run.output);
  ASSERT_EQ(1U, board_->ReceivedFrames(0).size()) << "through the proxy, once";
  EXPECT_EQ(EncodeCommand(CommandFrame{code::kInternal, 0, 0, 0}), board_->ReceivedFrames(0)[0]);
}

TEST_F(ProxyTest, TheSettingsFileStartsTheProxyInBatchMode) {
  sim::Config config;
  config.base_port = 0;
  config.record_frames = true;
  sim::Simulator board(config);
  ASSERT_TRUE(board.Start()) << board.Error();
  const int first = FindFreePorts(kPortCount);
  ASSERT_NE(0, first);
  // The third listening port relays to the board's channel 2.
  const int proxy_port = first + 2 + first - (board.BasePort() + 2);
  testing::WriteFile(dir_.File("kelcmd.ini"), "[SETTINGS]\nDevicePort = " + std::to_string(first) +
                                                  "\nDeviceChannel = 2\n[PROXY]\nProxyMode = on\n"
                                                  "ProxyPort = " +
                                                  std::to_string(proxy_port) + "\n");
  const ProgramRun run = Kelcmd({"int", "0;", "proxy"});
  EXPECT_EQ(0, run.status);
  EXPECT_EQ(ListeningFrom(first) + kIntAnswer + "Proxy is running.\n", run.output);
  EXPECT_EQ(1U, board.ReceivedFrames(2).size());
  EXPECT_TRUE(board.ReceivedFrames(0).empty());
}

TEST_F(ProxyTest, AClientThatWouldBeRelayedBackIntoTheProxyIsRefused) {
  // `-x` with a port makes the proxy port the device port: on this host every listening
  // port would relay to itself.
  const int first = FindFreePorts(kPortCount);
  ASSERT_NE(0, first);
  const ProgramRun run = Kelcmd({"-p" + std::to_string(first), "-x1", "int", "0"});
  EXPECT_TRUE(run.exited);
  EXPECT_EQ(ListeningFrom(first) + "***ERROR : port " + std::to_string(first) +
                " would relay into the proxy itself - client refused\n" +
                "ERROR -101: MsgIO failed\r\n",
            run.output);
}

TEST_F(ProxyTest, FailedStartsLeaveTheProxyStopped) {
  const int first = FindFreePorts(kPortCount);
  ASSERT_NE(0, first);
  EXPECT_EQ(
      "IP and port overlapping - check the device address and ports!\n"
      "Proxy is not running.\n",
      Kelcmd({"-a1.0.0.127", "-x1", "proxy"}).output);

  const platform::Socket taken = platform::ListenTcp({0, static_cast<uint16_t>(first + 3)}, 1);
  ASSERT_TRUE(taken.Valid());
  const ProgramRun run = Kelcmd({"-p" + std::to_string(first), "-x", "proxy", "status"});
  EXPECT_EQ(0, run.status);
  std::string listening = ListeningFrom(first);
  listening.resize(listening.size() / kPortCount * 3);
  EXPECT_EQ(listening + "***ERROR : socket() failed\n" +
                "Failed to launch proxy - check the device address and ports!\n" +
                "Proxy is not running.\n",
            run.output);
}

}  // namespace
}  // namespace kel
