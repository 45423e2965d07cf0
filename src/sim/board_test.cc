#include "sim/board.h"

#include <gtest/gtest.h>

#include <vector>

#include "device/command_codes.h"

namespace kel::sim {
namespace {

// A command frame's four words, compared as a whole.
using Words = std::array<uint32_t, 4>;

constexpr uint64_t kStartMs = 1000;

Words WordsOf(const FrameBytes& frame) {
  return {FrameWord(frame.data(), 0), FrameWord(frame.data(), 1), FrameWord(frame.data(), 2),
          FrameWord(frame.data(), 3)};
}

std::vector<Words> Ask(Board& board, int channel, const Words& request, uint64_t now = kStartMs) {
  const FrameBytes frame =
      EncodeCommand(CommandFrame{request[0], request[1], request[2], request[3]});
  const Answers answers = board.HandleCommand(channel, frame.data(), now);
  std::vector<Words> words;
  for (size_t i = 0; i < answers.count; ++i) words.push_back(WordsOf(answers.frames[i]));
  return words;
}

FrameBytes Can(uint32_t id, uint32_t info) {
  CanDataFrame frame;
  frame.id = id;
  frame.SetInfoWord(info);
  return EncodeCanData(frame);
}

struct Step {
  int channel;
  Words frame;
};

struct AnswerCase {
  const char* rule;
  std::vector<Step> before;  // frames handled first; their answers are not checked
  int channel;
  Words request;
  std::vector<Words> expected;
};

TEST(BoardTest, CommandsAreAnsweredWithTheDocumentedWords) {
  const uint32_t kFilterMask = 0x1FF80000;  // 11-bit AM 0x7FE
  const uint32_t kFilterArb = 0x84000000;   // PRI 2, 11-bit AR 0x100
  const std::vector<AnswerCase> cases = {
      {"outputs start off", {}, 0, {code::kOutputs, 0, 0, 0}, {{code::kOutputs, 0, 0, 0}}},
      {"SET_OUT switches the named pins on",
       {{0, {code::kSetOut, 0x05000000, 0, 0}}},
       1,
       {code::kOutputs, 0, 0, 0},
       {{code::kOutputs, 0x05000000, 0, 0}}},
      {"CLR_OUT and TOGGLE_OUT touch only the named pins",
       {{0, {code::kSetOut, 0x07000000, 0, 0}},
        {0, {code::kClrOut, 0x01000000, 0, 0}},
        {0, {code::kToggleOut, 0x0C000000, 0, 0}}},
       0,
       {code::kOutputs, 0, 0, 0},
       {{code::kOutputs, 0x0A000000, 0, 0}}},
      {"pins 0 and 15 and the low half of value1 name nothing",
       {{0, {code::kSetOut, 0xFFFFFFFF, 0, 0}}},
       0,
       {code::kOutputs, 0, 0, 0},
       {{code::kOutputs, 0x7FFE0000, 0, 0}}},
      {"GET_BAUD is answered by BAUDRATE with the start index",
       {},
       2,
       {code::kGetBaud, 0, 0, 0},
       {{code::kBaudrate, 0, 3, 0}}},
      {"SET_BAUD changes the connection's channel",
       {{1, {code::kSetBaud, 0, 5, 0}}},
       1,
       {code::kGetBaud, 0, 0, 0},
       {{code::kBaudrate, 0, 5, 0}}},
      {"SET_BAUD leaves the other channels",
       {{1, {code::kSetBaud, 0, 5, 0}}},
       3,
       {code::kGetBaud, 0, 0, 0},
       {{code::kBaudrate, 0, 3, 0}}},
      {"SET_BAUD with an index outside 1-5 is ignored",
       {{0, {code::kSetBaud, 0, 6, 0}},
        {0, {code::kSetBaud, 0, 0, 0}},
        {0, {code::kSetBaud, 4, 0, 0}}},
       0,
       {code::kGetBaud, 0, 0, 0},
       {{code::kBaudrate, 0, 3, 0}}},
      {"NSR reports bus on and the bit-rate index",
       {{2, {code::kSetBaud, 0, 1, 0}}},
       2,
       {code::kNsr, 0, 0, 0},
       {{code::kNsr, 0, 1, 0}}},
      {"a filter written for another channel is read on that channel",
       {{0, {code::kCanFilterWrite, 2 << 8, kFilterMask, kFilterArb}}},
       2,
       {code::kCanFilterRead, 0, 0, 0},
       {{code::kCanFilterRead, 2 << 8, kFilterMask, kFilterArb}}},
      {"the writer's own channel keeps its filter",
       {{0, {code::kCanFilterWrite, 2 << 8, kFilterMask, kFilterArb}}},
       0,
       {code::kCanFilterRead, 0, 0, 0},
       {{code::kCanFilterRead, 0, 0, 0}}},
      {"a filter for a channel above 3 is ignored",
       {{0, {code::kCanFilterWrite, 4 << 8, kFilterMask, kFilterArb}},
        {0, {code::kCanFilterWrite, 0xFF << 8, kFilterMask, kFilterArb}}},
       0,
       {code::kCanFilterRead, 0, 0, 0},
       {{code::kCanFilterRead, 0, 0, 0}}},
      {"INTERNAL 0 reads the debug state",
       {},
       0,
       {code::kInternal, 0, internal::kReadDebug, 0},
       {{code::kInternal, 0, 0, 0}}},
      {"INTERNAL 1 sets the debug state to 0 or 1",
       {},
       0,
       {code::kInternal, 0, internal::kWriteDebug, 7},
       {{code::kInternal, 0, 1, 1}}},
      {"the debug state is the board's, read from any channel",
       {{0, {code::kInternal, 0, internal::kWriteDebug, 1}}},
       3,
       {code::kInternal, 0, internal::kReadDebug, 0},
       {{code::kInternal, 0, 0, 1}}},
      {"INTERNAL 1 with 0 switches debugging off",
       {{0, {code::kInternal, 0, internal::kWriteDebug, 1}}},
       0,
       {code::kInternal, 0, internal::kWriteDebug, 0},
       {{code::kInternal, 0, 1, 0}}},
      {"INTERNAL 7 starts the trace",
       {},
       0,
       {code::kInternal, 0, internal::kStartTrace, 1},
       {{code::kInternal, 0, 7, 1}}},
      {"an event is acknowledged with 0",
       {},
       0,
       {code::kInternal, 0, code::kShutdown, 0},
       {{code::kInternal, 0, code::kShutdown, 0}}},
      {"an unknown internal command answers all ones",
       {},
       0,
       {code::kInternal, 0, 0x1234, 5},
       {{code::kInternal, 0, 0x1234, 0xFFFFFFFF}}},
      {"events set their bits in GET_STATUS",
       {{0, {code::kInternal, 0, code::kEscDown, 0}}, {1, {code::kInternal, 0, code::kEscUp, 0}}},
       0,
       {code::kGetStatus, 0, 0, 0},
       {{code::kGetStatus, 5, 0, 0}}},
      {"CLR_EVENTS clears every event bit",
       {{0, {code::kInternal, 0, code::kEscDown, 0}},
        {0, {code::kInternal, 0, code::kShutdown, 0}},
        {0, {code::kClrEvents, 0, 0, 0}},
        {0, {code::kInternal, 0, code::kShutdown, 0}}},
       0,
       {code::kGetStatus, 0, 0, 0},
       {{code::kGetStatus, 2, 0, 0}}},
      {"STATUS_2 to STATUS_4 answer zeros with their own code",
       {},
       0,
       {code::kStatus3, 1, 2, 3},
       {{code::kStatus3, 0, 0, 0}}},
      {"NECNT and NFCR start at zero", {}, 1, {code::kNfcr, 0, 0, 0}, {{code::kNfcr, 0, 0, 0}}},
      {"GET_MEAS answers four frames; the currents follow the outputs",
       {{0, {code::kSetOut, (1U << 1 | 1U << 5 | 1U << 9 | 1U << 12) << 16, 0, 0}}},
       0,
       {code::kGetMeas, 100, 0, 0},
       {{code::kMeasure1, 101, 0, 0},
        {code::kMeasure2, 0, 105, 0},
        {code::kMeasure3, 0, 0, 109},
        {code::kMeasure4, 12000, 5000, 3300}}},
  };
  for (const AnswerCase& c : cases) {
    Board board(kDefaultWiring, kStartMs);
    for (const Step& step : c.before) Ask(board, step.channel, step.frame);
    EXPECT_EQ(c.expected, Ask(board, c.channel, c.request)) << c.rule;
  }
}

TEST(BoardTest, FireAndForgetAndUnknownCodesAreNeverAnswered) {
  const std::vector<uint32_t> codes = {code::kSetOut,
                                       code::kClrOut,
                                       code::kToggleOut,
                                       code::kBuzzer,
                                       code::kLedCtrl,
                                       code::kCanInt,
                                       code::kClrEvents,
                                       code::kReset,
                                       code::kSetBaud,
                                       code::kBaudrate,
                                       code::kCanFilterWrite,
                                       code::kMeasure1,
                                       code::kEscDown,
                                       0x80000000,
                                       0x81010001,
                                       0x80004805,
                                       0xFFFFFFFE,
                                       0x81010007};
  for (const uint32_t request : codes) {
    Board board(kDefaultWiring, kStartMs);
    EXPECT_TRUE(Ask(board, 0, {request, 0, 3, 0}).empty()) << std::hex << request;
  }
}

TEST(BoardTest, StatusReportsClientsTimeAndTheBoardCounters) {
  Board board(kDefaultWiring, kStartMs);
  board.ClientConnected(0);
  board.ClientConnected(2);
  board.ClientConnected(2);
  board.ClientDisconnected(0);
  board.ClientDisconnected(0);  // never below zero
  EXPECT_EQ((std::vector<Words>{{code::kGetStatus, 0, 2, 1234}}),
            Ask(board, 1, {code::kGetStatus, 0, 0, 0}, kStartMs + 1234));

  // A filter on channel 2 that refuses identifier 0x200: one of three frames is refused.
  Ask(board, 2, {code::kCanFilterWrite, 2 << 8, 0x1FFC0000, 0x84000000});
  board.CountFromClients(5);
  for (const uint32_t id : {0x100U, 0x200U, 0x100U}) {
    const FrameBytes frame = Can(id, 8);
    if (board.Transmit(0, frame.data()).deliver_to != 0) board.CountToClients(1);
  }
  EXPECT_EQ((std::vector<Words>{{code::kStatus1, 5, 2, 1}}),
            Ask(board, 3, {code::kStatus1, 0, 0, 0}));
}

struct FilterCase {
  const char* rule;
  uint32_t mask;
  uint32_t arbitration;
  uint32_t id;
  bool extended;
  bool passes;
};

TEST(FilterPassesTest, FollowsTheMaskAndArbitrationForms) {
  const std::vector<FilterCase> cases = {
      {"unset passes a standard frame", 0, 0, 0x123, false, true},
      {"unset passes an extended frame", 0, 0x80000000, 0x1ABCDEF, true, true},
      {"MIDE alone is still unset", 0x20000000, 0xA0000000, 0x5, false, true},
      {"11-bit: the masked bits match", 0x1FF80000, 0x84000000, 0x100, false, true},
      {"11-bit: a bit outside the mask is free", 0x1FF80000, 0x84000000, 0x101, false, true},
      {"11-bit: a masked bit differs", 0x1FF80000, 0x84000000, 0x102, false, false},
      {"11-bit: PRI bits do not matter", 0x1FF80000, 0x04000000, 0x100, false, true},
      {"11-bit: only the low 11 bits of the id count", 0x1FFC0000, 0x04000000, 0x900, false, true},
      {"11-bit: the 29-bit bits of the words are ignored", 0x1FFFFFFF, 0x0403FFFF, 0x100, false,
       true},
      {"11-bit: the extended bit is free without MIDE", 0x1FFC0000, 0x04000000, 0x100, true, true},
      {"11-bit with MIDE: an extended frame fails", 0x3FFC0000, 0x04000000, 0x100, true, false},
      {"11-bit with MIDE: a standard frame passes", 0x3FFC0000, 0x04000000, 0x100, false, true},
      {"29-bit: exact match", 0x1FFFFFFF, 0xA0012345, 0x12345, true, true},
      {"29-bit: one bit off", 0x1FFFFFFF, 0xA0012345, 0x12344, true, false},
      {"29-bit: a standard frame passes without MIDE", 0x1FFFFFFF, 0xA0012345, 0x12345, false,
       true},
      {"29-bit with MIDE: a standard frame fails", 0x3FFFFFFF, 0xA0012345, 0x12345, false, false},
      {"29-bit: a partial mask", 0x1FFFFF00, 0xA0012300, 0x123FF, true, true},
      {"29-bit: AR alone compares nothing", 0, 0xA0012345, 0x1, true, true},
  };
  for (const FilterCase& c : cases) {
    EXPECT_EQ(c.passes, FilterPasses(c.mask, c.arbitration, c.id, c.extended)) << c.rule;
  }
}

struct RouteCase {
  const char* rule;
  Wiring wiring;
  int sender;
  bool transmitted;
  uint8_t deliver_to;
};

TEST(BoardTest, FramesGoToEveryOtherChannelOfTheSendersBus) {
  const std::vector<RouteCase> cases = {
      {"default: 0 reaches 2", kDefaultWiring, 0, true, 1U << 2},
      {"default: 2 reaches 0", kDefaultWiring, 2, true, 1U << 0},
      {"default: 1 reaches 3", kDefaultWiring, 1, true, 1U << 3},
      {"one bus: 1 reaches the other three", {7, 7, 7, 7}, 1, true, 0b1101},
      {"two and two, numbered freely", {5, 5, 9, 9}, 3, true, 1U << 2},
      {"alone: nobody acknowledges", {0, 1, 2, 3}, 0, false, 0},
      {"0-2 only: 3 is alone", {0, 1, 0, 3}, 3, false, 0},
  };
  for (const RouteCase& c : cases) {
    Board board(c.wiring, kStartMs);
    const FrameBytes frame = Can(0x123, kInfoEchoRequest | 8);
    const Transmission t = board.Transmit(c.sender, frame.data());
    EXPECT_EQ(c.transmitted, t.transmitted) << c.rule;
    EXPECT_EQ(c.deliver_to, t.deliver_to) << c.rule;
    EXPECT_EQ(c.transmitted, t.echo) << c.rule << ": echo only once transmitted";
    const ChannelState& sender = board.State().channels[static_cast<size_t>(c.sender)];
    EXPECT_EQ(c.transmitted ? 1U : 0U, sender.frames_transmitted) << c.rule;
    EXPECT_EQ(c.transmitted ? 0U : 1U, sender.transmit_errors) << c.rule;
  }
}

TEST(BoardTest, EchoFollowsBit24Only) {
  Board board(kDefaultWiring, kStartMs);
  EXPECT_TRUE(board.Transmit(0, Can(1, kInfoEchoRequest).data()).echo);
  EXPECT_FALSE(board.Transmit(0, Can(1, kInfoEcho).data()).echo);
  EXPECT_FALSE(board.Transmit(0, Can(1, 0x02FE0008).data()).echo);
}

TEST(BoardTest, ReceivingFilterDecidesDeliveryButEveryTransmissionIsCounted) {
  Board board({0, 0, 0, 1}, kStartMs);
  // Channel 1 passes only 0x100/0x101; channel 2 has no filter.
  Ask(board, 0, {code::kCanFilterWrite, 1 << 8, 0x1FF80000, 0x84000000});
  EXPECT_EQ(0b110, board.Transmit(0, Can(0x101, 8).data()).deliver_to);
  EXPECT_EQ(0b100, board.Transmit(0, Can(0x555, 8).data()).deliver_to);
  EXPECT_EQ(0b001, board.Transmit(2, Can(0x555, 8).data()).deliver_to)
      << "the sender's own filter plays no part";

  EXPECT_EQ(2U, board.State().frames_filtered) << "one refusal per filtering channel";
  EXPECT_EQ((std::vector<Words>{{code::kNfcr, 1, 2, 0}}), Ask(board, 0, {code::kNfcr, 0, 0, 0}));
  EXPECT_EQ((std::vector<Words>{{code::kNfcr, 3, 0, 0}}), Ask(board, 1, {code::kNfcr, 0, 0, 0}));
  EXPECT_EQ((std::vector<Words>{{code::kNfcr, 2, 1, 0}}), Ask(board, 2, {code::kNfcr, 0, 0, 0}));
}

TEST(BoardTest, DropEveryLosesEveryNthFrameOfEachBus) {
  Board board(kDefaultWiring, kStartMs);
  board.SetDropEvery(3);
  std::string pattern;
  for (int i = 0; i < 7; ++i) {
    pattern +=
        board.Transmit(0, Can(static_cast<uint32_t>(i), kInfoEchoRequest).data()).echo ? 'T' : '-';
  }
  EXPECT_EQ("TT-TT-T", pattern) << "a lost frame is not echoed either";
  EXPECT_TRUE(board.Transmit(1, Can(1, 0).data()).transmitted) << "each bus counts its own";
  EXPECT_EQ((std::vector<Words>{{code::kNecnt, 2, 0, 0}}), Ask(board, 0, {code::kNecnt, 0, 0, 0}));

  board.SetDropEvery(2);  // a new period starts its count again
  EXPECT_TRUE(board.Transmit(0, Can(1, 0).data()).transmitted);
  EXPECT_FALSE(board.Transmit(0, Can(1, 0).data()).transmitted);
  board.SetDropEvery(0);
  for (int i = 0; i < 5; ++i) EXPECT_TRUE(board.Transmit(0, Can(1, 0).data()).transmitted);
}

TEST(BoardTest, ResetClearsTheCountersButKeepsRatesAndFilters) {
  Board board({0, 1, 2, 3}, kStartMs);
  Ask(board, 0, {code::kSetBaud, 0, 5, 0});
  Ask(board, 0, {code::kCanFilterWrite, 0, 0x1FF80000, 0x84000000});
  board.Transmit(0, Can(1, 0).data());  // alone on its bus: a transmit error
  ASSERT_EQ((std::vector<Words>{{code::kNecnt, 1, 0, 0}}), Ask(board, 0, {code::kNecnt, 0, 0, 0}));

  Ask(board, 2, {code::kReset, 0, 0, 0});
  EXPECT_EQ((std::vector<Words>{{code::kNecnt, 0, 0, 0}}), Ask(board, 0, {code::kNecnt, 0, 0, 0}));
  EXPECT_EQ((std::vector<Words>{{code::kBaudrate, 0, 5, 0}}),
            Ask(board, 0, {code::kGetBaud, 0, 0, 0}));
  EXPECT_EQ((std::vector<Words>{{code::kCanFilterRead, 0, 0x1FF80000, 0x84000000}}),
            Ask(board, 0, {code::kCanFilterRead, 0, 0, 0}));
}

TEST(BoardTest, SetBaudIgnoredKeepsTheRate) {
  Board board(kDefaultWiring, kStartMs);
  board.SetBaudIgnored(true);
  Ask(board, 0, {code::kSetBaud, 0, 1, 0});
  EXPECT_EQ(3, board.State().channels[0].baud_index);
  board.SetBaudIgnored(false);
  Ask(board, 0, {code::kSetBaud, 0, 1, 0});
  EXPECT_EQ(1, board.State().channels[0].baud_index);
}

TEST(FrameTimeTest, CountsTheFrameBitsAtTheChannelRate) {
  struct Case {
    uint32_t info;
    int baud_index;
    uint64_t ns;
  };
  const std::vector<Case> cases = {
      {8, 5, 111'000},                     // standard, 8 bytes, 1 Mbaud: 111 bits
      {kInfoExtended | 0, 1, 670'000},     // extended, no data, 100 kbaud: 67 bits
      {kInfoRemote | 8, 3, 188'000},       // remote: no data bits whatever the DLC
      {15, 4, 222'000},                    // a DLC above 8 carries 8 bytes
      {kInfoExtended | 2, 2, 83 * 8'000},  // 125 kbaud: 8 us per bit
      {8, 0, 0},                           // no such rate
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.ns, FrameTimeNs(Can(0x1, c.info).data(), c.baud_index))
        << std::hex << c.info << " at index " << c.baud_index;
  }
}

}  // namespace
}  // namespace kel::sim
