// The load of bench/proxy_bench.sh: the kelcmd proxy and socat relay the same traffic to
// the same device, taking turns, and every figure is shown beside the other's.
//
//   proxy_load_bench KELCMD SOCAT [SECONDS] [PINGS] [ROUNDS]
//
// The device is this program: an echo port (ping-pong) and, on the next port, a stream
// port that sends 16-byte frames for as long as its client sends them.
//   throughput  clients and the device stream 16-byte frames at each other through the
//               relay, both ways at once, for SECONDS (2): bytes received by all ends per
//               second; one client with one frame per send() (the load's own sends are the
//               limit then) and with 64 frames per send() (the relay's work is the limit),
//               then 10 and 50 clients at once with one frame per send() each
//   latency     PINGS (20000) round trips per round of one 16-byte frame through the relay,
//               minus the same round trips straight to the device (p50 and p99); the paths
//               take turns every 100 round trips
// ROUNDS (5) rounds of the throughput runs, each running direct, socat and kelcmd in turn;
// every throughput figure is the median of the rounds, the ratio the median of the rounds'
// ratios.

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "core/parse.h"
#include "device/frame.h"
#include "platform/clock.h"
#include "platform/socket.h"
#include "platform/subprocess.h"
#include "proxy/free_ports.h"
#include "proxy/tcp_server.h"

namespace kel {
namespace {

using platform::IoStatus;
using platform::Socket;

constexpr uint32_t kLoopback = 0x0100007F;  // 127.0.0.1 as it lies in memory
constexpr int kReadyMs = 20000;
constexpr int kWarmUpPings = 1000;
// The paths take turns every this many pings, so that a change of load touches them alike.
constexpr int kPingBlock = 100;
constexpr uint64_t kWarmUpMs = 300;

[[noreturn]] void Fail(const char* what) {
  std::fprintf(stderr, "proxy_load_bench: %s\n", what);
  std::exit(1);
}

Socket Open(int port) {
  Socket socket = platform::NewTcpSocket();
  if (!platform::ConnectBlocking(socket, {kLoopback, static_cast<uint16_t>(port)})) {
    return Socket();
  }
  return socket;
}

bool ReadExactly(const Socket& socket, uint8_t* data, size_t size) {
  while (size > 0) {
    const platform::IoResult r = platform::Receive(socket, data, size);
    if (r.status == IoStatus::kWouldBlock) continue;
    if (r.status != IoStatus::kOk) return false;
    data += r.bytes;
    size -= r.bytes;
  }
  return true;
}

// Sends numbered frames, `burst` of them per send(), until `stop`; the reader counts.
void StreamFrames(const Socket& socket, size_t burst, const std::atomic<bool>& stop) {
  std::vector<uint8_t> frames(burst * kFrameSize);
  for (uint32_t n = 0; !stop;) {
    for (size_t at = 0; at < frames.size(); at += kFrameSize) SetFrameWord(&frames[at], 0, n++);
    if (!SendAll(socket, frames.data(), frames.size())) return;
  }
}

// Counts the bytes received until the connection ends.
void CountBytes(const Socket& socket, std::atomic<uint64_t>& count) {
  uint8_t block[8192];
  while (true) {
    const platform::IoResult r = platform::Receive(socket, block, sizeof block);
    if (r.status == IoStatus::kWouldBlock) continue;
    if (r.status != IoStatus::kOk) return;
    count.fetch_add(r.bytes, std::memory_order_relaxed);
  }
}

// The device: an echo port and a stream port, a thread per connection.
class Device {
 public:
  Device() {
    for (int attempt = 0; attempt < 20 && !listeners_[1].Valid(); ++attempt) {
      port_ = FindFreePorts(2);
      if (port_ == 0) continue;
      listeners_[0] = platform::ListenTcp({kLoopback, static_cast<uint16_t>(port_)}, 64);
      listeners_[1] = platform::ListenTcp({kLoopback, static_cast<uint16_t>(port_ + 1)}, 64);
    }
    if (!listeners_[1].Valid()) Fail("no free ports for the device");
    for (int i = 0; i < 2; ++i) accepters_.emplace_back([this, i] { Accept(i); });
  }
  ~Device() {
    stop_ = true;
    for (Socket& listener : listeners_) listener.Shutdown();
    for (std::thread& thread : accepters_) thread.join();
    std::lock_guard lock(mutex_);
    for (Connection& c : connections_) c.socket->Shutdown();
    for (Connection& c : connections_) c.thread.join();
  }

