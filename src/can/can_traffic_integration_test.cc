// send and recv against the virtual board: the frames the board takes, the texts the
// commands print, and the ways a stream goes wrong.

#include <gtest/gtest.h>

#include <cstring>
#include <regex>
#include <string>
#include <thread>
#include <vector>

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
  // The frames `line` puts on channel 0, its text checked. A filter read follows it: its
  // answer shows that the board has taken every frame before it.
  std::vector<FrameBytes> Sent(const std::string& line, const std::string& text) {
    board_->ClearReceivedFrames();
    EXPECT_EQ(text + "CAN=0, MIDE=0, AM=0x000, PRI=0, IDE=0, AR=0x000\n", Run(line + ";filt").text)
        << line;
    std::vector<FrameBytes> frames = board_->ReceivedFrames(0);
    if (!frames.empty()) frames.pop_back();
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
  const std::pair<const char*, std::vector<FrameBytes>> cases[] = {
      {"send 0x123:1234", {Can(0x123, 2, {0x12, 0x34})}},
      {"send 1-2:EXTIO:count*2@1",
       {Can(1, 0x01000004), Can(2, 0x01000004), Can(1, 0x01000004, {1}), Can(2, 0x01000004, {1})}},
      {"send 0xFFFFFFFE-0xFFFFFFFF:ext:rtr:", {Can(~1U, 0x18000), Can(~0U, 0x18000)}},
      {"send 10-1:12*2", {}},
      {"send 0x10:x1:12", {Can(0x10, 0)}},
      {"send 00112233445566778899aabbccddeeff0011",
       {FrameBytes{0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC,
                   0xDD, 0xEE, 0xFF}}},
  };
  for (const auto& [line, frames] : cases) {
    EXPECT_EQ(frames, Sent(line, std::to_string(frames.size()) + " messages sent\r\n")) << line;
  }
  const std::vector<FrameBytes> time = Sent("send 1:time*2@50", "2 messages sent\r\n");
  ASSERT_EQ(2U, time.size());
  const uint32_t ms = FrameWord(time[1].data(), 2);
  EXPECT_EQ(4U, FrameWord(time[1].data(), 1)) << "DLC 4";
  EXPECT_TRUE(ms >= 40 && ms < 1U << 24) << ms << " ms since the start, little-endian";
}

TEST_F(CanTrafficTest, AnEchoIsAFrameWithTheIdentifierTheEchoBitAndTheDlcSent) {
  // Each message is answered by frames that are not its echo; the first one also by its echo.
  testing::FakeBoard fake([](platform::Socket& client) {
    const FrameBytes replies[] = {Can(0x123, 0x01000001, {0x11}), Can(0x123, 0x02000002, {0x11}),
                                  Can(0x124, 0x02000001, {0x11}), Can(0x123, 0x02000001)};
    FrameBytes sent;
    for (int m = 0; m < 2 && testing::FakeBoard::ReadFrame(client, sent); ++m) {
      for (int i = 0; i < 4 - m; ++i) testing::FakeBoard::Write(client, replies[i]);
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
  EXPECT_TRUE(std::regex_match(
      run.text, std::regex("0 messages received\r\n([01] messages sent\r\n){2}0 messages sent\r\n"
                           "[0-9]+/100000 sent ERROR -11: Sending failed\r\n")))
      << run.text;
}

TEST_F(CanTrafficTest, ReceiveChecksEveryMessageInOrderAndEndsAtOnceWhenTheBoardCloses) {
  std::vector<FrameBytes> noisy;
  std::vector<FrameBytes> gap;
  for (uint8_t r = 0; r < 20; ++r) {
    noisy.push_back(Can(0x124, 4, {r}));           // another identifier
    noisy.push_back(Can(0x123, 8, {r}));           // another DLC
    noisy.push_back(Can(0x123, 0x8004, {r}));      // extended
    noisy.push_back(Can(0x123, 0x20004, {r}));     // bits 16-23
    noisy.push_back(Can(0x123, 0x03000004, {r}));  // bits 24-31 do not count
    if (r != 5) gap.push_back(Can(0x123, 4, {r}));
  }
  // Identifier ranges walk id by id within each repetition; fixed data are compared
  // within the DLC only (byte 2 below lies beyond it).
  std::vector<FrameBytes> ranges;
  for (uint8_t r = 0; r < 3; ++r) {
    ranges.push_back(Can(1, 4, {r}));
    ranges.push_back(Can(3, 4, {r}));
    ranges.push_back(Can(2, 4, {r}));
  }
  const std::vector<FrameBytes> fixed = {
      Can(0x123, 3, {0x11, 0x22}), Can(0x123, 2, {0x11, 0x22, 9}), Can(0x123, 2, {0x11, 0x22}),
      Can(1, 2, {0x11, 0x22}),     Can(2, 2, {0x11, 0x22}),        Can(1, 2, {0x11, 0x23})};
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
      {"recv 12", {Can(9, 0)}, 0, "1 messages received\r\n"},
      {"recv 1-2:count*3", ranges, 0, "6 messages received\r\n"},
      {"recv 0x123:1122*2", fixed, 0, "2 messages received\r\n"},
      {"recv 1-2:1122*2", fixed, kErrIntegrity, "2/4 received ERROR -15: Integrity failed\r\n"},
  };
  for (const Case& c : cases) {
    const LineRun run = ReceiveWhileFeeding(c.line, c.frames);
    EXPECT_EQ(c.result != 0 ? c.result : static_cast<ResultCode>(strlen(c.text)), run.result);
    EXPECT_EQ(c.text, run.text) << c.line;
  }

  sim::Faults faults;
  faults.close_after_frames = 3;
  board_->SetFaults(faults);
  const uint64_t start = platform::MonotonicMs();
  const LineRun run = ReceiveWhileFeeding("recv 0x123:count*10", gap);
  EXPECT_EQ(kErrReceive, run.result);
  EXPECT_EQ("3/10 received ERROR -13: Receiving failed\r\n", run.text);
  EXPECT_LT(platform::MonotonicMs() - start, 15000U) << "the close ends the wait, not its limit";
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

}  // namespace
}  // namespace kel
