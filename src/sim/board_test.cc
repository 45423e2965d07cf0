#include "sim/board.h"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "device/command_codes.h"

namespace kel::sim {
namespace {

using Words = std::array<uint32_t, 4>;

constexpr uint64_t kStartMs = 1000;

FrameBytes Frame(const Words& w) { return EncodeCommand(CommandFrame{w[0], w[1], w[2], w[3]}); }

// The answers to one frame from a client of `channel` 1234 ms after the start: a command, or
// a CAN data frame put on the bus. Counted in STATUS_1 as the simulator counts them.
std::vector<Words> Handle(Board& board, int channel, const Words& request) {
  const FrameBytes frame = Frame(request);
  Answers answers;
  if (IsCommandFrame(frame.data())) {
    answers = board.HandleCommand(channel, frame.data(), kStartMs + 1234);
  } else {
    board.Transmit(channel, frame.data());
  }
  board.CountFromClients(1);
  board.CountToClients(answers.count);
  std::vector<Words> words;
  for (size_t i = 0; i < answers.count; ++i) {
    const CommandFrame a = DecodeCommand(answers.frames[i].data());
    words.push_back({a.command, a.value1, a.value2, a.value3});
  }
  return words;
}

TEST(BoardTest, EveryCommandIsAnsweredWithTheDocumentedWords) {
  using namespace code;                   // the table reads as the protocol does
  constexpr uint32_t kMask = 0x1FF80000;  // 11-bit AM 0x7FE
  constexpr uint32_t kArb = 0x84000000;   // PRI 2, 11-bit AR 0x100: passes 0x100 and 0x101
  // Channels 1 and 3 each alone on a bus; three clients. One board, row after row (each may
  // depend on the rows before it): a client's channel, its request, and the answers.
  Board board({0, 1, 0, 3}, kStartMs);
  for (const int channel : {0, 2, 2}) board.ClientConnected(channel);
  board.SetOverCurrentPins(1U << 3 | 1U << 4);  // pin 4 stays off: not over current
  board.SetFirmwareVersion(0x01020003);
  const std::vector<std::tuple<int, Words, std::vector<Words>>> steps = {
      {0, {kOutputs}, {{kOutputs, 0, 0, 0}}},
      {0, {kSetOut, 0xFFFFFFFF}, {}},  // pins 0 and 15 and the low half name nothing
      {1, {kOutputs}, {{kOutputs, 0x7FFE0000, 0, 0}}},
      {0, {kClrOut, 0x7FF00000}, {}},
      {0, {kToggleOut, 0x02260000}, {}},
      {3, {kOutputs}, {{kOutputs, 0x02280000, 0, 0}}},  // pins 3, 5 and 9
      {0,
       {kGetMeas, 100},
       {{kMeasure1, 0, 0, 2500},
        {kMeasure2, 0, 105, 0},
        {kMeasure3, 0, 0, 109},
        {kMeasure4, 12000, 5000, 3300}}},
      {0, {kBuzzer, 0, 1000 << 16 | 50, 200}, {}},
      {0, {kLedCtrl, 1, 2, 3}, {}},
      {1, {kSetBaud, 0, 5}, {}},
      {1, {kSetBaud, 0, 6}, {}},  // an index outside 1-5 is ignored
      {1, {kGetBaud}, {{kBaudrate, 0, 5, 0}}},
      {3, {kNsr}, {{kNsr, 0, 3, 0}}},                       // the other channels keep theirs
      {0, {kCanFilterWrite, 0xFFFF0200, kMask, kArb}, {}},  // for channel 2
      {0, {kCanFilterWrite, 4 << 8, 1, 1}, {}},             // no channel 4: ignored
      {2, {kCanFilterRead}, {{kCanFilterRead, 2 << 8, kMask, kArb}}},
      {0, {kCanFilterRead}, {{kCanFilterRead, 0, 0, 0}}},
      {0, {0x100, 8}, {}},  // CAN data frames: channel 2's filter refuses the second
      {0, {0x555, 8}, {}},
      {2, {0x555, 8}, {}},
      {3, {0x1, 8}, {}},  // alone on its bus: nobody acknowledges
      {0, {kNfcr}, {{kNfcr, 1, 2, 0}}},
      {2, {kNfcr}, {{kNfcr, 2, 1, 0}}},
      {3, {kNecnt}, {{kNecnt, 1, 0, 0}}},
      {2, {kReset}, {}},  // counters go; rates, filters and STATUS_1 stay
      {0, {kNfcr}, {{kNfcr, 0, 0, 0}}},
      {3, {kNecnt}, {{kNecnt, 0, 0, 0}}},
      {1, {kGetBaud}, {{kBaudrate, 0, 5, 0}}},
      {2, {kCanFilterRead}, {{kCanFilterRead, 2 << 8, kMask, kArb}}},
      {3, {kStatus1}, {{kStatus1, 29, 18, 1}}},  // frames from and to clients before it; refusals
      {0, {kStatus2, 1, 2, 3}, {{kStatus2, 0, 0, 0}}},
      {0, {kStatus3}, {{kStatus3, 0x02280000, 0, 0}}},  // outputs; no events yet
      {0, {kStatus4}, {{kStatus4, 0x00080000, 0, 0}}},  // pin 3, on and over current
      {0, {kInternal, 0, internal::kReadDebug}, {{kInternal, 0, 0, 0}}},
      {0, {kInternal, 0, internal::kWriteDebug, 7}, {{kInternal, 0, 1, 1}}},
      {3, {kInternal, 0, internal::kReadDebug}, {{kInternal, 0, 0, 1}}},  // the board's
      {0, {kInternal, 0, internal::kWriteDebug, 0}, {{kInternal, 0, 1, 0}}},
      {0, {kInternal, 0, internal::kStartTrace, 1}, {{kInternal, 0, 7, 1}}},
      {0, {kInternal, 0, internal::kStartTrace, 0}, {{kInternal, 0, 7, 0}}},
      {0, {kInternal, 0, internal::kFirmwareVersion}, {{kInternal, 0, 2, 0x01020003}}},
      {0, {kInternal, 0, internal::kServiceVersion}, {{kInternal, 0, 3, 0x01000000}}},
      {0, {kInternal, 0, kEscDown}, {{kInternal, 0, kEscDown, 0}}},
      {1, {kInternal, 0, kEscUp, 9}, {{kInternal, 0, kEscUp, 0}}},
      {0, {kGetStatus}, {{kGetStatus, 5, 3, 1234}}},  // events, clients, ms since the start
      {0, {kClrEvents}, {}},
      {0, {kInternal, 0, kShutdown}, {{kInternal, 0, kShutdown, 0}}},
      {0, {kGetStatus}, {{kGetStatus, 2, 3, 1234}}},
      {0, {kStatus3}, {{kStatus3, 0x02280000, 2, 0}}},
      {0, {kInternal, 0, 0x1234, 5}, {{kInternal, 0, 0x1234, 0xFFFFFFFF}}},
      // Codes the board does not know, answer codes among them, are never answered.
      {0, {kBaudrate, 0, 3}, {}},
      {0, {kCanInt}, {}},
      {0, {0xFFFFFFFE}, {}},
  };
  for (const auto& [channel, request, answers] : steps) {
    EXPECT_EQ(answers, Handle(board, channel, request))
        << "0x" << std::hex << request[0] << " on channel " << channel;
  }
  EXPECT_TRUE(board.State().trace_started);
}

TEST(FilterPassesTest, FollowsTheMaskAndArbitrationForms) {
  EXPECT_TRUE(FilterPasses(0x20000000, 0xA0000000, 0x5, false)) << "MIDE alone is unset";
  EXPECT_TRUE(FilterPasses(0, 0xA0012345, 0x1, true)) << "AR without AM compares nothing";
  // 11-bit form: AM 0x7FE, AR 0x100; the PRI bits and bits 0-17 of the words do not matter.
  EXPECT_TRUE(FilterPasses(0x1FF80000, 0x84000000, 0x101, true));
  EXPECT_FALSE(FilterPasses(0x1FF80000, 0x84000000, 0x102, false));
  EXPECT_TRUE(FilterPasses(0x1FFFFFFF, 0x0403FFFF, 0x100, false));
  EXPECT_TRUE(FilterPasses(0x1FFC0000, 0x04000000, 0x900, false)) << "the id's low 11 bits";
  EXPECT_FALSE(FilterPasses(0x3FFC0000, 0x04000000, 0x100, true)) << "MIDE: IDE must match";
  // 29-bit form.
  EXPECT_TRUE(FilterPasses(0x1FFFFFFF, 0xA0012345, 0x12345, false));
  EXPECT_FALSE(FilterPasses(0x1FFFFFFF, 0xA0012345, 0x12344, true));
  EXPECT_FALSE(FilterPasses(0x3FFFFFFF, 0xA0012345, 0x12345, false));
  EXPECT_TRUE(FilterPasses(0x1FFFFF00, 0xA0012300, 0x123FF, true));
}

TEST(BoardTest, FramesGoToEveryOtherChannelOfTheSendersBus) {
  // Wiring, sender, the channels that receive (none: not transmitted, not echoed).
  const std::vector<std::tuple<Wiring, int, uint8_t>> cases = {
      {kDefaultWiring, 0, 1U << 2}, {kDefaultWiring, 3, 1U << 1}, {{7, 7, 7, 7}, 1, 0b1101},
      {{5, 5, 9, 9}, 3, 1U << 2},   {{0, 1, 2, 3}, 0, 0},         {{0, 1, 0, 3}, 3, 0}};
  for (const auto& [wiring, sender, deliver_to] : cases) {
    Board board(wiring, kStartMs);
    const Transmission t = board.Transmit(sender, Frame({0x123, kInfoEchoRequest}).data());
    EXPECT_EQ(deliver_to, t.deliver_to) << sender;
    EXPECT_EQ(deliver_to != 0, t.transmitted && t.echo) << sender;
  }
}

TEST(FrameTimeTest, CountsTheFrameBitsAtTheChannelRate) {
  EXPECT_EQ(111'000U, FrameTimeNs(Frame({1, 8}).data(), 5));  // 8 bytes, 1 Mbaud: 111 bits
  EXPECT_EQ(670'000U, FrameTimeNs(Frame({1, kInfoExtended}).data(), 1));    // 67 bits
  EXPECT_EQ(188'000U, FrameTimeNs(Frame({1, kInfoRemote | 8}).data(), 3));  // no data bits
  EXPECT_EQ(222'000U, FrameTimeNs(Frame({1, 15}).data(), 4));               // at most 8 bytes count
  EXPECT_EQ(83 * 8'000U, FrameTimeNs(Frame({1, kInfoExtended | 2}).data(), 2));
  EXPECT_EQ(0U, FrameTimeNs(Frame({1, 8}).data(), 0));  // no such rate
}

}  // namespace
}  // namespace kel::sim
