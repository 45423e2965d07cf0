// send and recv against the virtual board: the frames the board takes, the texts the
// commands print, a stream through the filter of the far channel, and the ways a stream
// goes wrong.

#include <gtest/gtest.h>

#include <cstring>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "device/command_codes.h"
#include "device/device_link.h"
#include "platform/clock.h"
#include "shell/executor.h"
#include "support/board_fixture.h"
#include "support/fake_board.h"

namespace kel {
namespace {

using testing::LineRun;

constexpr int kLongMs = 20000;

FrameBytes Can(uint32_t id, uint32_t info, std::initializer_list<uint8_t> data = {}) {
  FrameBytes frame{};
  SetFrameWord(frame.data(), 0, id);
  SetFrameWord(frame.data(), 1, info);
  std::copy(data.begin(), data.end(), frame.begin() + 8);
  return frame;
}

class CanTrafficTest : public testing::BoardTest {
 protected:
  // Runs `line` on channel 0 followed by a filter read, whose answer shows that the board
  // has taken every frame before it; checks the text of `line` and returns its frames.
  std::vector<FrameBytes> Send(const std::string& line, const std::string& text) {
    board_->ClearReceivedFrames();
    EXPECT_EQ(text + "CAN=0, MIDE=0, AM=0x000, PRI=0, IDE=0, AR=0x000\n", Run(line + ";filt").text)
        << line;
    std::vector<FrameBytes> frames = board_->ReceivedFrames(0);
    if (frames.empty() || FrameWord(frames.back().data(), 0) != code::kCanFilterRead) {
      ADD_FAILURE() << line << ": no filter read last";
      return frames;
    }
    frames.pop_back();
    return frames;
  }

  bool WaitForClients(int channel, uint32_t count) {
    return board_->WaitForState(
        [&](const sim::BoardState& s) {
          return s.channels[static_cast<size_t>(channel)].clients == count;
        },
        kLongMs);
  }

