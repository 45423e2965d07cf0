// The CAN traffic commands against the virtual board: the frames the board sees, the texts
// the commands print, the acceptance filter of the far channel, and the ways a stream
// goes wrong.

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "can/can_filter.h"
#include "config/settings.h"
#include "device/command_codes.h"
#include "device/device_link.h"
#include "platform/clock.h"
#include "shell/executor.h"
#include "sim/simulator.h"

namespace kel {
namespace {

// Generous: a busy machine may be slow, but a healthy board always gets there.
constexpr int kLongMs = 20000;
constexpr char kUnsetFilter0[] = "CAN=0, MIDE=0, AM=0x000, PRI=0, IDE=0, AR=0x000\n";

FrameBytes Can(uint32_t id, uint32_t info, std::initializer_list<uint8_t> data = {}) {
  FrameBytes frame{};
  SetFrameWord(frame.data(), 0, id);
  SetFrameWord(frame.data(), 1, info);
  std::copy(data.begin(), data.end(), frame.begin() + 8);
  return frame;
}

FrameBytes Counter(uint32_t id, uint32_t info, uint32_t value) {
  FrameBytes frame = Can(id, info);
  SetFrameWord(frame.data(), 2, value);
  return frame;
}

struct LineRun {
  ResultCode result = 0;
  std::string text;
};

class CanTrafficTest : public ::testing::Test {
 protected:
  void SetUp() override {
    sim::Config config;
    config.base_port = 0;
    config.record_frames = true;
    board_ = std::make_unique<sim::Simulator>(config);
    ASSERT_TRUE(board_->Start()) << board_->Error();
  }
  void TearDown() override { CurrentSettings().device_channel = 0; }

  // Runs a command line as the shell does with the channel set to `channel`.
  LineRun Run(int channel, std::string_view line) {
    CurrentSettings().device_channel = channel;
    Output out(8192);
    LineRun run;
    run.result = RunCommandLine({"127.0.0.1", board_->Port(channel)}, line, out);
    run.text = std::string(out.Text());
    return run;
  }

  // Runs `line` on channel 0 followed by a filter read, whose answer shows that the board
  // has taken every frame before it; returns the output of `line` and the CAN frames the
  // board took.
  LineRun RunAndCollect(std::string_view line, std::vector<FrameBytes>& frames) {
    board_->ClearReceivedFrames();
    LineRun run = Run(0, std::string(line) + ";filt");
    const size_t filter_text = run.text.rfind(kUnsetFilter0);
    EXPECT_NE(std::string::npos, filter_text) << line << ": " << run.text;
    if (filter_text != std::string::npos) run.text.erase(filter_text);
    frames = board_->ReceivedFrames(0);
    EXPECT_FALSE(frames.empty());
    if (!frames.empty()) {
      EXPECT_EQ(code::kCanFilterRead, FrameWord(frames.back().data(), 0));
      frames.pop_back();
    }
    return run;
  }

  // A link of the test's own on `channel`, taken by the board before it returns.
  std::unique_ptr<DeviceLink> Peer(int channel) {
    EXPECT_TRUE(board_->WaitForState(
        [&](const sim::BoardState& s) {
          return s.channels[static_cast<size_t>(channel)].clients == 0;
        },
        kLongMs))
        << "the commands before have gone";
    auto link = std::make_unique<DeviceLink>();
    EXPECT_TRUE(link->Connect("127.0.0.1", board_->Port(channel)));
    EXPECT_TRUE(WaitForClients(channel, 1));
    return link;
  }

  bool WaitForClients(int channel, uint32_t count) {
    return board_->WaitForState(
        [&](const sim::BoardState& s) {
          return s.channels[static_cast<size_t>(channel)].clients >= count;
        },
        kLongMs);
  }

  // Runs `line` on channel 2 while a peer on channel 0 sends `frames` as soon as the
  // command has connected.
  LineRun ReceiveWhileFeeding(std::string_view line, const std::vector<FrameBytes>& frames) {
    if (frames.empty()) return Run(2, line);
    std::jthread feeder([&] {
      DeviceLink link;
      ASSERT_TRUE(link.Connect("127.0.0.1", board_->Port(0)));
      ASSERT_TRUE(WaitForClients(2, 1));
      for (const FrameBytes& frame : frames) ASSERT_TRUE(link.SendCanData(frame.data(), 16));
      // Stay until the command has read what it wanted.
      board_->WaitForState([](const sim::BoardState& s) { return s.channels[2].clients == 0; },
                           kLongMs);
    });
    return Run(2, line);
  }