  int EchoPort() const { return port_; }
  int StreamPort() const { return port_ + 1; }
  uint64_t StreamReceived() const { return received_.load(); }

 private:
  struct Connection {
    std::shared_ptr<Socket> socket;
    std::shared_ptr<std::atomic<bool>> done = std::make_shared<std::atomic<bool>>(false);
    std::thread thread;
  };

  void Accept(int which) {
    while (!stop_) {
      auto socket = std::make_shared<Socket>(platform::Accept(listeners_[which]));
      if (!socket->Valid()) continue;
      std::lock_guard lock(mutex_);
      // Connections of earlier runs that have ended go first, so that many runs of many
      // clients hold no threads.
      for (auto it = connections_.begin(); it != connections_.end();) {
        if (*it->done) {
          it->thread.join();
          it = connections_.erase(it);
        } else {
          ++it;
        }
      }
      Connection& c = connections_.emplace_back();
      c.socket = socket;
      c.thread = std::thread([this, which, socket, done = c.done] {
        which == 0 ? Echo(*socket) : Stream(*socket);
        *done = true;
      });
    }
  }

  static void Echo(const Socket& socket) {
    uint8_t block[8192];
    while (true) {
      const platform::IoResult r = platform::Receive(socket, block, sizeof block);
      if (r.status == IoStatus::kWouldBlock) continue;
      if (r.status != IoStatus::kOk || !SendAll(socket, block, r.bytes)) return;
    }
  }

  // Streams back from the client's first byte on, which gives the frames per send (a probe
  // that sends nothing gets nothing).
  void Stream(const Socket& socket) {
    uint8_t burst = 0;
    if (!ReadExactly(socket, &burst, 1) || burst == 0) return;
    received_ += 1;
    std::atomic<bool> done{false};
    std::thread writer([&] { StreamFrames(socket, burst, done); });
    CountBytes(socket, received_);
    done = true;
    socket.Shutdown();
    writer.join();
  }

  int port_ = 0;
  Socket listeners_[2];
  std::atomic<bool> stop_{false};
  std::atomic<uint64_t> received_{0};
  std::vector<std::thread> accepters_;
  std::mutex mutex_;
  std::list<Connection> connections_;
};

// A relay process; ended at the end.
class Relay {
 public:
  // Ready once a ping through `ping_port` comes back (or, with `ping_port` 0, once `port`
  // accepts).
  Relay(std::vector<std::string> argv, int port, int ping_port, const std::string& working_dir = "")
      : port_(port) {
    platform::ChildProcess::Options options;
    options.working_dir = working_dir;
    options.output = platform::ChildProcess::OutputMode::kDiscard;
    options.merge_stderr = true;
    options.stdin_text = "";  // not a terminal: nothing the relay reads ends it
    if (!process_.Start(argv, options)) Fail("a relay did not start");
    for (uint64_t start = platform::MonotonicMs(); platform::MonotonicMs() - start < kReadyMs;
         platform::SleepMs(20)) {
      if (ping_port == 0) {
        if (Open(port).Valid()) return;
        continue;
      }
      const Socket socket = Open(ping_port);
      FrameBytes frame{};
      if (socket.Valid() && SendAll(socket, frame.data(), frame.size()) &&
          ReadExactly(socket, frame.data(), frame.size())) {
        return;
      }
    }
    Fail("a relay never answered");
  }
  ~Relay() {
    process_.Terminate();
    process_.Wait(kReadyMs);
  }
  int Port() const { return port_; }

