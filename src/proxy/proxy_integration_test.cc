// The TCP server and the proxy over real loopback connections: texts, relaying to the
// virtual board and to scripted peers, many clients, stuck clients, stops and failed starts.

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "device/command_codes.h"
#include "platform/clock.h"
#include "platform/process_info.h"
#include "platform/socket.h"
#include "proxy/can_proxy.h"
#include "proxy/free_ports.h"
#include "proxy/tcp_server.h"
#include "shell/executor.h"
#include "sim/frame_client.h"
#include "sim/simulator.h"
#include "support/fake_board.h"

namespace kel {
namespace {

using platform::Socket;
using platform::SocketAddress;
using sim::FrameClient;

constexpr uint32_t kLoopback = 0x0100007F;  // 127.0.0.1 as it lies in memory
// Generous limits: a busy machine is slow, but a healthy proxy always gets there.
constexpr int kLongMs = 20000;

SocketAddress Loopback(int port) { return {kLoopback, static_cast<uint16_t>(port)}; }

// Keeps every text, in order, from any thread; shows every level.
class RecordingSink : public MessageSink {
 public:
  bool Shows(MessageLevel /*level*/) const override { return true; }
  void Write(MessageLevel level, std::string_view text) override {
    std::lock_guard lock(mutex_);
    texts_.emplace_back(text);
    if (level != MessageLevel::kTrace) shown_.append(text);
    changed_.notify_all();
  }

  // The texts of levels the console always shows, joined.
  std::string Shown() const {
    std::lock_guard lock(mutex_);
    return shown_;
  }
  size_t Count(std::string_view text) const {
    std::lock_guard lock(mutex_);
    return static_cast<size_t>(std::count(texts_.begin(), texts_.end(), text));
  }
  bool WaitFor(std::string_view text, size_t count = 1) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::milliseconds(kLongMs), [&] {
      return static_cast<size_t>(std::count(texts_.begin(), texts_.end(), text)) >= count;
    });
  }

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<std::string> texts_;
  std::string shown_;
};

std::string Listening(int port) { return "Listening port " + std::to_string(port) + "\n"; }

std::string ListeningFrom(int first, int count) {
  std::string text;
  for (int port = first; port < first + count; ++port) text += Listening(port);
  return text;
}

bool Accepts(int port) {
  Socket socket = platform::NewTcpSocket();
  return platform::ConnectBlocking(socket, Loopback(port));
}

// A device that sends back whatever it receives, on a thread per connection.
class EchoPeer {
 public:
  EchoPeer() {
    listener_ = platform::ListenTcp(Loopback(0), 256);
    port_ = platform::LocalAddress(listener_).port;
    accept_ = std::thread([this] { AcceptLoop(); });
  }
  ~EchoPeer() {
    stop_ = true;
    listener_.Shutdown();
    accept_.join();
    std::lock_guard lock(mutex_);
    for (const std::weak_ptr<Socket>& weak : connections_) {
      if (const std::shared_ptr<Socket> socket = weak.lock()) socket->Shutdown();
    }
    for (std::thread& thread : threads_) thread.join();
  }
  uint16_t Port() const { return port_; }

 private:
  void AcceptLoop() {
    while (!stop_) {
      auto socket = std::make_shared<Socket>(platform::Accept(listener_));
      if (!socket->Valid()) continue;
      std::lock_guard lock(mutex_);
      connections_.push_back(socket);
      // The thread holds the only owner, so a connection closes as soon as it ends.
      threads_.emplace_back([socket]() mutable {
        uint8_t block[8192];
        while (true) {
          const platform::IoResult r = platform::Receive(*socket, block, sizeof block);
          if (r.status != platform::IoStatus::kOk || !SendAll(*socket, block, r.bytes)) break;
        }
        socket.reset();
      });
    }
  }

  Socket listener_;
  uint16_t port_ = 0;
  std::atomic<bool> stop_{false};
  std::mutex mutex_;
  std::vector<std::weak_ptr<Socket>> connections_;
  std::vector<std::thread> threads_;
  std::thread accept_;
};

