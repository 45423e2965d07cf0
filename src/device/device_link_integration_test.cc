// The device link against scripted boards: what goes on the wire, a frame cut off by the
// limit, and answers among other frames. (The virtual board's faults are met by the board
// command tests.)

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <vector>

#include "device/command_codes.h"
#include "device/device_link.h"
#include "platform/clock.h"
#include "support/fake_board.h"

namespace kel {
namespace {

using testing::FakeBoard;

FrameBytes Answer(uint32_t command, uint32_t value2) {
  return EncodeCommand(CommandFrame{command, 0, value2, 0});
}

TEST(DeviceLinkTest, ConnectReusesTheOpenLinkAndFailsWhereNothingListens) {
  FakeBoard board([](platform::Socket& client) {
    FrameBytes frame;
    while (FakeBoard::ReadFrame(client, frame)) {
    }
  });
  DeviceLink link;
  ASSERT_TRUE(link.Connect("127.0.0.1", board.Port()));
  ASSERT_TRUE(link.Connect("127.0.0.1", board.Port()));
  link.Disconnect();
  EXPECT_FALSE(link.Connected());
  for (int i = 0; i < 1000 && board.Accepted() == 0; ++i) platform::SleepMs(5);
  EXPECT_EQ(1, board.Accepted()) << "one connection for both calls";

  DeviceLink nowhere;
  EXPECT_FALSE(nowhere.Connect("127.0.0.1", 1));
  EXPECT_FALSE(nowhere.Connected());
  EXPECT_FALSE(nowhere.SendCommand(code::kReset, 0, 0, 0));
}

// The close waits for the board's end while the shell goes on: a board that never closes
// its end still gets each line's frames and end at once, and a run of lines does not stall.
TEST(DeviceLinkTest, ABoardThatKeepsItsEndOpenStillGetsEachLinesEndAtOnce) {
  constexpr int kLines = 20;           // more than the link keeps waiting at once
  std::vector<platform::Socket> held;  // the board's ends, never closed while it runs
  std::atomic<int> ended{0};
  FakeBoard board([&](platform::Socket& client) {
    FrameBytes frame;
    int frames = 0;
    while (FakeBoard::ReadFrame(client, frame)) ++frames;
    if (frames == 1) ++ended;
    held.push_back(std::move(client));
  });
  DeviceLink link;
  for (int line = 0; line < kLines; ++line) {
    ASSERT_TRUE(link.Connect("127.0.0.1", board.Port()));
    ASSERT_TRUE(link.SendCommand(code::kReset, 0, 0, 0));
    link.Disconnect();
  }
  for (int i = 0; i < 2000 && ended.load() < kLines; ++i) platform::SleepMs(5);
  EXPECT_EQ(kLines, ended.load()) << "every line's frame and end reached the board";
  link.FinishClosing();
}

TEST(DeviceLinkTest, FramesLeaveAsSixteenLittleEndianBytes) {
  std::vector<FrameBytes> seen;
  {
    FakeBoard board([&seen](platform::Socket& client) {
      FrameBytes frame;
      while (FakeBoard::ReadFrame(client, frame)) seen.push_back(frame);
    });
    DeviceLink link;
    ASSERT_TRUE(link.Connect("127.0.0.1", board.Port()));
    EXPECT_TRUE(link.SendCommand(0x100, 0x05000000, 2, 3));
    uint8_t twenty[20];
    for (uint8_t i = 0; i < 20; ++i) twenty[i] = static_cast<uint8_t>(i + 1);
    EXPECT_TRUE(link.SendCanData(twenty, sizeof twenty));
    EXPECT_TRUE(link.SendCanData(twenty, 3));
    EXPECT_TRUE(link.SendCanData(nullptr, 0));
    while (board.Accepted() == 0) platform::SleepMs(5);
    link.Disconnect();  // the script reads to the end of the stream, then the board stops
  }
  ASSERT_EQ(4U, seen.size());
  EXPECT_EQ(EncodeCommand(CommandFrame{0x80000100, 0x05000000, 2, 3}), seen[0]) << "bit 31 forced";
  FrameBytes cut{};
  for (uint8_t i = 0; i < 16; ++i) cut[i] = static_cast<uint8_t>(i + 1);
  EXPECT_EQ(cut, seen[1]);
  const FrameBytes short_frame = {1, 2, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(short_frame, seen[2]);
  EXPECT_EQ(FrameBytes{}, seen[3]);
}

TEST(DeviceLinkTest, AFrameCutOffByTheLimitIsDroppedWhole) {
  const FrameBytes whole = Answer(code::kOutputs, 1);
  FakeBoard board([&whole](platform::Socket& client) {
    FakeBoard::Write(client, whole.data(), 8);
    FrameBytes go;
    FakeBoard::ReadFrame(client, go);  // the shell says when its first receive has failed
    FakeBoard::Write(client, whole);
    FakeBoard::ReadFrame(client, go, 5000);
  });
  DeviceLink link;
  ASSERT_TRUE(link.Connect("127.0.0.1", board.Port()));
  FrameBytes got{};
  EXPECT_FALSE(link.ReceiveFrame(got.data(), 200));
  EXPECT_EQ(FrameBytes{}, got);
  ASSERT_TRUE(link.SendCommand(code::kReset, 0, 0, 0));
  ASSERT_TRUE(link.ReceiveFrame(got.data(), 5000));
  EXPECT_EQ(whole, got) << "the next frame starts clean";
  link.Disconnect();
}

TEST(DeviceLinkTest, NextFramesHandsOutWholeFramesWhereTheyLieInOrderThenFailsAtTheEnd) {
  // Three frames in one write, then one in two parts, then the board closes.
  FakeBoard board([](platform::Socket& client) {
    std::vector<uint8_t> stream;
    for (uint32_t n = 0; n < 4; ++n) {
      const FrameBytes frame = Answer(code::kOutputs, n);
      stream.insert(stream.end(), frame.begin(), frame.end());
    }
    FakeBoard::Write(client, stream.data(), 3 * kFrameSize + 5);
    platform::SleepMs(50);
    FakeBoard::Write(client, stream.data() + 3 * kFrameSize + 5, kFrameSize - 5);
  });
  DeviceLink link;
  ASSERT_TRUE(link.Connect("127.0.0.1", board.Port()));
  uint32_t n = 0;
  while (n < 4) {
    const std::span<const uint8_t> frames = link.NextFrames(5000);
    ASSERT_FALSE(frames.empty()) << n;
    ASSERT_EQ(0U, frames.size() % kFrameSize);
    for (size_t at = 0; at < frames.size(); at += kFrameSize, ++n) {
      FrameBytes got;
      std::memcpy(got.data(), frames.data() + at, kFrameSize);
      EXPECT_EQ(Answer(code::kOutputs, n), got);
    }
  }
  EXPECT_EQ(4U, n);
  EXPECT_TRUE(link.NextFrames(5000).empty());
  EXPECT_TRUE(link.Broken());
  link.Disconnect();
}

TEST(DeviceLinkTest, TransactDropsUnrelatedFramesAndComparesAllBits) {
  FakeBoard board([](platform::Socket& client) {
    FrameBytes request;
    FakeBoard::ReadFrame(client, request);
    FrameBytes data{};
    SetFrameWord(data.data(), 0, code::kBaudrate & 0x7FFFFFFF);  // a CAN frame, not the answer
    FakeBoard::Write(client, data);
    FakeBoard::Write(client, Answer(code::kGetBaud, 9));  // the request's own code
    FakeBoard::Write(client, Answer(code::kEscDown, 9));
    FakeBoard::Write(client, Answer(code::kBaudrate, 2));
    FakeBoard::ReadFrame(client, request, 5000);
  });
  DeviceLink link;
  ASSERT_TRUE(link.Connect("127.0.0.1", board.Port()));
  FrameBytes answer{};
  ASSERT_TRUE(link.Transact(answer.data(), 0, code::kGetBaud, code::kBaudrate, 0, 0, 0));
  EXPECT_EQ(Answer(code::kBaudrate, 2), answer);
  link.Disconnect();
}

// A board that reads nothing while its own output waits to be read, as a board under load
// does: a sender that only waited for room to send would wait on it for ever (here: until
// its 5 s limit). The sender reads what arrives meanwhile, and every frame goes out.
TEST(DeviceLinkTest, ASendThatFindsNoRoomReadsMeanwhile) {
  constexpr size_t kFrames = 400000;        // 6.4 MB: more than the buffers hold too
  constexpr size_t kBoardOutput = 8 << 20;  // far more than the sockets' buffers hold
  std::atomic<size_t> taken{0};             // bytes
  {
    FakeBoard board([&taken](platform::Socket& client) {
      const std::vector<uint8_t> block(64 * 1024);  // CAN frames of identifier 0
      for (size_t written = 0; written < kBoardOutput; written += block.size()) {
        FakeBoard::Write(client, block.data(), block.size());
      }
      std::vector<uint8_t> input(64 * 1024);
      while (platform::WaitReadable(client, 10000) == platform::WaitStatus::kReadable) {
        const platform::IoResult r = platform::Receive(client, input.data(), input.size());
        if (r.status != platform::IoStatus::kOk) break;  // the sender's end
        taken += r.bytes;
      }
    });
    DeviceLink link;
    ASSERT_TRUE(link.Connect("127.0.0.1", board.Port()));
    const FrameBytes frame{1, 0, 0, 0, 1, 0, 0, 0, 0x42};
    size_t sent = 0;
    while (sent < kFrames && link.SendCanData(frame.data(), frame.size())) ++sent;
    EXPECT_EQ(kFrames, sent);
    link.Disconnect();
  }
  EXPECT_EQ(kFrames * kFrameSize, taken.load()) << "every frame sent reached the board";
}

}  // namespace
}  // namespace kel
