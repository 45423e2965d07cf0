// The TCP server and the proxy over loopback: texts and callbacks, exact relaying, many and
// stuck clients, stops, refused clients and failed starts.

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "device/command_codes.h"
#include "platform/clock.h"
#include "platform/process_info.h"
#include "proxy/can_proxy.h"
#include "proxy/free_ports.h"
#include "proxy/tcp_server.h"
#include "shell/executor.h"
#include "sim/frame_client.h"
#include "support/board_fixture.h"
#include "support/fake_board.h"

namespace kel {
namespace {

using sim::FrameClient;
using testing::FakeBoard;

constexpr int kLongMs = 20000;  // generous: a healthy proxy always gets there

platform::SocketAddress Loopback(int port) { return {0x0100007F, static_cast<uint16_t>(port)}; }

bool Accepts(int port) {
  return platform::ConnectBlocking(platform::NewTcpSocket(), Loopback(port));
}

// Keeps the texts of every level, and apart those of the levels always shown; read them
// once the writers are done.
struct RecordingSink : MessageSink {
  bool Shows(MessageLevel /*level*/) const override { return true; }
  void Write(MessageLevel level, std::string_view text) override {
    std::lock_guard lock(mutex);
    all.append(text);
    if (level != MessageLevel::kTrace) shown.append(text);
  }
  std::mutex mutex;
  std::string all;
  std::string shown;
};

std::string Listening(int first, int count = kProxyPortCount) {
  std::string text;
  while (count-- > 0) text += "Listening port " + std::to_string(first++) + "\n";
  return text;
}

// The process's threads and descriptors, once they are back to `before` (threads end a
// little after their sockets close) or the wait gives up.
using Resources = std::pair<int, int>;
Resources Count() { return {platform::CountThreads(), platform::CountOpenDescriptors()}; }
Resources SettledTo(const Resources& before) {
  const uint64_t start = platform::MonotonicMs();
  while (Count() != before && platform::MonotonicMs() - start < kLongMs) platform::SleepMs(5);
  return Count();
}

// Sends a CAN frame marked with `n` that the board echoes to its sender; true when it comes
// back.
bool EchoesBack(FrameClient& client, uint32_t n) {
  const std::optional<FrameBytes> echo = client.Send(testing::Command(n, kInfoEchoRequest | 8, ~n))
                                             ? client.Receive(kLongMs)
                                             : std::nullopt;
  return echo && FrameWord(echo->data(), 0) == n && FrameWord(echo->data(), 2) == ~n;
}

// Starts `proxy` on free ports so that its first port relays to `device_port`.
int StartOnFreePorts(CanProxy& proxy, int device_port) {
  for (int attempt = 0; attempt < 20; ++attempt) {
    const int first = FindFreePorts(kProxyPortCount);
    if (first != 0 && proxy.Start(ProxyConfig{"127.0.0.1", first, 2 * first - device_port})) {
      return first;
    }
  }
  return 0;
}

TEST(TcpServerTest, ReportsEachStepAndCallsBackPerClient) {
  const int first = FindFreePorts(2);
  ASSERT_NE(0, first);
  RecordingSink sink;  // the callbacks write into it too
  TcpServer server(sink);
  server.Configure(
      "127.0.0.1", first, first + 1,
      [&](TcpClient& client, const uint8_t* data, size_t size) {
        sink.Write(MessageLevel::kTrace, "data " + std::to_string(size) + "\n");
        return client.Send(data, size) ? 0 : -1;  // echoed
      },
      [&](const std::shared_ptr<TcpClient>& client) {
        sink.Write(MessageLevel::kTrace, "connect " + std::to_string(client->Id()) + " at +" +
                                             std::to_string(client->Local().port - first) + "\n");
        return 0;
      },
      [&](TcpClient& client) {
        sink.Write(MessageLevel::kTrace, "disconnect " + std::to_string(client.Id()) + "\n");
      });
  ASSERT_TRUE(server.Start());
  FrameClient client;
  ASSERT_TRUE(client.Connect(Loopback(first + 1)));
  EXPECT_TRUE(EchoesBack(client, 5));
  client.Close();
  server.Stop();
  EXPECT_EQ(Listening(first, 2) +
                "Client connection\nconnect 1 at +1\n[1] Received data (16 bytes)\ndata 16\n"
                "[1] Data sent (16 bytes)\nClient disconnected\ndisconnect 1\n",
            sink.all);
}

TEST(CanProxyTest, RelaysBytesExactlyBothWaysAndPassesOnTheDevicesEnd) {
  const std::vector<uint8_t> answer = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 0xEE};
  std::vector<uint8_t> seen;
  FakeBoard device([&](platform::Socket& client) {
    FrameBytes frame;
    for (int i = 0; i < 3 && FakeBoard::ReadFrame(client, frame); ++i) {
      seen.insert(seen.end(), frame.begin(), frame.end());
    }
    FakeBoard::Write(client, answer.data(), 5);
    platform::SleepMs(20);
    FakeBoard::Write(client, answer.data() + 5, answer.size() - 5);
  });  // then ends the connection
  RecordingSink sink;
  CanProxy proxy(sink);
  const int first = StartOnFreePorts(proxy, device.Port());
  ASSERT_NE(0, first);
  FrameClient client;
  ASSERT_TRUE(client.Connect(Loopback(first)));
  std::vector<uint8_t> sent(3 * kFrameSize);
  for (size_t i = 0; i < sent.size(); ++i) sent[i] = static_cast<uint8_t>(i * 7);
  ASSERT_TRUE(client.SendBytes(sent.data(), 20));  // a frame and a part
  platform::SleepMs(20);
  ASSERT_TRUE(client.SendBytes(sent.data() + 20, sent.size() - 20));
  EXPECT_EQ(answer, client.ReceiveAll(kLongMs));
  EXPECT_TRUE(client.PeerClosed()) << "the device's end reaches the client";
  proxy.Stop();
  EXPECT_EQ(sent, seen);
}

using BoardProxyTest = testing::BoardTest;

TEST_F(BoardProxyTest, RelaysForManyClientsLeavesNothingBehindAndStartsAgainAfterAStop) {
  RecordingSink sink;
  CanProxy proxy(sink);
  const Resources before_start = Count();
  const int first = StartOnFreePorts(proxy, board_->BasePort());
  ASSERT_NE(0, first);
  const Resources running = Count();
  for (uint32_t wave = 0; wave < 4; ++wave) {
    std::vector<FrameClient> clients(50);
    for (FrameClient& client : clients) ASSERT_TRUE(client.Connect(Loopback(first)));
    for (uint32_t i = 0; i < 50; ++i) ASSERT_TRUE(EchoesBack(clients[i], wave * 50 + i)) << i;
  }  // each wave's clients close here
  EXPECT_EQ(running, SettledTo(running));
  proxy.Stop();
  EXPECT_EQ(before_start, SettledTo(before_start));

  // Started again at once on the same ports, it relays a shell command line.
  ASSERT_TRUE(proxy.Start(ProxyConfig{"127.0.0.1", first, 2 * first - board_->BasePort()}));
  EXPECT_TRUE(proxy.Start(ProxyConfig{})) << "a running proxy stays as it is";
  Output out(8192);
  EXPECT_LE(0, RunCommandLine(DeviceTarget{"127.0.0.1", first}, "int 0", out));
  EXPECT_EQ("Reponse command : 0x00000000\nReponse data    : 0x00000000\n", out.Text());
  EXPECT_EQ(testing::Command(code::kInternal), Frames(201).back());
  proxy.Stop();
  EXPECT_EQ(Listening(first) + Listening(first), sink.shown) << "no errors, no notes";
}

TEST_F(BoardProxyTest, AClientThatNeverReadsStallsNoOtherAndTheStopEndsEveryThread) {
  const Resources before_start = Count();
  RecordingSink sink;
  {
    CanProxy proxy(sink);
    const int first = StartOnFreePorts(proxy, board_->BasePort());
    ASSERT_NE(0, first);
    // The stuck client sends until every buffer on the way is full, reading nothing: its
    // relay thread blocks sending to it, its client thread blocks sending to the board.
    FrameClient stuck;
    ASSERT_TRUE(stuck.Connect(Loopback(first)));
    ASSERT_TRUE(platform::SetNonBlocking(stuck.socket(), true));
    std::vector<uint8_t> chunk(64 * 1024);
    for (size_t at = 0; at < chunk.size(); at += kFrameSize) {
      SetFrameWord(&chunk[at], 1, kInfoEchoRequest);
    }
    size_t total = 0;
    for (int idle = 0; idle < 50 && total < (256U << 20); platform::SleepMs(idle > 0 ? 10 : 0)) {
      const size_t at = total % chunk.size();  // whole frames, even after a part was sent
      const platform::IoResult r = platform::Send(stuck.socket(), &chunk[at], chunk.size() - at);
      ASSERT_NE(platform::IoStatus::kError, r.status);
      total += r.bytes;
      idle = r.bytes > 0 ? 0 : idle + 1;
    }
    ASSERT_LT(total, 256U << 20) << "the buffers never filled";

    FrameClient other;  // on the board's other bus, which the stuck one does not hold up
    ASSERT_TRUE(other.Connect(Loopback(first + 1)));
    for (uint32_t n = 0; n < 20; ++n) ASSERT_TRUE(EchoesBack(other, n));
    EXPECT_EQ(2U, proxy.ClientCount());
    proxy.Stop();  // with both clients attached
  }
  EXPECT_EQ(before_start, SettledTo(before_start));
  EXPECT_EQ(std::string::npos, sink.shown.find("detached")) << sink.shown;
}

TEST(CanProxyTest, RefusesClientsThatWouldBeRelayedIntoTheProxyItself) {
  const int first = FindFreePorts(kProxyPortCount + 1);
  ASSERT_NE(0, first);
  const auto port = [first](int offset) { return std::to_string(first + offset); };
  const std::string refused = " would relay into the proxy itself - client refused";
  const struct {
    const char* device_address;
    int proxy_port;  // relative to the first port
    int local;       // the port the client connects to, relative to the first
    std::string error;
  } cases[] = {
      {"127.0.0.1", 0, 0, "port " + port(0) + refused},  // the default: each port to itself
      {"0.0.0.0", 0, 4, "port " + port(4) + refused},
      {"127.0.0.1", -1, 3, "port " + port(3) + refused},  // one higher: still the proxy's own
      {"127.0.0.1", -1, 4, "device 127.0.0.1:" + port(5) + " not reached"},  // one past the last
      {"127.0.0.1", 5, 0, "device 127.0.0.1:" + port(-5) + " not reached"},  // below the first
  };
  for (const auto& c : cases) {
    RecordingSink sink;
    CanProxy proxy(sink);
    ASSERT_TRUE(proxy.Start(ProxyConfig{c.device_address, first, first + c.proxy_port}));
    FrameClient client;
    ASSERT_TRUE(client.Connect(Loopback(first + c.local)));
    EXPECT_TRUE(client.ReceiveAll(kLongMs).empty() && client.PeerClosed()) << "closed at once";
    proxy.Stop();
    // One connection, not one without end.
    EXPECT_EQ(Listening(first) + "Client connection\n***ERROR : " + c.error + "\n", sink.all);
  }
}

TEST(CanProxyTest, OverlapOrAPortThatCannotListenStartsNothing) {
  const int first = FindFreePorts(kProxyPortCount);
  ASSERT_NE(0, first);
  const platform::Socket taken = platform::ListenTcp(Loopback(first + 2), 1);
  ASSERT_TRUE(taken.Valid());
  const std::string failed =
      "***ERROR : socket() failed\n"
      "Failed to launch proxy - check the device address and ports!\n";
  const struct {
    const char* address;
    int device_port;
    std::string shown;
  } cases[] = {
      {"1.0.0.127", first, "IP and port overlapping - check the device address and ports!\n"},
      {"127.0.0.1", first, Listening(first, 2) + failed},  // the third port is taken
      {"127.0.0.1", 0, failed},
      {"127.0.0.1", 0x10000, failed},
  };
  for (const auto& c : cases) {
    RecordingSink sink;
    CanProxy proxy(sink);
    EXPECT_FALSE(proxy.Start(ProxyConfig{c.address, c.device_port, c.device_port}));
    EXPECT_FALSE(proxy.Running());
    EXPECT_EQ(c.shown, sink.shown) << c.address << " " << c.device_port;
    for (int port : {first, first + 1, first + 3}) EXPECT_FALSE(Accepts(port)) << port;
  }
}

}  // namespace
}  // namespace kel
