// The proxy as a user starts it, with -x or from kelcmd.ini, relaying kelcmd's own command
// lines to the virtual board, and the proxy command's words at work.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "device/command_codes.h"
#include "proxy/can_proxy.h"
#include "proxy/free_ports.h"
#include "sim/simulator.h"
#include "support/board_fixture.h"
#include "support/programs.h"
#include "support/temp_dir.h"

namespace kel {
namespace {

// A board on the free ports 2P..2P+3 for free proxy ports P..P+4: with the proxy port 0 the
// proxy relays its port P + n to the device port P + (P + n).
std::unique_ptr<sim::Simulator> StartBoardAtTwiceTheProxyPorts(int& first) {
  for (int attempt = 0; attempt < 50; ++attempt) {
    first = FindFreePorts(kProxyPortCount);
    sim::Config config;
    config.base_port = static_cast<uint16_t>(2 * first);
    config.record_frames = true;
    auto board = std::make_unique<sim::Simulator>(config);
    if (first != 0 && board->Start()) return board;
  }
  return nullptr;
}

std::string Listening(int first) {
  std::string text;
  for (int port = first; port < first + kProxyPortCount; ++port) {
    text += "Listening port " + std::to_string(port) + "\n";
  }
  return text;
}

TEST(ProxyTest, OptionXOrTheSettingsFileStartsTheProxyThatRelaysTheShellsCommands) {
  int first = 0;
  const std::unique_ptr<sim::Simulator> board = StartBoardAtTwiceTheProxyPorts(first);
  ASSERT_NE(nullptr, board);
  const std::string listening = Listening(first);
  const std::vector<std::string> line = {"proxy;int", "0;proxy",    "stop;proxy",
                                         "on;proxy",  "view;proxy", "off"};
  const struct {
    std::vector<std::string> options;
    std::string settings;  // kelcmd.ini
  } cases[] = {
      {{"-p" + std::to_string(first), "-x"}, ""},  // -x alone leaves the proxy port 0
      {{},
       "[SETTINGS]\nDevicePort = " + std::to_string(first) +
           "\n[PROXY]\nProxyMode = on\nProxyPort = 0\n"},
  };
  for (const auto& c : cases) {
    testing::TempDir dir;
    if (!c.settings.empty()) testing::WriteFile(dir.File("kelcmd.ini"), c.settings);
    std::vector<std::string> args = c.options;
    args.insert(args.end(), line.begin(), line.end());
    const testing::ProgramRun run = testing::RunKelcmd(args, "", dir.Path().string());
    EXPECT_EQ(0, run.status);
    // Texts of the proxy go to the console at once, the line's output after the line.
    EXPECT_EQ(listening + listening + "Proxy is running.\n" +
                  "Reponse command : 0x00000000\nReponse data    : 0x00000000\n" +
                  "Proxy is not running.\nProxy is running.\nProxy is running.\n"
                  "Proxy is not running.\n",
              run.output);
    EXPECT_EQ(std::vector<FrameBytes>{testing::Command(code::kInternal)}, board->ReceivedFrames(0))
        << "through the proxy, once";
    board->ClearReceivedFrames();
  }
}

TEST(ProxyTest, OptionXWithAPortMakesTheProxyPortTheDevicePort) {
  // On this host every port of the proxy would then relay to itself: its clients are refused.
  const int first = FindFreePorts(kProxyPortCount);
  ASSERT_NE(0, first);
  const testing::TempDir dir;
  const testing::ProgramRun run = testing::RunKelcmd(
      {"-p" + std::to_string(first), "-x1", "int", "0"}, "", dir.Path().string());
  EXPECT_EQ(Listening(first) + "***ERROR : port " + std::to_string(first) +
                " would relay into the proxy itself - client refused\nERROR -101: MsgIO failed\r\n",
            run.output);
}

}  // namespace
}  // namespace kel
