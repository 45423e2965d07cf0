// The logging service end to end: four clients flood the four channels of a virtual board
// (each also takes in what its bus partner sends: 0<->2, 1<->3), and the board passes every
// frame on to the logging service's four connections, which write them as rows into
// rotating files (10 MiB * 10) in a temporary directory.
//
// The baseline is the same flood read by four plain readers that only count and discard the
// bytes. Each figure is the time from the first frame sent until the last frame was logged
// (or read), as frames per second. The service must lose nothing: a run ends only when
// every frame has become a row.
//
// With fewer channels flooded (1 or 2: channel 0, channels 0 and 1), the service still
// reads all four, and the baseline reads the flooded channels' bus partners.
//
//   log_service_bench [frames per channel, default 250000] [runs, default 3] [channels, 4]

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "flood.h"
#include "logging/logging_service.h"
#include "platform/clock.h"
#include "platform/socket.h"
#include "sim/frame_client.h"
#include "sim/simulator.h"

namespace kel {
namespace {

constexpr int kChannels = 4;
constexpr int kLimitMs = 120000;

// Reads and discards until `bytes` bytes came; false when the connection ended first.
bool Discard(const platform::Socket& socket, size_t bytes) {
  std::vector<uint8_t> sink(64 * 1024);
  size_t received = 0;
  while (received < bytes) {
    const platform::IoResult r = platform::Receive(socket, sink.data(), sink.size());
    if (r.status == platform::IoStatus::kOk) {
      received += r.bytes;
    } else if (r.status == platform::IoStatus::kWouldBlock) {
      platform::WaitReadable(socket, 250);
    } else {
      return false;
    }
  }
  return true;
}

class Flood {
 public:
  Flood() {
    sim::Config config;
    config.base_port = 0;
    board_ = std::make_unique<sim::Simulator>(config);
    ok_ = board_->Start();
    for (int ch = 0; ch < kChannels && ok_; ++ch) {
      sim::FrameClient& client = senders_[static_cast<size_t>(ch)];
      ok_ = client.Connect(board_->Address(ch)) && platform::SetNonBlocking(client.socket(), true);
      blocks_[static_cast<size_t>(ch)] =
          bench::FrameBlock(static_cast<uint32_t>(0x100 + ch * 0x100), 0x100);
    }
    ok_ = ok_ && WaitForClients(kChannels);
  }

  bool Ok() const { return ok_; }
  uint16_t BasePort() const { return board_->BasePort(); }
  bool WaitForClients(uint32_t clients) const {
    return board_->WaitForState(
        [clients](const sim::BoardState& s) { return s.Clients() == clients; }, kLimitMs);
  }

  // Floods channels 0 to `channels` - 1 with `frames` frames each; returns once every
  // sender is done and every sender whose bus partner was flooded took in its frames.
  void Run(size_t frames, int channels) {
    std::vector<std::thread> threads;
    for (size_t ch = 0; ch < kChannels; ++ch) {
      const size_t sent = ch < static_cast<size_t>(channels) ? frames : 0;
      const size_t taken = (ch ^ 2) < static_cast<size_t>(channels) ? frames : 0;
      if (sent + taken == 0) continue;
      threads.emplace_back([this, ch, sent, taken] {
        bench::Pump(senders_[ch].socket(), blocks_[ch], sent, taken);
      });
    }
    for (std::thread& t : threads) t.join();
  }