  std::unique_ptr<sim::Simulator> board_;
};

TEST_F(CanTrafficTest, SendPutsTheMessagesOfTheSpecificationOnTheWire) {
  struct Case {
    const char* line;
    const char* text;
    std::vector<FrameBytes> frames;
  };
  std::vector<FrameBytes> ten;
  for (uint32_t id = 1; id <= 10; ++id) ten.push_back(Can(id, 1, {0x12}));
  const Case cases[] = {
      {"send 0x123:1234", "1 messages sent\r\n", {Can(0x123, 2, {0x12, 0x34})}},
      {"send 1-10:12", "10 messages sent\r\n", ten},
      {"send 0x123:EXT:1122", "1 messages sent\r\n", {Can(0x123, 0x8002, {0x11, 0x22})}},
      {"send 0x1FFFFFFF:ext:rtr:", "1 messages sent\r\n", {Can(0x1FFFFFFF, 0x18000)}},
      {"send 0x123:", "1 messages sent\r\n", {Can(0x123, 0)}},
      {"send 7:count*3",
       "3 messages sent\r\n",
       {Counter(7, 4, 0), Counter(7, 4, 1), Counter(7, 4, 2)}},
      {"send 1-2:ab*2@1",
       "4 messages sent\r\n",
       {Can(1, 1, {0xAB}), Can(2, 1, {0xAB}), Can(1, 1, {0xAB}), Can(2, 1, {0xAB})}},
      {"send 10-1:12*2", "0 messages sent\r\n", {}},
      {"send x1:12", "1 messages sent\r\n", {Can(0, 0)}},
      {"send 123456789",
       "1 messages sent\r\n",
       {FrameBytes{0x12, 0x34, 0x56, 0x78, 0x90, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}}},
      {"send 00112233445566778899aabbccddeeff0011",
       "1 messages sent\r\n",
       {FrameBytes{0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC,
                   0xDD, 0xEE, 0xFF}}},
  };
  for (const Case& c : cases) {
    std::vector<FrameBytes> frames;
    const LineRun run = RunAndCollect(c.line, frames);
    EXPECT_EQ(c.text, run.text) << c.line;
    EXPECT_EQ(c.frames, frames) << c.line;
  }
}

TEST_F(CanTrafficTest, SendWithoutAnArgumentFails) {
  const LineRun run = Run(0, "send");
  EXPECT_EQ(kErrBadArgs, run.result);
  EXPECT_EQ("ERROR -102: Bad or missing arguments (try 'help send')\r\n", run.text);
}

TEST_F(CanTrafficTest, ExtioMessagesWaitForTheirEchoes) {
  std::vector<FrameBytes> frames;
  const LineRun run = RunAndCollect("send 0x123:EXTIO:11*3", frames);
  EXPECT_EQ("3 messages sent\r\n", run.text);
  EXPECT_EQ(std::vector<FrameBytes>(3, Can(0x123, 0x01000001, {0x11})), frames);

  // The board closes after two echoes: the third message's wait ends at once.
  sim::Faults faults;
  faults.close_after_frames = 2;
  board_->SetFaults(faults);
  const uint64_t start = platform::MonotonicMs();
  const LineRun broken = Run(0, "send 0x123:EXTIO:count*5");
  EXPECT_EQ(kErrSendAck, broken.result);
  EXPECT_EQ("3/5 sent ERROR -12: SendAck failed\r\n", broken.text);
  EXPECT_LT(platform::MonotonicMs() - start, 10000U) << "a broken link ends the wait";
}

TEST_F(CanTrafficTest, SendOnAClosedConnectionFails) {
  sim::Faults faults;
  faults.close_after_frames = 0;
  board_->SetFaults(faults);
  const LineRun run = Run(0, "send 0x123:12*100000");
  EXPECT_EQ(kErrSend, run.result);
  EXPECT_TRUE(std::regex_match(run.text, std::regex("[0-9]+/100000 sent ERROR -11: Sending "
                                                    "failed\r\n")))
      << run.text;
}

TEST_F(CanTrafficTest, AStreamReachesTheFarChannelThroughItsFilter) {
  EXPECT_EQ("CAN=2, MIDE=0, AM=0x7FF, PRI=0, IDE=0, AR=0x123\n", Run(2, "filt add 0x123").text);
  auto listener = Peer(2);
  EXPECT_EQ("24 messages sent\r\n", Run(0, "send 0x120-0x127:count*3").text);
  for (uint32_t r = 0; r < 3; ++r) {
    FrameBytes frame{};
    ASSERT_TRUE(listener->ReceiveFrame(frame.data(), kLongMs));
    EXPECT_EQ(Counter(0x123, 0x204, r), frame) << "as sent, with the receiving channel";
  }
  FrameBytes extra{};
  EXPECT_FALSE(listener->ReceiveFrame(extra.data(), 300)) << "the filter passes nothing else";
  EXPECT_EQ(21U, board_->State().frames_filtered);
}

TEST_F(CanTrafficTest, ReceiveChecksEveryMessageInOrder) {
  std::vector<FrameBytes> counter;
  for (uint32_t r = 0; r < 50; ++r) counter.push_back(Counter(0x123, 4, r));
  std::vector<FrameBytes> noisy;
  for (uint32_t r = 0; r < 50; ++r) {
    noisy.push_back(Counter(0x124, 4, r));           // another identifier
    noisy.push_back(Counter(0x123, 8, r));           // another DLC
    noisy.push_back(Counter(0x123, 0x8004, r));      // extended
    noisy.push_back(Counter(0x123, 0x10004, r));     // remote request
    noisy.push_back(Counter(0x123, 0x03000004, r));  // echo bits do not count
  }
  std::vector<FrameBytes> gap = counter;
  gap.erase(gap.begin() + 5);
  std::vector<FrameBytes> range;
  for (int r = 0; r < 2; ++r) {
    for (uint32_t id = 1; id <= 3; ++id) range.push_back(Can(id, 1, {0x12}));
  }
  struct Case {
    const char* line;
    std::vector<FrameBytes> frames;
    ResultCode result;
    const char* text;
  };
  const Case cases[] = {
      {"recv 0x123:count*50", counter, 22, "50 messages received\r\n"},
      {"recv 0x123:count*50", noisy, 22, "50 messages received\r\n"},
      {"receive 0x123:count*50", gap, kErrIntegrity,
       "5/50 received ERROR -15: Integrity failed\r\n"},
      {"recv 1-3:12*2", range, 21, "6 messages received\r\n"},
      {"recv 10-1:12", {}, 21, "0 messages received\r\n"},
      {"recv 12", {Can(9, 0)}, 21, "1 messages received\r\n"},
  };
  for (const Case& c : cases) {
    const LineRun run = ReceiveWhileFeeding(c.line, c.frames);
    EXPECT_EQ(c.result, run.result) << c.line;
    EXPECT_EQ(c.text, run.text) << c.line;
  }
}

// The one test that waits out the receiver's 15 s: frames keep coming, none of them due.
TEST_F(CanTrafficTest, ReceiveEndsWithMatchingFailedWhenOnlyOtherFramesCome) {
  std::jthread feeder([this](std::stop_token stop) {
    DeviceLink link;
    ASSERT_TRUE(link.Connect("127.0.0.1", board_->Port(0)));
    ASSERT_TRUE(WaitForClients(2, 1));
    const FrameBytes other = Counter(0x124, 4, 0);
    while (!stop.stop_requested()) {
      ASSERT_TRUE(link.SendCanData(other.data(), other.size()));
      platform::SleepMs(100);
    }
  });
  const LineRun run = Run(2, "recv 0x123:count*5");
  EXPECT_EQ(kErrMatch, run.result);
  EXPECT_EQ("0/5 received ERROR -14: Matching failed\r\n", run.text);
}

TEST_F(CanTrafficTest, ReceiveEndsAtOnceWhenTheBoardCloses) {
  sim::Faults faults;
  faults.close_after_frames = 3;
  board_->SetFaults(faults);
  std::vector<FrameBytes> counter;
  for (uint32_t r = 0; r < 10; ++r) counter.push_back(Counter(0x123, 4, r));
  const uint64_t start = platform::MonotonicMs();
  const LineRun run = ReceiveWhileFeeding("recv 0x123:count*10", counter);
  EXPECT_EQ("3/10 received ERROR -13: Receiving failed\r\n", run.text);
  EXPECT_LT(platform::MonotonicMs() - start, 10000U) << "a broken link ends the wait";
}

}  // namespace
}  // namespace kel