// The process's threads and descriptors, to compare before and after.
struct Resources {
  int threads = 0;
  int descriptors = 0;
  bool operator==(const Resources&) const = default;
};

Resources Count() { return {platform::CountThreads(), platform::CountOpenDescriptors()}; }

// Waits up to kLongMs until `done` holds; returns whether it does.
template <typename Done>
bool WaitUntil(Done done) {
  for (const uint64_t start = platform::MonotonicMs(); !done(); platform::SleepMs(5)) {
    if (platform::MonotonicMs() - start > kLongMs) return false;
  }
  return true;
}

// Threads end a little after their sockets close: waits until the counts are back.
Resources SettleTo(const Resources& before) {
  WaitUntil([&] { return Count() == before; });
  return Count();
}

::testing::AssertionResult Same(const Resources& before, const Resources& after) {
  if (before == after) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure()
         << "threads " << before.threads << " -> " << after.threads << ", descriptors "
         << before.descriptors << " -> " << after.descriptors;
}

FrameBytes Numbered(uint32_t number) {
  FrameBytes frame{};
  SetFrameWord(frame.data(), 0, number);
  SetFrameWord(frame.data(), 2, ~number);
  return frame;
}

// Starts `proxy` on free ports; the device port is the first of them, and the proxy port
// is chosen so that the first listening port relays to `device_base`.
int StartOnFreePorts(CanProxy& proxy, int device_base) {
  for (int attempt = 0; attempt < 20; ++attempt) {
    const int first = FindFreePorts(kProxyPortCount);
    if (first == 0) continue;
    if (proxy.Start(ProxyConfig{"127.0.0.1", first, 2 * first - device_base})) return first;
  }
  return 0;
}

// ---------------------------------------------------------------------------------------
// The server module.

class TcpServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    first_ = FindFreePorts(3);
    ASSERT_NE(0, first_);
  }
  RecordingSink sink_;
  int first_ = 0;
};

TEST_F(TcpServerTest, ReportsEachStepAndHandsBlocksToTheSlotCallback) {
  std::mutex mutex;
  std::string received;
  std::vector<std::string> events;
  TcpServer server(sink_);
  server.Configure(
      "127.0.0.1", first_, first_ + 1,
      [&](TcpClient& client, const uint8_t* data, size_t size) {
        std::lock_guard lock(mutex);
        received.append(reinterpret_cast<const char*>(data), size);
        client.Send(data, size);  // echoed back
        return 0;
      },
      [&](const std::shared_ptr<TcpClient>& client) {
        std::lock_guard lock(mutex);
        events.push_back("connect " + std::to_string(client->Id()) + " at " +
                         std::to_string(client->Local().port - first_));
        return 0;
      },
      [&](TcpClient& client) {
        std::lock_guard lock(mutex);
        events.push_back("disconnect " + std::to_string(client.Id()));
      });
  ASSERT_TRUE(server.Start());
  EXPECT_EQ(ListeningFrom(first_, 2), sink_.Shown());

  FrameClient client;
  ASSERT_TRUE(client.Connect(Loopback(first_ + 1)));
  ASSERT_TRUE(client.Send(Numbered(5)));
  EXPECT_EQ(Numbered(5), client.Receive(kLongMs).value_or(FrameBytes{}));
  client.Close();
  EXPECT_TRUE(WaitUntil([&] { return server.ClientCount() == 0; }));
  server.Stop();
  EXPECT_FALSE(Accepts(first_));

  const FrameBytes sent = Numbered(5);
  EXPECT_EQ(std::string(sent.begin(), sent.end()), received);
  EXPECT_EQ(std::vector<std::string>({"connect 1 at 1", "disconnect 1"}), events);
  for (const char* text : {"Client connection\n", "[1] Received data (16 bytes)\n",
                           "[1] Data sent (16 bytes)\n", "Client disconnected\n"}) {
    EXPECT_EQ(1U, sink_.Count(text)) << text;
  }
  EXPECT_EQ(ListeningFrom(first_, 2), sink_.Shown()) << "no errors";
}

