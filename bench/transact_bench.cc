// Transactions per second: `int 0` repeated over one connection by the shell, against a
// raw ping-pong of the same 16-byte frames on loopback (a blocking send of the command, a
// blocking read of the answer, nothing else), both with the virtual board in this
// process, in the same run.

#include <chrono>
#include <cstdio>
#include <string>

#include "device/command_codes.h"
#include "device/frame.h"
#include "platform/socket.h"
#include "shell/executor.h"
#include "sim/frame_client.h"
#include "sim/simulator.h"

namespace {

constexpr int kRounds = 20;
constexpr int kPerLine = 1000;  // one line, one connection: connecting costs nothing here

double Seconds(std::chrono::steady_clock::time_point since) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

// Reads one whole frame from a blocking socket.
bool ReadFrame(const kel::platform::Socket& socket, uint8_t* frame) {
  for (size_t got = 0; got < kel::kFrameSize;) {
    const kel::platform::IoResult r =
        kel::platform::Receive(socket, frame + got, kel::kFrameSize - got);
    if (r.status != kel::platform::IoStatus::kOk) return false;
    got += r.bytes;
  }
  return true;
}

double RawPerSecond(const kel::sim::Simulator& board) {
  kel::sim::FrameClient client;
  if (!client.Connect(board.Address(0))) return 0;
  const kel::platform::Socket& socket = client.socket();
  const kel::FrameBytes request =
      kel::EncodeCommand(kel::CommandFrame{kel::code::kInternal, 0, 0, 0});
  uint8_t answer[kel::kFrameSize];
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < kRounds * kPerLine; ++i) {
    const kel::platform::IoResult sent =
        kel::platform::Send(socket, request.data(), request.size());
    if (sent.status != kel::platform::IoStatus::kOk || sent.bytes != request.size()) return 0;
    do {
      if (!ReadFrame(socket, answer)) return 0;
    } while (kel::FrameWord(answer, 0) != kel::code::kInternal);
  }
  return kRounds * kPerLine / Seconds(start);
}

double ShellPerSecond(const kel::sim::Simulator& board) {
  std::string line;
  for (int i = 0; i < kPerLine; ++i) line += "int 0;";
  const kel::DeviceTarget target{"127.0.0.1", board.Port(0)};
  const auto start = std::chrono::steady_clock::now();
  for (int round = 0; round < kRounds; ++round) {
    kel::Output out(16384);
    if (kel::RunCommandLine(target, line, out) < 0) return 0;
  }
  return kRounds * kPerLine / Seconds(start);
}

}  // namespace

int main() {
  kel::sim::Config config;
  config.base_port = 0;
  kel::sim::Simulator board(config);
  if (!board.Start()) {
    std::fprintf(stderr, "transact: %s\n", board.Error().c_str());
    return 1;
  }
  // Warm both paths, then take the better of three runs of each.
  RawPerSecond(board);
  ShellPerSecond(board);
  double raw = 0;
  double shell = 0;
  for (int i = 0; i < 3; ++i) {
    raw = std::max(raw, RawPerSecond(board));
    shell = std::max(shell, ShellPerSecond(board));
  }
  std::printf(
      "transactions: kelcmd int 0 %.0f/s, raw ping-pong %.0f/s, ratio %.2f (target >= 0.80)\n",
      shell, raw, raw > 0 ? shell / raw : 0);
  return 0;
}
