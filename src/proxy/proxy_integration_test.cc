// The TCP server and the proxy over loopback: texts and callbacks, exact relaying, many and
// stuck clients, stops, refused clients and failed starts.

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "platform/process_info.h"
#include "proxy/can_proxy.h"
#include "proxy/free_ports.h"
#include "proxy/tcp_server.h"
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

// Keeps the texts of every level, and apart those of the levels always shown.
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

using Resources = std::pair<int, int>;  // threads, descriptors
Resources Count() { return {platform::CountThreads(), platform::CountOpenDescriptors()}; }

// True once the process holds no more threads and descriptors than `before`: a thread leaves
// a little after it was joined, and those of earlier tests may end meanwhile.
bool SettlesTo(const Resources& before) {
  for (const uint64_t start = platform::MonotonicMs(); platform::MonotonicMs() - start < kLongMs;
       platform::SleepMs(5)) {
    const Resources now = Count();
    if (now.first <= before.first && now.second <= before.second) return true;
  }
  return false;
}

// Sends a CAN frame marked with `n` that the board echoes to its sender; true when it is back.
bool EchoesBack(FrameClient& client, uint32_t n) {
  if (!client.Send(testing::Command(n, kInfoEchoRequest | 8, ~n))) return false;
  const std::optional<FrameBytes> echo = client.Receive(kLongMs);
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

TEST_F(BoardProxyTest, ManyClientsAndAStuckOneLeaveNothingBehindAndTheProxyStartsAgain) {
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
  EXPECT_TRUE(SettlesTo(running));

  {
    // The stuck client sends echo requests and reads nothing. The answers fill every buffer
    // on their way back, so its relay thread blocks sending to it; the board may go on taking
    // requests (it drops answers for a connection that does not read), so the sending stops
    // at a cap when the requests' way does not fill up as well.
    FrameClient stuck;
    ASSERT_TRUE(stuck.Connect(Loopback(first)));
    ASSERT_TRUE(platform::SetNonBlocking(stuck.socket(), true));
    const FrameBytes echo = testing::Command(0, kInfoEchoRequest);
    std::vector<uint8_t> chunk;
    while (chunk.size() < 64 * 1024) chunk.insert(chunk.end(), echo.begin(), echo.end());
    size_t total = 0;
    for (int idle = 0; idle < 50 && total < (64U << 20); platform::SleepMs(idle > 0 ? 10 : 0)) {
      const size_t at = total % chunk.size();  // whole frames, even after a part was sent
      const platform::IoResult r = platform::Send(stuck.socket(), &chunk[at], chunk.size() - at);
      ASSERT_NE(platform::IoStatus::kError, r.status);
      total += r.bytes;
      idle = r.bytes > 0 ? 0 : idle + 1;
    }

    FrameClient other;  // on the board's other bus, which the stuck one does not hold up
    ASSERT_TRUE(other.Connect(Loopback(first + 1)));
    for (uint32_t n = 0; n < 20; ++n) ASSERT_TRUE(EchoesBack(other, n));
    EXPECT_EQ(2U, proxy.ClientCount());
    proxy.Stop();  // with both clients attached
  }
  EXPECT_TRUE(SettlesTo(before_start));

  // Started again at once on the same ports, it relays again.
  ASSERT_TRUE(proxy.Start(ProxyConfig{"127.0.0.1", first, 2 * first - board_->BasePort()}));
  EXPECT_TRUE(proxy.Start(ProxyConfig{})) << "a running proxy stays as it is";
  FrameClient client;
  ASSERT_TRUE(client.Connect(Loopback(first + 1)));
  EXPECT_TRUE(EchoesBack(client, 7));
  proxy.Stop();
  EXPECT_EQ(Listening(first) + Listening(first), sink.shown) << "no errors, no notes";
}

TEST(CanProxyTest, RefusesClientsRelayedIntoItselfAndAFailedStartLeavesNoPortOpen) {
  const int first = FindFreePorts(7);
  ASSERT_NE(0, first);
  const platform::Socket taken = platform::ListenTcp(Loopback(first + 6), 1);
  ASSERT_TRUE(taken.Valid());
  const auto port = [first](int offset) { return std::to_string(first + offset); };
  const std::string refused = " would relay into the proxy itself - client refused";
  const std::string failed =
      "***ERROR : socket() failed\n"
      "Failed to launch proxy - check the device address and ports!\n";
  const struct {
    const char* device_address;
    int device_port, proxy_port;
    int local;          // the port a client connects to, relative to the first; -1: no start
    std::string shown;  // the error the client meets, or every text of a failed start
  } cases[] = {
      {"127.0.0.1", first, first, 0, "port " + port(0) + refused},  // each port to itself
      {"0.0.0.0", first, first, 4, "port " + port(4) + refused},
      {"127.0.0.1", first, first - 1, 3, "port " + port(3) + refused},  // one higher: still its own
      // One past the last, and below the first.
      {"127.0.0.1", first, first - 1, 4, "device 127.0.0.1:" + port(5) + " not reached"},
      {"127.0.0.1", first, first + 5, 0, "device 127.0.0.1:" + port(-5) + " not reached"},
      {"1.0.0.127", first, first, -1,
       "IP and port overlapping - check the device address and ports!\n"},
      {"127.0.0.1", first + 4, first + 4, -1, Listening(first + 4, 2) + failed},  // 3rd taken
      {"127.0.0.1", 0, 0, -1, failed},
      {"127.0.0.1", 0x10000, 0x10000, -1, failed},
  };
  for (const auto& c : cases) {
    RecordingSink sink;
    CanProxy proxy(sink);
    EXPECT_EQ(c.local >= 0,
              proxy.Start(ProxyConfig{c.device_address, c.device_port, c.proxy_port}));
    if (c.local >= 0) {
      FrameClient client;
      ASSERT_TRUE(client.Connect(Loopback(first + c.local)));
      EXPECT_TRUE(client.ReceiveAll(kLongMs).empty() && client.PeerClosed()) << "closed at once";
      proxy.Stop();
    }
    EXPECT_FALSE(proxy.Running());
    // One connection, not one without end.
    EXPECT_EQ(c.local < 0 ? c.shown
                          : Listening(first) + "Client connection\n***ERROR : " + c.shown + "\n",
              sink.all)
        << c.device_address << " " << c.device_port;
    for (int offset = 0; offset < 6; ++offset) EXPECT_FALSE(Accepts(first + offset)) << offset;
  }
}

}  // namespace
}  // namespace kel