TEST_F(TcpServerTest, ARefusedClientIsClosedWithoutADisconnect) {
  int disconnects = 0;
  TcpServer server(sink_);
  server.Configure(
      "", first_, first_, nullptr, [](const std::shared_ptr<TcpClient>&) { return -1; },
      [&disconnects](TcpClient&) { ++disconnects; });
  ASSERT_TRUE(server.Start());
  FrameClient client;
  ASSERT_TRUE(client.Connect(Loopback(first_)));
  EXPECT_FALSE(client.Receive(kLongMs).has_value());
  EXPECT_TRUE(client.PeerClosed());
  server.Stop();
  EXPECT_EQ(0, disconnects);
  EXPECT_EQ(0U, sink_.Count("Client disconnected\n"));
}

TEST_F(TcpServerTest, StartStopsAtTheFirstPortThatCannotListen) {
  constexpr int kAbsolute = 0x40000;  // marks a port given as it is, not after the free ones
  struct Case {
    const char* address;
    int first;
    int last;
    std::string shown;
  };
  const Case cases[] = {
      {"", 0, 2, Listening(first_) + "***ERROR : socket() failed\n"},  // the second is taken
      {"", kAbsolute + 0, kAbsolute + 0, "***ERROR : socket() failed\n"},
      {"", kAbsolute + 0x10000, kAbsolute + 0x10000, "***ERROR : socket() failed\n"},
      {"192.0.2.1", 0, 0, "***ERROR : socket() failed\n"},  // not an address of this host
      {"", 2, 1, ""},                                       // first above last: no slots
  };
  const Socket taken = platform::ListenTcp(Loopback(first_ + 1), 1);
  ASSERT_TRUE(taken.Valid());
  for (const Case& c : cases) {
    RecordingSink sink;
    TcpServer server(sink);
    const auto port = [this](int p) { return p >= kAbsolute ? p - kAbsolute : first_ + p; };
    server.Configure(c.address, port(c.first), port(c.last), nullptr, nullptr, nullptr);
    EXPECT_EQ(c.shown.empty(), server.Start()) << c.address << " " << c.first;
    EXPECT_EQ(c.shown, sink.Shown()) << c.address << " " << c.first;
    server.Stop();
    EXPECT_FALSE(Accepts(first_)) << c.first << ": nothing stays open after the stop";
  }
}

// ---------------------------------------------------------------------------------------
// The proxy.

class CanProxyTest : public ::testing::Test {
 protected:
  RecordingSink sink_;
};

TEST_F(CanProxyTest, RelaysShellCommandsAndCanTrafficThroughTheVirtualBoard) {
  sim::Config config;
  config.base_port = 0;
  config.record_frames = true;
  sim::Simulator board(config);
  ASSERT_TRUE(board.Start()) << board.Error();
  CanProxy proxy(sink_);
  const int first = StartOnFreePorts(proxy, board.BasePort());
  ASSERT_NE(0, first);
  EXPECT_TRUE(proxy.Running());
  EXPECT_EQ(ListeningFrom(first, kProxyPortCount), sink_.Shown());

  Output out(8192);
  EXPECT_LE(0, RunCommandLine(DeviceTarget{"127.0.0.1", first}, "int 0", out));
  EXPECT_EQ("Reponse command : 0x00000000\nReponse data    : 0x00000000\n", out.Text());
  ASSERT_TRUE(board.WaitForReceivedFrames(0, 1, kLongMs));
  EXPECT_EQ(EncodeCommand(CommandFrame{code::kInternal, 0, 0, 0}), board.ReceivedFrames(0)[0]);

  // Channels 0 and 2 share a bus: a CAN frame sent through the proxy's first port reaches
  // a client of its third.
  FrameClient sender;
  FrameClient receiver;
  ASSERT_TRUE(sender.Connect(Loopback(first)));
  ASSERT_TRUE(receiver.Connect(Loopback(first + 2)));
  FrameBytes can{};
  SetFrameWord(can.data(), 0, 0x123);
  SetFrameWord(can.data(), 1, 8);
  SetFrameWord(can.data(), 2, 0x44332211);
  // The receiver's connection may reach the board a moment after the sender's frame would;
  // the frame is sent again until one arrives.
  std::optional<FrameBytes> got;
  for (int attempt = 0; attempt < 100 && !got; ++attempt) {
    ASSERT_TRUE(sender.Send(can));
    got = receiver.Receive(200);
  }
  ASSERT_TRUE(got.has_value());
  EXPECT_EQ(0x123U, FrameWord(got->data(), 0));
  EXPECT_EQ(0x44332211U, FrameWord(got->data(), 2));
  proxy.Stop();
  EXPECT_FALSE(proxy.Running());
  EXPECT_FALSE(Accepts(first));
}

