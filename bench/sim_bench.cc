// How fast the virtual board takes and passes on CAN data frames.
//
//   BM_FourClientsRouted   four clients (channels 0-3) send at once as fast as TCP allows;
//                          each also receives what its bus partner sends (0<->2, 1<->3).
//                          Time: until every frame has reached its receiver.
//   BM_FourClientsIntake   the same with every channel alone on its bus: the board only
//                          takes the frames. Time: until the board has taken every frame.
//   BM_ShellPatternBoard   one sender on channel 0 with one send call per frame, as the
//                          shell sends, and one receiver on channel 2.
//   BM_ShellPatternDirect  the same sender straight to a plain TCP receiver: the rate such a
//                          sender reaches at all, the baseline for the one before.
//
// frames_per_second is the figure to read.

#include <benchmark/benchmark.h>

#include <array>
#include <memory>
#include <thread>
#include <vector>

#include "flood.h"
#include "platform/socket.h"
#include "sim/config.h"
#include "sim/frame_client.h"
#include "sim/simulator.h"

namespace kel::sim {
namespace {

struct Board {
  explicit Board(const Wiring& wiring) {
    Config config;
    config.base_port = 0;
    config.wiring = wiring;
    simulator = std::make_unique<Simulator>(config);
    if (!simulator->Start()) return;
    for (int ch = 0; ch < kChannelCount; ++ch) {
      FrameClient& c = clients[static_cast<size_t>(ch)];
      if (!c.Connect(simulator->Address(ch)) || !platform::SetNonBlocking(c.socket(), true)) {
        return;
      }
    }
    ready = simulator->WaitForState(
        [](const BoardState& s) { return s.Clients() == kChannelCount; }, 10000);
  }

  std::unique_ptr<Simulator> simulator;
  std::array<FrameClient, kChannelCount> clients;
  bool ready = false;
};

void FourClients(benchmark::State& state, const Wiring& wiring, bool routed) {
  const size_t frames = static_cast<size_t>(state.range(0));  // per client
  Board board(wiring);
  if (!board.ready) {
    state.SkipWithError("the board did not start");
    return;
  }
  const std::vector<uint8_t> block = bench::FrameBlock(0x100, 0x600);
  for (auto _ : state) {
    const uint64_t before = board.simulator->State().frames_from_clients;
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::thread> threads;
    for (FrameClient& c : board.clients) {
      threads.emplace_back([&] { bench::Pump(c.socket(), block, frames, routed ? frames : 0); });
    }
    for (std::thread& t : threads) t.join();
    board.simulator->WaitForState(
        [&](const BoardState& s) {
          return s.frames_from_clients >= before + frames * kChannelCount;
        },
        60000);
    state.SetIterationTime(
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  const double total = static_cast<double>(frames * kChannelCount * state.iterations());
  state.SetItemsProcessed(static_cast<int64_t>(total));
  state.counters["frames_per_second"] = benchmark::Counter(total, benchmark::Counter::kIsRate);
}

void BM_FourClientsRouted(benchmark::State& state) { FourClients(state, kDefaultWiring, true); }
BENCHMARK(BM_FourClientsRouted)->Arg(250'000)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_FourClientsIntake(benchmark::State& state) {
  FourClients(state, Wiring{0, 1, 2, 3}, false);
}
BENCHMARK(BM_FourClientsIntake)->Arg(250'000)->UseManualTime()->Unit(benchmark::kMillisecond);

// One 16-byte send call per frame on a blocking socket, as the shell's sender does.
void SendOneByOne(const platform::Socket& socket, const std::vector<uint8_t>& block,
                  size_t frames) {
  for (size_t i = 0; i < frames; ++i) {
    const uint8_t* frame = block.data() + (i % bench::kBlockFrames) * kFrameSize;
    size_t sent = 0;
    while (sent < kFrameSize) {
      const platform::IoResult r = platform::Send(socket, frame + sent, kFrameSize - sent);
      if (r.status == platform::IoStatus::kError || r.status == platform::IoStatus::kClosed) {
        return;
      }
      sent += r.bytes;
    }
  }
}

// Runs a one-by-one sender on `sender` while `receiver` takes `frames` frames.
double TimeShellPattern(const platform::Socket& sender, const platform::Socket& receiver,
                        const std::vector<uint8_t>& block, size_t frames) {
  const auto start = std::chrono::steady_clock::now();
  std::thread send([&] { SendOneByOne(sender, block, frames); });
  bench::Pump(receiver, block, 0, frames);
  send.join();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void BM_ShellPatternBoard(benchmark::State& state) {
  const size_t frames = static_cast<size_t>(state.range(0));
  Board board(kDefaultWiring);
  if (!board.ready || !platform::SetNonBlocking(board.clients[0].socket(), false)) {
    state.SkipWithError("the board did not start");
    return;
  }
  const std::vector<uint8_t> block = bench::FrameBlock(0x100, 0x600);
  for (auto _ : state) {
    state.SetIterationTime(
        TimeShellPattern(board.clients[0].socket(), board.clients[2].socket(), block, frames));
  }
  const double total = static_cast<double>(frames * state.iterations());
  state.SetItemsProcessed(static_cast<int64_t>(total));
  state.counters["frames_per_second"] = benchmark::Counter(total, benchmark::Counter::kIsRate);
}
BENCHMARK(BM_ShellPatternBoard)->Arg(500'000)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_ShellPatternDirect(benchmark::State& state) {
  const size_t frames = static_cast<size_t>(state.range(0));
  const uint32_t loopback = *ParseIpv4("127.0.0.1");
  platform::Socket listener = platform::ListenTcp(platform::SocketAddress{loopback, 0}, 4);
  FrameClient sender;
  if (!listener.Valid() || !sender.Connect({loopback, platform::LocalAddress(listener).port})) {
    state.SkipWithError("no loopback connection");
    return;
  }
  platform::Socket receiver = platform::Accept(listener);
  platform::SetNonBlocking(receiver, true);
  const std::vector<uint8_t> block = bench::FrameBlock(0x100, 0x600);
  for (auto _ : state) {
    state.SetIterationTime(TimeShellPattern(sender.socket(), receiver, block, frames));
  }
  const double total = static_cast<double>(frames * state.iterations());
  state.SetItemsProcessed(static_cast<int64_t>(total));
  state.counters["frames_per_second"] = benchmark::Counter(total, benchmark::Counter::kIsRate);
}
BENCHMARK(BM_ShellPatternDirect)->Arg(500'000)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kel::sim

BENCHMARK_MAIN();