  // Runs `line` on channel 2 while a link on channel 0 sends `frames` once it has connected.
  LineRun ReceiveWhileFeeding(std::string_view line, const std::vector<FrameBytes>& frames) {
    EXPECT_TRUE(WaitForClients(2, 0)) << "the command before has gone";
    if (frames.empty()) return Run(line, 2);
    std::jthread feeder([&] {
      DeviceLink link;
      ASSERT_TRUE(link.Connect("127.0.0.1", board_->Port(0)));
      ASSERT_TRUE(WaitForClients(2, 1));
      for (const FrameBytes& frame : frames) ASSERT_TRUE(link.SendCanData(frame.data(), 16));
      WaitForClients(2, 0);  // stay until the command has read what it wanted
    });
    return Run(line, 2);
  }
};

TEST_F(CanTrafficTest, SendPutsTheMessagesOfItsTextOnTheWire) {
  struct Case {
    const char* line;
    const char* text;
    std::vector<FrameBytes> frames;
  };
  const Case cases[] = {
      {"send 0x123:1234", "1 messages sent\r\n", {Can(0x123, 2, {0x12, 0x34})}},
      {"send 1-2:ab*2@1",
       "4 messages sent\r\n",
       {Can(1, 1, {0xAB}), Can(2, 1, {0xAB}), Can(1, 1, {0xAB}), Can(2, 1, {0xAB})}},
      {"send 0x1FFFFFFF:ext:rtr:", "1 messages sent\r\n", {Can(0x1FFFFFFF, 0x18000)}},
      {"send 0xFFFFFFFE-0xFFFFFFFF:", "2 messages sent\r\n", {Can(~1U, 0), Can(~0U, 0)}},
      {"send 7:count*3", "3 messages sent\r\n", {Can(7, 4), Can(7, 4, {1}), Can(7, 4, {2})}},
      {"send 0x123:EXTIO:11*2",
       "2 messages sent\r\n",
       {Can(0x123, 0x01000001, {0x11}), Can(0x123, 0x01000001, {0x11})}},
      {"send 10-1:12*2", "0 messages sent\r\n", {}},
      {"send 0x10:x1:12", "1 messages sent\r\n", {Can(0x10, 0)}},
      {"send 00112233445566778899aabbccddeeff0011",
       "1 messages sent\r\n",
       {FrameBytes{0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC,
                   0xDD, 0xEE, 0xFF}}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.frames, Send(c.line, c.text)) << c.line;
  }
  const std::vector<FrameBytes> time = Send("send 1:time*2@50", "2 messages sent\r\n");
  ASSERT_EQ(2U, time.size());
  const uint32_t ms = FrameWord(time[1].data(), 2);
  EXPECT_EQ(4U, FrameWord(time[1].data(), 1)) << "DLC 4";
  EXPECT_TRUE(ms >= 40 && ms < 1U << 24) << ms << " ms since the start, little-endian";
}

TEST_F(CanTrafficTest, AnEchoIsAFrameWithTheIdentifierTheEchoBitAndTheDlcSent) {
  // Each message is answered by frames that are not its echo; the first one also by its echo.
  testing::FakeBoard fake([](platform::Socket& client) {
    FrameBytes sent;
    for (int m = 0; m < 2 && testing::FakeBoard::ReadFrame(client, sent); ++m) {
      for (const FrameBytes& reply :
           {Can(0x123, 0x01000001, {0x11}), Can(0x123, 0x02000002, {0x11}),
            Can(0x124, 0x02000001, {0x11})}) {
        testing::FakeBoard::Write(client, reply);
      }
      if (m == 0) testing::FakeBoard::Write(client, Can(0x123, 0x02000001));
    }
  });
  Output out(256);
  const uint64_t start = platform::MonotonicMs();
  EXPECT_EQ(kErrSendAck, RunCommandLine({"127.0.0.1", fake.Port()}, "send 0x123:EXTIO:11*2", out));
  EXPECT_EQ("2/2 sent ERROR -12: SendAck failed\r\n", out.Text());
  EXPECT_LT(platform::MonotonicMs() - start, 15000U) << "the close ends the wait, not its limit";
}

TEST_F(CanTrafficTest, ABoardThatClosesFailsSendingAndRawTrafficCountsNothing) {
  sim::Faults faults;
  faults.close_after_frames = 0;
  board_->SetFaults(faults);
  const LineRun run = Run("recv 12;send 12;send 12;send 12;send 0x123:12*100000");
  EXPECT_EQ(kErrSend, run.result);
  EXPECT_TRUE(std::regex_match(run.text, std::regex("0 messages received\r\n"
                                                    "([01] messages sent\r\n){2}"
                                                    "0 messages sent\r\n"
                                                    "[0-9]+/100000 sent ERROR -11: Sending "
                                                    "failed\r\n")))
      << run.text;
}

TEST_F(CanTrafficTest, AStreamReachesTheFarChannelThroughItsFilter) {
  EXPECT_EQ("CAN=2, MIDE=0, AM=0x7FF, PRI=0, IDE=0, AR=0x123\n", Run("filt add 0x123", 2).text);
  ASSERT_TRUE(WaitForClients(2, 0));
  DeviceLink listener;
  ASSERT_TRUE(listener.Connect("127.0.0.1", board_->Port(2)));
  ASSERT_TRUE(WaitForClients(2, 1));
  EXPECT_EQ("24 messages sent\r\n", Run("send 0x120-0x127:count*3").text);
  for (uint8_t r = 0; r < 3; ++r) {
    FrameBytes frame{};
    ASSERT_TRUE(listener.ReceiveFrame(frame.data(), kLongMs));
    EXPECT_EQ(Can(0x123, 0x204, {r}), frame) << "as sent, with the receiving channel";
  }
  EXPECT_EQ(21U, board_->State().frames_filtered);
}

TEST_F(CanTrafficTest, ReceiveChecksEveryMessageInOrder) {
  std::vector<FrameBytes> noisy;
  for (uint8_t r = 0; r < 20; ++r) {
    noisy.push_back(Can(0x124, 4, {r}));           // another identifier
    noisy.push_back(Can(0x123, 8, {r}));           // another DLC
    noisy.push_back(Can(0x123, 0x8004, {r}));      // extended
    noisy.push_back(Can(0x123, 0x20004, {r}));     // bits 16-23
    noisy.push_back(Can(0x123, 0x03000004, {r}));  // bits 24-31 do not count
  }
  std::vector<FrameBytes> gap;
  for (uint8_t r = 0; r < 20; ++r) gap.push_back(Can(0x123, 4, {r}));
  gap.erase(gap.begin() + 5);
  std::vector<FrameBytes> range;
  for (int r = 0; r < 2; ++r) {
    for (uint32_t id = 1; id <= 3; ++id) range.push_back(Can(id, 1, {0x12}));
  }
  struct Case {
    const char* line;
    std::vector<FrameBytes> frames;
    ResultCode result;  // 0: the length of the text
    const char* text;
  };
  const Case cases[] = {
      {"recv 0x123:count*20", noisy, 0, "20 messages received\r\n"},
      {"receive 0x123:count*20", gap, kErrIntegrity,
       "5/20 received ERROR -15: Integrity failed\r\n"},
      {"recv 1-3:12*2", range, 0, "6 messages received\r\n"},
      {"recv 10-1:12", {}, 0, "0 messages received\r\n"},
      {"recv 12", {Can(9, 0)}, 0, "1 messages received\r\n"},
  };
  for (const Case& c : cases) {
    const LineRun run = ReceiveWhileFeeding(c.line, c.frames);
    EXPECT_EQ(c.result != 0 ? c.result : static_cast<ResultCode>(strlen(c.text)), run.result);
    EXPECT_EQ(c.text, run.text) << c.line;
  }
}

// The one test that waits out the receiver's 15 s: frames keep coming, none of them due.
TEST_F(CanTrafficTest, ReceiveEndsWithMatchingFailedWhenOnlyOtherFramesCome) {
  std::jthread feeder([this](std::stop_token stop) {
    DeviceLink link;
    ASSERT_TRUE(link.Connect("127.0.0.1", board_->Port(0)));
    ASSERT_TRUE(WaitForClients(2, 1));
    while (!stop.stop_requested()) {
      ASSERT_TRUE(link.SendCanData(Can(0x124, 4).data(), 16));
      platform::SleepMs(100);
    }
  });
  const LineRun run = Run("recv 0x123:count*5", 2);
  EXPECT_EQ(kErrMatch, run.result);
  EXPECT_EQ("0/5 received ERROR -14: Matching failed\r\n", run.text);
}

TEST_F(CanTrafficTest, ReceiveEndsAtOnceWhenTheBoardCloses) {
  sim::Faults faults;
  faults.close_after_frames = 3;
  board_->SetFaults(faults);
  std::vector<FrameBytes> counter;
  for (uint8_t r = 0; r < 10; ++r) counter.push_back(Can(0x123, 4, {r}));
  const uint64_t start = platform::MonotonicMs();
  const LineRun run = ReceiveWhileFeeding("recv 0x123:count*10", counter);
  EXPECT_EQ(kErrReceive, run.result);
  EXPECT_EQ("3/10 received ERROR -13: Receiving failed\r\n", run.text);
  EXPECT_LT(platform::MonotonicMs() - start, 15000U) << "the close ends the wait, not its limit";
}

}  // namespace
}  // namespace kel