TEST_F(CanProxyTest, RelaysBytesExactlyAndPassesTheDevicesEndToTheClient) {
  std::vector<uint8_t> seen;
  testing::FakeBoard device([&seen](Socket& client) {
    // Reads three frames, answers with one frame split in two sends and a lone byte, then
    // ends the connection.
    FrameBytes frame;
    for (int i = 0; i < 3 && testing::FakeBoard::ReadFrame(client, frame); ++i) {
      seen.insert(seen.end(), frame.begin(), frame.end());
    }
    const FrameBytes answer = Numbered(7);
    testing::FakeBoard::Write(client, answer.data(), 5);
    platform::SleepMs(20);
    testing::FakeBoard::Write(client, answer.data() + 5, answer.size() - 5);
    const uint8_t tail = 0xEE;
    testing::FakeBoard::Write(client, &tail, 1);
  });
  CanProxy proxy(sink_);
  const int first = StartOnFreePorts(proxy, device.Port());
  ASSERT_NE(0, first);

  FrameClient client;
  ASSERT_TRUE(client.Connect(Loopback(first)));
  std::vector<uint8_t> sent(3 * kFrameSize);
  for (uint32_t i = 0; i < 3; ++i) {
    const FrameBytes frame = Numbered(i + 1);
    std::copy(frame.begin(), frame.end(), sent.begin() + i * kFrameSize);
  }
  ASSERT_TRUE(client.SendBytes(sent.data(), 20));  // one frame and a part
  platform::SleepMs(20);
  ASSERT_TRUE(client.SendBytes(sent.data() + 20, sent.size() - 20));
  std::vector<uint8_t> back;
  while (!client.PeerClosed()) {
    const std::vector<uint8_t> more = client.ReceiveAll(kLongMs);
    if (more.empty() && !client.PeerClosed()) break;
    back.insert(back.end(), more.begin(), more.end());
  }
  EXPECT_TRUE(client.PeerClosed()) << "the device's end reaches the client";
  const FrameBytes answer = Numbered(7);
  std::vector<uint8_t> expected(answer.begin(), answer.end());
  expected.push_back(0xEE);
  EXPECT_EQ(expected, back);
  client.Close();
  proxy.Stop();
  EXPECT_EQ(sent, seen);
}

TEST_F(CanProxyTest, TwoHundredClientsInWavesLeaveNoThreadOrDescriptorBehind) {
  EchoPeer device;
  CanProxy proxy(sink_);
  const Resources before_start = Count();
  const int first = StartOnFreePorts(proxy, device.Port());
  ASSERT_NE(0, first);
  const Resources running = Count();

  constexpr int kWaves = 4;
  constexpr int kPerWave = 50;
  for (int wave = 0; wave < kWaves; ++wave) {
    std::vector<FrameClient> clients(kPerWave);
    for (int i = 0; i < kPerWave; ++i) {
      // Only the first port relays to the device; the others lead nowhere and are closed.
      ASSERT_TRUE(clients[i].Connect(Loopback(first))) << wave << "/" << i;
      ASSERT_TRUE(clients[i].Send(Numbered(static_cast<uint32_t>(wave * kPerWave + i))));
    }
    for (int i = 0; i < kPerWave; ++i) {
      const std::optional<FrameBytes> echo = clients[i].Receive(kLongMs);
      ASSERT_TRUE(echo.has_value()) << wave << "/" << i;
      EXPECT_EQ(Numbered(static_cast<uint32_t>(wave * kPerWave + i)), *echo);
    }
  }  // each wave's clients close here
  EXPECT_TRUE(Same(running, SettleTo(running)));
  EXPECT_EQ(0U, proxy.ClientCount());
  proxy.Stop();
  EXPECT_TRUE(Same(before_start, SettleTo(before_start)));
  EXPECT_EQ(ListeningFrom(first, kProxyPortCount), sink_.Shown()) << "no errors, no notes";
}