 private:
  std::unique_ptr<sim::Simulator> board_;
  std::array<sim::FrameClient, kChannels> senders_;
  std::array<std::vector<uint8_t>, kChannels> blocks_;
  bool ok_ = false;
};

double Seconds(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Frames per second through the logging service; 0 when frames were lost.
double LoggedRate(Flood& flood, size_t frames, int channels, const std::filesystem::path& dir) {
  std::filesystem::remove_all(dir);
  std::filesystem::create_directories(dir);
  LoggingConfig config;
  config.base_port = flood.BasePort();
  config.path = dir.string();
  config.size_limit = 10 << 20;
  config.max_count = 10;
  LoggingService service;
  service.Start(config);
  if (service.Status().peers.size() != kChannels || !flood.WaitForClients(2 * kChannels)) return 0;
  const auto start = std::chrono::steady_clock::now();
  std::thread sending([&flood, frames, channels] { flood.Run(frames, channels); });
  const uint64_t expected = uint64_t{frames} * static_cast<uint64_t>(channels);
  const uint64_t begun = platform::MonotonicMs();
  while (service.Status().rows_written < expected &&
         platform::MonotonicMs() - begun < static_cast<uint64_t>(kLimitMs)) {
    platform::SleepMs(1);
  }
  const double seconds = Seconds(start);
  sending.join();
  const bool complete = service.Status().rows_written == expected;
  service.Stop();
  flood.WaitForClients(kChannels);
  return complete ? static_cast<double>(expected) / seconds : 0;
}

// Frames per second through plain readers of the flooded channels' bus partners.
double RawRate(Flood& flood, size_t frames, int channels, uint16_t base_port) {
  std::array<platform::Socket, kChannels> readers;
  for (int ch = 0; ch < kChannels; ++ch) {
    platform::Socket& s = readers[static_cast<size_t>(ch)];
    s = platform::NewTcpSocket();
    if (!platform::ConnectBlocking(s, {0x0100007F, static_cast<uint16_t>(base_port + ch)}) ||
        !platform::SetNonBlocking(s, true)) {
      return 0;
    }
  }
  if (!flood.WaitForClients(2 * kChannels)) return 0;
  const auto start = std::chrono::steady_clock::now();
  std::thread sending([&flood, frames, channels] { flood.Run(frames, channels); });
  std::atomic<bool> complete{true};
  std::vector<std::thread> threads;
  for (int ch = 0; ch < channels; ++ch) {
    const platform::Socket& s = readers[static_cast<size_t>(ch ^ 2)];  // 0-2 and 1-3
    threads.emplace_back([&s, frames, &complete] {
      if (!Discard(s, frames * kFrameSize)) complete = false;
    });
  }
  for (std::thread& t : threads) t.join();
  const double seconds = Seconds(start);
  sending.join();
  for (platform::Socket& s : readers) s.Close();
  flood.WaitForClients(kChannels);
  return complete ? static_cast<double>(frames) * channels / seconds : 0;
}

}  // namespace
}  // namespace kel

int main(int argc, char** argv) {
  const size_t frames = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 250000;
  const int runs = std::max(1, argc > 2 ? std::atoi(argv[2]) : 3);
  const int channels =
      std::clamp(argc > 3 ? std::atoi(argv[3]) : kel::kChannels, 1, kel::kChannels);
  kel::Flood flood;
  if (!flood.Ok()) {
    std::fprintf(stderr, "the virtual board did not start\n");
    return 1;
  }
  const std::filesystem::path dir =
      std::filesystem::temp_directory_path() /
      ("kel-log-bench-" + std::to_string(kel::platform::MonotonicNs()));
  // Each turn measures the plain readers, then the service, so that both meet the same
  // load; the ratio reported is the median of the turns' ratios.
  double logged = 0;
  double raw = 0;
  std::vector<double> ratios;
  for (int i = 0; i < runs; ++i) {
    const double turn_raw = kel::RawRate(flood, frames, channels, flood.BasePort());
    const double turn_logged = kel::LoggedRate(flood, frames, channels, dir);
    if (turn_raw == 0 || turn_logged == 0) {
      std::filesystem::remove_all(dir);
      std::fprintf(stderr, "a run lost frames or did not finish\n");
      return 1;
    }
    raw = std::max(raw, turn_raw);
    logged = std::max(logged, turn_logged);
    ratios.push_back(turn_logged / turn_raw);
  }
  std::filesystem::remove_all(dir);
  std::sort(ratios.begin(), ratios.end());
  std::printf(
      "logging service, %d channel%s: best %.1f M frames/s logged, raw readers best %.1f M "
      "frames/s, median ratio %.2f (%d x %zu frames, %d turns)\n",
      channels, channels == 1 ? "" : "s", logged / 1e6, raw / 1e6, ratios[ratios.size() / 2],
      channels, frames, runs);
  return 0;
}