 private:
  int port_;
  platform::ChildProcess process_;
};

// What a throughput run uses: how many clients stream at once, each with `burst` frames per
// send().
struct Load {
  int clients;
  uint8_t burst;
};
constexpr Load kLoads[] = {{1, 1}, {1, 64}, {10, 1}, {50, 1}};
constexpr size_t kLoadCount = std::size(kLoads);

// Bytes per second (all ends together) of two-way streams of frames through `port`, one
// per client.
double Throughput(Device& device, int port, const Load& load, double seconds) {
  std::vector<Socket> sockets;
  for (int i = 0; i < load.clients; ++i) {
    sockets.push_back(Open(port));
    if (!sockets.back().Valid() || !SendAll(sockets.back(), &load.burst, 1)) {
      Fail("no stream connection");
    }
  }
  std::atomic<bool> stop{false};
  std::atomic<uint64_t> received{0};
  std::vector<std::thread> threads;
  for (const Socket& socket : sockets) {
    threads.emplace_back([&] { StreamFrames(socket, load.burst, stop); });
    threads.emplace_back([&] { CountBytes(socket, received); });
  }
  platform::SleepMs(kWarmUpMs);
  const uint64_t start_ns = platform::MonotonicNs();
  const uint64_t start_bytes = received + device.StreamReceived();
  platform::SleepMs(static_cast<uint32_t>(seconds * 1000));
  const uint64_t bytes = received + device.StreamReceived() - start_bytes;
  const uint64_t elapsed_ns = platform::MonotonicNs() - start_ns;
  stop = true;
  for (const Socket& socket : sockets) socket.Shutdown();
  for (std::thread& thread : threads) thread.join();
  return static_cast<double>(bytes) * 1e9 / static_cast<double>(elapsed_ns);
}

// Appends the round-trip times in ns of `count` pings on `socket` (none when `count` < 0:
// the pings then only warm the path up).
void Pings(const Socket& socket, int count, std::vector<uint64_t>& times) {
  FrameBytes frame{};
  for (int i = 0; i < std::abs(count); ++i) {
    SetFrameWord(frame.data(), 0, static_cast<uint32_t>(i));
    const uint64_t start = platform::MonotonicNs();
    if (!SendAll(socket, frame.data(), frame.size()) ||
        !ReadExactly(socket, frame.data(), frame.size())) {
      Fail("a ping was lost");
    }
    if (count > 0) times.push_back(platform::MonotonicNs() - start);
  }
}

double PercentileUs(std::vector<uint64_t> times, double fraction) {
  std::sort(times.begin(), times.end());
  const size_t at = std::min(times.size() - 1, static_cast<size_t>(fraction * times.size()));
  return static_cast<double>(times[at]) / 1000.0;
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

// One relay path and what was measured through it.
struct Target {
  Target(int echo, int stream) : echo_port(echo), stream_port(stream) {}
  int echo_port;
  int stream_port;
  std::vector<double> rates[kLoadCount];  // bytes per second in each round, per load
  std::vector<uint64_t> times;            // round trips, ns
};

int Main(int argc, char** argv) {
  if (argc < 3) Fail("usage: proxy_load_bench KELCMD SOCAT [SECONDS] [PINGS] [ROUNDS]");
  const double seconds = argc > 3 ? std::atof(argv[3]) : 2.0;
  const int pings = argc > 4 ? std::atoi(argv[4]) : 20000;
  const int rounds = argc > 5 ? std::atoi(argv[5]) : 5;

  Device device;
  // kelcmd listens at P to P + 4 (DevicePort P) and relays P + n to P + n + (P - ProxyPort):
  // ProxyPort 2P - the device's echo port leads P to the echo port and P + 1 to the stream.
  const int proxy_first = FindFreePorts(5);
  const int socat_first = FindFreePorts(2);
  if (proxy_first == 0 || socat_first == 0) Fail("no free ports for the relays");
  namespace fs = std::filesystem;
  const fs::path dir = fs::temp_directory_path() / ("proxy_bench." + std::to_string(proxy_first));
  fs::create_directories(dir);
  if (FILE* f = std::fopen((dir / "kelcmd.ini").string().c_str(), "wb")) {
    std::fprintf(f,
                 "[SETTINGS]\r\nDevicePort = %d\r\n[PROXY]\r\nProxyMode = on\r\nProxyPort = %d\r\n",
                 proxy_first, 2 * proxy_first - device.EchoPort());
    std::fclose(f);
  } else {
    Fail("cannot write the settings");
  }

  const std::string target = "127.0.0.1:";
  // socat: one relay per device port, listening at socat_first and the port after it.
  std::vector<std::unique_ptr<Relay>> socat;
  for (int i = 0; i < 2; ++i) {
    const int port = socat_first + i;
    socat.push_back(std::make_unique<Relay>(
        std::vector<std::string>{
            argv[2],
            "TCP-LISTEN:" + std::to_string(port) + ",bind=127.0.0.1,reuseaddr,fork,nodelay",
            "TCP:" + target + std::to_string(device.EchoPort() + i) + ",nodelay"},
        port, i == 0 ? port : 0));
  }
  // The proxy listens on all five ports before kelcmd reads its commands.
  const Relay kelcmd({argv[1], "delay", "24h"}, proxy_first, proxy_first, dir.string());
  fs::remove_all(dir);

  // Each round streams through every path in turn, the relays in alternating order, so
  // that a change of the machine's load between rounds touches them alike; the figures are
  // the medians of the rounds.
  Target direct(device.EchoPort(), device.StreamPort());
  Target via_socat(socat_first, socat_first + 1);
  Target via_kelcmd(kelcmd.Port(), kelcmd.Port() + 1);
  Target* const paths[3] = {&direct, &via_socat, &via_kelcmd};
  std::vector<double> ratios[kLoadCount];
  for (int round = 0; round < rounds; ++round) {
    Target* order[3] = {paths[0], paths[1], paths[2]};
    if (round % 2 == 1) std::swap(order[1], order[2]);
    for (size_t b = 0; b < kLoadCount; ++b) {
      for (Target* t : order) {
        t->rates[b].push_back(Throughput(device, t->stream_port, kLoads[b], seconds));
      }
      ratios[b].push_back(via_kelcmd.rates[b].back() / via_socat.rates[b].back());
    }
  }
  // Round trips: one connection per path, taking turns in blocks.
  std::vector<Socket> pingers;
  for (Target* t : paths) {
    pingers.push_back(Open(t->echo_port));
    if (!pingers.back().Valid()) Fail("no ping connection");
    Pings(pingers.back(), -kWarmUpPings, t->times);
  }
  for (int done = 0; done < pings * rounds; done += kPingBlock) {
    for (size_t i = 0; i < pingers.size(); ++i) Pings(pingers[i], kPingBlock, paths[i]->times);
  }

  const double mb = 1e6;
  for (size_t b = 0; b < kLoadCount; ++b) {
    const Load& load = kLoads[b];
    // One frame per send is the relay's own target; more frames per send, or more
    // clients, must keep up with socat.
    const double target = load.clients == 1 && load.burst == 1 ? 1.1 : 1.0;
    std::printf(
        "proxy: throughput, %d client%s, %u frame%s per send: kelcmd %.2f MB/s, socat %.2f MB/s "
        "(direct %.2f MB/s), ratio %.2f (target >= %.2f)\n",
        load.clients, load.clients == 1 ? "" : "s", load.burst, load.burst == 1 ? "" : "s",
        Median(via_kelcmd.rates[b]) / mb, Median(via_socat.rates[b]) / mb,
        Median(direct.rates[b]) / mb, Median(ratios[b]), target);
  }
  for (const double fraction : {0.50, 0.99}) {
    const double base = PercentileUs(direct.times, fraction);
    const double kel_added = PercentileUs(via_kelcmd.times, fraction) - base;
    const double socat_added = PercentileUs(via_socat.times, fraction) - base;
    std::printf(
        "proxy: added round trip p%.0f kelcmd %.1f us, socat %.1f us (direct %.1f us), ratio "
        "%.2f (target <= 1.00)\n",
        fraction * 100, kel_added, socat_added, base,
        socat_added > 0 ? kel_added / socat_added : 0.0);
  }
  return 0;
}

}  // namespace
}  // namespace kel

int main(int argc, char** argv) { return kel::Main(argc, argv); }