TEST_F(CanProxyTest, AClientThatNeverReadsStallsNoOtherAndTheStopEndsEveryThread) {
  EchoPeer device;
  const Resources before_start = Count();
  {
    CanProxy proxy(sink_);
    const int first = StartOnFreePorts(proxy, device.Port());
    ASSERT_NE(0, first);

    // The stuck client sends until every buffer on the way is full, reading nothing: its
    // relay thread blocks sending to it, its client thread blocks sending to the device.
    FrameClient stuck;
    ASSERT_TRUE(stuck.Connect(Loopback(first)));
    ASSERT_TRUE(platform::SetNonBlocking(stuck.socket(), true));
    std::vector<uint8_t> chunk(64 * 1024, 0x5A);
    size_t total = 0;
    for (int idle = 0; idle < 50 && total < (256U << 20);) {
      const platform::IoResult r = platform::Send(stuck.socket(), chunk.data(), chunk.size());
      if (r.status == platform::IoStatus::kOk) {
        total += r.bytes;
        idle = 0;
      } else {
        ASSERT_EQ(platform::IoStatus::kWouldBlock, r.status);
        ++idle;
        platform::SleepMs(10);
      }
    }
    ASSERT_LT(total, 256U << 20) << "the buffers never filled";

    FrameClient other;
    ASSERT_TRUE(other.Connect(Loopback(first)));
    for (uint32_t i = 0; i < 100; ++i) {
      ASSERT_TRUE(other.Send(Numbered(i)));
      const std::optional<FrameBytes> echo = other.Receive(kLongMs);
      ASSERT_TRUE(echo.has_value()) << i;
      EXPECT_EQ(Numbered(i), *echo);
    }
    EXPECT_EQ(2U, proxy.ClientCount());
    proxy.Stop();  // with both clients attached
    EXPECT_EQ(0U, proxy.ClientCount());
  }
  EXPECT_TRUE(Same(before_start, SettleTo(before_start)));
  EXPECT_EQ(std::string::npos, sink_.Shown().find("detached")) << sink_.Shown();
}

TEST_F(CanProxyTest, AStopEndsADeviceConnectionThatIsStillBeingMade) {
  // A device whose queue of connections is full: the system drops further attempts, so
  // the proxy's connection waits in its connect until the stop wakes it.
  Socket full = platform::ListenTcp(Loopback(0), 0);
  ASSERT_TRUE(full.Valid());
  const int device_port = platform::LocalAddress(full).port;
  std::vector<Socket> queued;
  for (int i = 0; i < 2; ++i) {
    queued.push_back(platform::NewTcpSocket());
    ASSERT_TRUE(platform::SetNonBlocking(queued.back(), true));
    platform::ConnectBlocking(queued.back(), Loopback(device_port));  // in progress
  }
  platform::SleepMs(50);
  const Resources before_start = Count();
  int first = 0;
  {
    CanProxy proxy(sink_);
    first = StartOnFreePorts(proxy, device_port);
    ASSERT_NE(0, first);
    FrameClient client;
    ASSERT_TRUE(client.Connect(Loopback(first)));
    ASSERT_TRUE(sink_.WaitFor("Client connection\n"));
    platform::SleepMs(100);  // the proxy now waits in its connect
    proxy.Stop();
  }
  // A thread the stop could not wake would have been left running with a note; the broken
  // off connect is no error of the device.
  EXPECT_TRUE(Same(before_start, SettleTo(before_start)));
  EXPECT_EQ(ListeningFrom(first, kProxyPortCount), sink_.Shown());
}

TEST_F(CanProxyTest, RefusesClientsThatWouldBeRelayedIntoTheProxyItself) {
  const int first = FindFreePorts(kProxyPortCount + 1);
  ASSERT_NE(0, first);
  struct Case {
    const char* device_address;
    int proxy_port;  // relative to the first port
    int local;       // the port index the client connects to
    bool refused;
  };
  const Case cases[] = {
      {"127.0.0.1", 0, 0, true},  // the default settings: every port relays to itself
      {"127.0.0.1", 0, 4, true},   {"0.0.0.0", 0, 2, true},
      {"127.0.0.1", -1, 3, true},   // one higher: still one of the proxy's own
      {"127.0.0.1", -1, 4, false},  // one past the last: relayed (nothing listens there)
      {"127.0.0.1", 5, 0, false},   // below the first
  };
  for (const Case& c : cases) {
    RecordingSink sink;
    CanProxy proxy(sink);
    ASSERT_TRUE(proxy.Start(ProxyConfig{c.device_address, first, first + c.proxy_port}));
    FrameClient client;
    ASSERT_TRUE(client.Connect(Loopback(first + c.local)));
    EXPECT_FALSE(client.Receive(kLongMs).has_value());
    EXPECT_TRUE(client.PeerClosed()) << "the client is closed at once";
    proxy.Stop();
    const std::string refused = "***ERROR : port " + std::to_string(first + c.local) +
                                " would relay into the proxy itself - client refused\n";
    const std::string unreached = "***ERROR : device " + std::string(c.device_address) + ":" +
                                  std::to_string(first + c.local - c.proxy_port) + " not reached\n";
    EXPECT_EQ(ListeningFrom(first, kProxyPortCount) + (c.refused ? refused : unreached),
              sink.Shown())
        << c.device_address << " " << c.proxy_port << " " << c.local;
    EXPECT_EQ(1U, sink.Count("Client connection\n")) << "one connection, not one without end";
  }
}

TEST_F(CanProxyTest, OverlappingSettingsStartNothing) {
  CanProxy proxy(sink_);
  EXPECT_FALSE(proxy.Start(ProxyConfig{"1.0.0.127", 27015, 27015}));
  EXPECT_FALSE(proxy.Running());
  EXPECT_EQ("IP and port overlapping - check the device address and ports!\n", sink_.Shown());
}

TEST_F(CanProxyTest, APortTakenUndoesTheStartAndAStartAfterAStopWorks) {
  EchoPeer device;
  const int first = FindFreePorts(kProxyPortCount);
  ASSERT_NE(0, first);
  const int proxy_port = 2 * first - device.Port();
  CanProxy proxy(sink_);
  {
    const Socket taken = platform::ListenTcp(Loopback(first + 2), 1);
    ASSERT_TRUE(taken.Valid());
    EXPECT_FALSE(proxy.Start(ProxyConfig{"127.0.0.1", first, proxy_port}));
    EXPECT_FALSE(proxy.Running());
    EXPECT_EQ(ListeningFrom(first, 2) + "***ERROR : socket() failed\n" +
                  "Failed to launch proxy - check the device address and ports!\n",
              sink_.Shown());
    for (int port : {first, first + 1, first + 3, first + 4}) EXPECT_FALSE(Accepts(port)) << port;
  }
  // Start, relay (leaving closed connections behind), stop, and start again at once.
  for (int round = 0; round < 3; ++round) {
    ASSERT_TRUE(proxy.Start(ProxyConfig{"127.0.0.1", first, proxy_port})) << round;
    EXPECT_TRUE(proxy.Start(ProxyConfig{"127.0.0.1", first, proxy_port})) << "already running";
    FrameClient client;
    ASSERT_TRUE(client.Connect(Loopback(first)));
    ASSERT_TRUE(client.Send(Numbered(round)));
    EXPECT_EQ(Numbered(round), client.Receive(kLongMs).value_or(FrameBytes{}));
    proxy.Stop();
  }
}

}  // namespace
}  // namespace kel
