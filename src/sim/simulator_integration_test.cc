// The virtual board over real loopback connections: answers, routing, faults, hostile
// clients, many clients and back-pressure.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <numeric>
#include <random>
#include <thread>

#include "device/command_codes.h"
#include "platform/clock.h"
#include "sim/frame_client.h"
#include "sim/simulator.h"

namespace kel::sim {
namespace {

// Generous: a busy machine may be slow, but a healthy board always gets there.
constexpr int kLongMs = 20000;
// How long a client listens for something that must not come. A board that sends it late
// passes unnoticed, but a correct board never fails.
constexpr int kQuietMs = 300;

using Words = std::array<uint32_t, 4>;

Words WordsOf(const FrameBytes& frame) {
  return {FrameWord(frame.data(), 0), FrameWord(frame.data(), 1), FrameWord(frame.data(), 2),
          FrameWord(frame.data(), 3)};
}

Words WordsOf(const std::optional<FrameBytes>& frame) {
  return frame ? WordsOf(*frame) : Words{0xDEAD, 0xDEAD, 0xDEAD, 0xDEAD};
}

FrameBytes Command(uint32_t code, uint32_t v1 = 0, uint32_t v2 = 0, uint32_t v3 = 0) {
  return EncodeCommand(CommandFrame{code, v1, v2, v3});
}

FrameBytes Can(uint32_t id, uint32_t info = 8, uint32_t data_low = 0x44332211) {
  FrameBytes frame{};
  SetFrameWord(frame.data(), 0, id);
  SetFrameWord(frame.data(), 1, info);
  SetFrameWord(frame.data(), 2, data_low);
  SetFrameWord(frame.data(), 3, 0x88776655);
  return frame;
}

// CAN frames 0 to count-1 (identifier `id`, or the frame number when `id` is 0; the frame
// number in data bytes 0-3), as one block of bytes.
std::vector<uint8_t> NumberedFrames(uint32_t count, uint32_t id = 0) {
  std::vector<uint8_t> all(size_t{count} * kFrameSize);
  for (uint32_t i = 0; i < count; ++i) {
    const FrameBytes f = Can(id != 0 ? id : i, 8, i);
    std::copy(f.begin(), f.end(), all.begin() + static_cast<std::ptrdiff_t>(i * kFrameSize));
  }
  return all;
}

// Sends a block on a client from a thread of its own. A test that ends early shuts the
// connection down, so a send stuck behind back-pressure ends and the thread is joined.
class BackgroundSend {
 public:
  BackgroundSend(FrameClient& client, std::vector<uint8_t> bytes)
      : client_(client), thread_([this, bytes = std::move(bytes)] {
          ok_ = client_.SendBytes(bytes.data(), bytes.size());
        }) {}
  ~BackgroundSend() {
    if (!thread_.joinable()) return;
    client_.socket().Shutdown();
    thread_.join();
  }
  BackgroundSend(const BackgroundSend&) = delete;
  BackgroundSend& operator=(const BackgroundSend&) = delete;

  /// Waits for the whole block to be sent; false when the connection failed.
  bool Join() {
    thread_.join();
    return ok_;
  }

 private:
  FrameClient& client_;
  bool ok_ = false;
  std::thread thread_;
};

Config TestConfig() {
  Config config;
  config.base_port = 0;
  config.record_frames = true;
  return config;
}

class SimulatorTest : public ::testing::Test {
 public:
  void StartBoard(const Config& config = TestConfig()) {
    board_ = std::make_unique<Simulator>(config);
    ASSERT_TRUE(board_->Start()) << board_->Error();
  }

  // Connects a client to `channel` and waits until the board has taken it, so that traffic
  // sent afterwards reaches it.
  std::unique_ptr<FrameClient> Connect(int channel) {
    auto client = std::make_unique<FrameClient>();
    EXPECT_TRUE(client->Connect(board_->Address(channel)));
    const uint32_t before = connected_[static_cast<size_t>(channel)]++;
    EXPECT_TRUE(board_->WaitForState(
        [&](const BoardState& s) {
          return s.channels[static_cast<size_t>(channel)].clients > before;
        },
        kLongMs));
    return client;
  }

  // The answer to `request`, skipping any other frame.
  Words Ask(FrameClient& client, const FrameBytes& request, uint32_t answer_code) {
    EXPECT_TRUE(client.Send(request));
    return WordsOf(client.ReceiveAnswer(answer_code, kLongMs));
  }

  // A round trip that proves the board has handled everything the client sent before, and
  // that nothing else was queued to it meanwhile: the next frame must be the answer.
  void ExpectNothingQueued(FrameClient& client, const char* who) {
    ASSERT_TRUE(client.SendCommand(code::kGetBaud));
    EXPECT_EQ(code::kBaudrate, WordsOf(client.Receive(kLongMs))[0]) << who;
  }

  std::unique_ptr<Simulator> board_;
  std::array<uint32_t, kChannelCount> connected_{};  // clients connected by Connect
};

struct AnswerCase {
  int channel;
  FrameBytes request;
  uint32_t answer_code;
  Words expected;
};

TEST_F(SimulatorTest, AnswersCarryTheDocumentedWordsAndTheBoardRecordsEveryRequest) {
  StartBoard();
  std::array<std::unique_ptr<FrameClient>, kChannelCount> clients;
  for (int ch = 0; ch < kChannelCount; ++ch) clients[static_cast<size_t>(ch)] = Connect(ch);

  // In order, on one board: each row may depend on the rows before it.
  const std::vector<AnswerCase> cases = {
      {0, Command(code::kOutputs), code::kOutputs, {code::kOutputs, 0, 0, 0}},
      {0, Command(code::kSetOut, 0x05000000), 0, {}},
      {3, Command(code::kToggleOut, 0x05020000), 0, {}},
      {1, Command(code::kOutputs), code::kOutputs, {code::kOutputs, 0x00020000, 0, 0}},
      {1, Command(code::kSetBaud, 0, 5), 0, {}},
      {1, Command(code::kGetBaud), code::kBaudrate, {code::kBaudrate, 0, 5, 0}},
      {0, Command(code::kCanFilterWrite, 3 << 8, 0x1FF80000, 0x84000000), 0, {}},
      {3,
       Command(code::kCanFilterRead),
       code::kCanFilterRead,
       {code::kCanFilterRead, 3 << 8, 0x1FF80000, 0x84000000}},
      {2, Command(code::kInternal, 0, 1, 1), code::kInternal, {code::kInternal, 0, 1, 1}},
      {0, Command(code::kInternal, 0, 0, 0), code::kInternal, {code::kInternal, 0, 0, 1}},
      {0,
       Command(code::kInternal, 0, code::kEscDown),
       code::kInternal,
       {code::kInternal, 0, code::kEscDown, 0}},
  };
  std::array<std::vector<FrameBytes>, kChannelCount> sent;
  for (const AnswerCase& c : cases) {
    FrameClient& client = *clients[static_cast<size_t>(c.channel)];
    sent[static_cast<size_t>(c.channel)].push_back(c.request);
    if (c.answer_code == 0) {
      ASSERT_TRUE(client.Send(c.request));
      continue;
    }
    EXPECT_EQ(c.expected, Ask(client, c.request, c.answer_code))
        << std::hex << "request 0x" << FrameWord(c.request.data(), 0) << " on channel "
        << c.channel;
  }

  // GET_STATUS: the escape-down event, four clients, and some time since the start.
  const Words status = Ask(*clients[1], Command(code::kGetStatus), code::kGetStatus);
  EXPECT_EQ(1U, status[1]);
  EXPECT_EQ(4U, status[2]);
  sent[1].push_back(Command(code::kGetStatus));

  for (int ch = 0; ch < kChannelCount; ++ch) {
    EXPECT_EQ(sent[static_cast<size_t>(ch)], board_->ReceivedFrames(ch)) << "channel " << ch;
  }
  const BoardState state = board_->State();
  EXPECT_EQ(0x0002, state.outputs);
  EXPECT_EQ(1U, state.debug);
  EXPECT_EQ(cases.size() + 1, state.frames_from_clients);
  board_->ClearReceivedFrames();
  EXPECT_TRUE(board_->ReceivedFrames(0).empty());
}

TEST_F(SimulatorTest, CanFramesReachTheOtherChannelsOfTheBusThroughTheirFilters) {
  StartBoard();
  auto a0 = Connect(0);
  auto b0 = Connect(0);
  auto c2 = Connect(2);
  auto d2 = Connect(2);
  auto e1 = Connect(1);
  auto f3 = Connect(3);

  // Channel 2 passes 0x100 and 0x101 only (11-bit form, either identifier form).
  ASSERT_TRUE(a0->Send(Command(code::kCanFilterWrite, 2 << 8, 0x1FF80000, 0x84000000)));
  const FrameBytes wanted = Can(0x100, kInfoEchoRequest | 8);
  const FrameBytes refused = Can(0x555, kInfoEchoRequest | 8);
  const FrameBytes extended = Can(0x101, kInfoExtended | 4);
  for (const FrameBytes& f : {wanted, refused, extended}) ASSERT_TRUE(a0->Send(f));

  for (FrameClient* receiver : {c2.get(), d2.get()}) {
    // The frame as sent, with the channel field set to the receiving channel.
    EXPECT_EQ((Words{0x100, kInfoEchoRequest | 0x0208, 0x44332211, 0x88776655}),
              WordsOf(receiver->Receive(kLongMs)));
    EXPECT_EQ((Words{0x101, kInfoExtended | 0x0204, 0x44332211, 0x88776655}),
              WordsOf(receiver->Receive(kLongMs)));
    ExpectNothingQueued(*receiver, "a frame the filter refused went through");
  }
  // Both frames that asked for it come back to their sender, refused or not: the bus took
  // them either way.
  EXPECT_EQ((Words{0x100, kInfoEchoRequest | kInfoEcho | 8, 0x44332211, 0x88776655}),
            WordsOf(a0->Receive(kLongMs)));
  EXPECT_EQ((Words{0x555, kInfoEchoRequest | kInfoEcho | 8, 0x44332211, 0x88776655}),
            WordsOf(a0->Receive(kLongMs)));
  ExpectNothingQueued(*a0, "an echo nobody asked for");
  ExpectNothingQueued(*b0, "a frame reached a client of the sender's own channel");
  ExpectNothingQueued(*e1, "a frame crossed to the other bus");
  ExpectNothingQueued(*f3, "a frame crossed to the other bus");

  // And back: channel 0 has no filter and gets everything, with its own channel number.
  ASSERT_TRUE(d2->Send(Can(0x7FF, 0x0302)));
  for (FrameClient* receiver : {a0.get(), b0.get()}) {
    EXPECT_EQ((Words{0x7FF, 0x0002, 0x44332211, 0x88776655}), WordsOf(receiver->Receive(kLongMs)));
  }
  ExpectNothingQueued(*c2, "a frame reached a client of the sender's own channel");

  const BoardState state = board_->State();
  EXPECT_EQ(3U, state.channels[0].frames_transmitted);
  EXPECT_EQ(1U, state.channels[0].frames_received);
  EXPECT_EQ(3U, state.channels[2].frames_received);
  EXPECT_EQ(1U, state.frames_filtered);
  EXPECT_EQ(6U, state.Clients());
}

struct FaultCase {
  const char* name;
  Faults faults;
  std::function<void(SimulatorTest&, Simulator&)> check;
};

TEST_F(SimulatorTest, EachFaultMisbehavesAsDocumented) {
  const std::vector<FaultCase> cases = {
      {"noise before each answer",
       [] {
         Faults f;
         f.noise_before_answer = 3;
         return f;
       }(),
       [](SimulatorTest& t, Simulator&) {
         auto c = t.Connect(0);
         ASSERT_TRUE(c->SendCommand(code::kGetBaud));
         EXPECT_EQ((Words{0x7FF, 0x0008, 0xA5A5A5A5, 0xA5A5A5A5}), WordsOf(c->Receive(kLongMs)));
         EXPECT_EQ((Words{code::kEscUp, 0, 0, 0}), WordsOf(c->Receive(kLongMs)));
         EXPECT_EQ(0x7FFU, WordsOf(c->Receive(kLongMs))[0]);
         EXPECT_EQ((Words{code::kBaudrate, 0, 3, 0}), WordsOf(c->Receive(kLongMs)));
         // Noise goes before answers only, never before routed traffic or echoes.
         auto other = t.Connect(2);
         ASSERT_TRUE(c->Send(Can(0x1, kInfoEchoRequest)));
         EXPECT_EQ(0x1U, WordsOf(other->Receive(kLongMs))[0]);
         EXPECT_EQ(0x1U, WordsOf(c->Receive(kLongMs))[0]);
       }},
      {"noise before every frame of a multi-frame answer",
       [] {
         Faults f;
         f.noise_before_answer = 1;
         return f;
       }(),
       [](SimulatorTest& t, Simulator&) {
         auto c = t.Connect(1);
         ASSERT_TRUE(c->SendCommand(code::kGetMeas));
         for (const uint32_t measure :
              {code::kMeasure1, code::kMeasure2, code::kMeasure3, code::kMeasure4}) {
           EXPECT_EQ(0x7FFU, WordsOf(c->Receive(kLongMs))[0]);
           EXPECT_EQ(measure, WordsOf(c->Receive(kLongMs))[0]);
         }
       }},
      {"answers to one code come late, after later answers",
       [] {
         Faults f;
         f.delayed_code = code::kGetBaud;
         f.answer_delay_ms = 400;
         return f;
       }(),
       [](SimulatorTest& t, Simulator&) {
         auto c = t.Connect(0);
         ASSERT_TRUE(c->SendCommand(code::kGetBaud));
         ASSERT_TRUE(c->SendCommand(code::kOutputs));
         EXPECT_EQ(code::kOutputs, WordsOf(c->Receive(kLongMs))[0]);
         EXPECT_EQ((Words{code::kBaudrate, 0, 3, 0}), WordsOf(c->Receive(kLongMs)));
       }},
      {"answers to one code never come",
       [] {
         Faults f;
         f.delayed_code = code::kInternal;
         f.answer_delay_ms = -1;
         return f;
       }(),
       [](SimulatorTest& t, Simulator& board) {
         auto c = t.Connect(0);
         ASSERT_TRUE(c->SendCommand(code::kInternal, 0, 1, 1));
         t.ExpectNothingQueued(*c, "a withheld answer came");
         EXPECT_FALSE(c->Receive(kQuietMs));
         EXPECT_EQ(1U, board.State().debug) << "the command itself still acts";
       }},
      {"frames go out one byte per send and arrive whole",
       [] {
         Faults f;
         f.split_bytes = true;
         return f;
       }(),
       [](SimulatorTest& t, Simulator&) {
         auto c = t.Connect(3);
         for (int i = 0; i < 20; ++i) ASSERT_TRUE(c->SendCommand(code::kNfcr));
         for (int i = 0; i < 20; ++i) {
           EXPECT_EQ((Words{code::kNfcr, 0, 0, 0}), WordsOf(c->Receive(kLongMs))) << i;
         }
       }},
      {"every Nth frame on a bus is lost, unechoed and counted as an error",
       [] {
         Faults f;
         f.drop_every = 3;
         return f;
       }(),
       [](SimulatorTest& t, Simulator&) {
         auto sender = t.Connect(0);
         auto receiver = t.Connect(2);
         for (uint32_t id = 1; id <= 7; ++id) {
           ASSERT_TRUE(sender->Send(Can(id, kInfoEchoRequest)));
         }
         for (const uint32_t id : {1, 2, 4, 5, 7}) {
           EXPECT_EQ(id, WordsOf(receiver->Receive(kLongMs))[0]);
           EXPECT_EQ(id, WordsOf(sender->Receive(kLongMs))[0]);
         }
         ASSERT_TRUE(sender->SendCommand(code::kNecnt));
         EXPECT_EQ((Words{code::kNecnt, 2, 0, 0}), WordsOf(sender->Receive(kLongMs)));
       }},
      {"a connection is closed after N frames",
       [] {
         Faults f;
         f.close_after_frames = 2;
         return f;
       }(),
       [](SimulatorTest& t, Simulator& board) {
         auto c = t.Connect(0);
         for (int i = 0; i < 3; ++i) ASSERT_TRUE(c->SendCommand(code::kOutputs));
         EXPECT_EQ(32U, c->ReceiveAll(kLongMs).size());
         EXPECT_TRUE(c->PeerClosed());
         EXPECT_TRUE(
             board.WaitForState([](const BoardState& s) { return s.Clients() == 0; }, kLongMs));
       }},
      {"a connection is closed in the middle of a frame",
       [] {
         Faults f;
         f.close_after_frames = 1;
         f.close_mid_frame = true;
         return f;
       }(),
       [](SimulatorTest& t, Simulator&) {
         auto c = t.Connect(1);
         ASSERT_TRUE(c->SendCommand(code::kGetBaud));
         ASSERT_TRUE(c->SendCommand(code::kGetBaud));
         const std::vector<uint8_t> bytes = c->ReceiveAll(kLongMs);
         ASSERT_EQ(24U, bytes.size());
         EXPECT_EQ(code::kBaudrate, FrameWord(bytes.data(), 0));
         EXPECT_EQ(code::kBaudrate, FrameWord(bytes.data() + 16, 0)) << "half of the second";
         EXPECT_TRUE(c->PeerClosed());
       }},
      {"a connection is closed before its first frame",
       [] {
         Faults f;
         f.close_after_frames = 0;
         return f;
       }(),
       [](SimulatorTest&, Simulator& board) {
         FrameClient c;
         ASSERT_TRUE(c.Connect(board.Address(0)));
         EXPECT_TRUE(c.ReceiveAll(kLongMs).empty());
         EXPECT_TRUE(c.PeerClosed());
       }},
      {"SET_BAUD does not take",
       [] {
         Faults f;
         f.baud_ignored = true;
         return f;
       }(),
       [](SimulatorTest& t, Simulator&) {
         auto c = t.Connect(2);
         ASSERT_TRUE(c->SendCommand(code::kSetBaud, 0, 5));
         EXPECT_EQ((Words{code::kBaudrate, 0, 3, 0}),
                   t.Ask(*c, Command(code::kGetBaud), code::kBaudrate));
       }},
  };
  for (const FaultCase& c : cases) {
    SCOPED_TRACE(c.name);
    Config config = TestConfig();
    config.faults = c.faults;
    connected_ = {};
    StartBoard(config);
    c.check(*this, *board_);
    board_.reset();
  }
}

TEST_F(SimulatorTest, FaultsChangeWhileTheBoardRuns) {
  StartBoard();
  auto c = Connect(0);
  EXPECT_EQ((Words{code::kBaudrate, 0, 3, 0}), Ask(*c, Command(code::kGetBaud), code::kBaudrate));
  Faults faults;
  faults.noise_before_answer = 1;
  faults.baud_ignored = true;
  board_->SetFaults(faults);
  EXPECT_EQ(1U, board_->CurrentFaults().noise_before_answer);
  ASSERT_TRUE(c->SendCommand(code::kSetBaud, 0, 1));
  ASSERT_TRUE(c->SendCommand(code::kGetBaud));
  EXPECT_EQ(0x7FFU, WordsOf(c->Receive(kLongMs))[0]);
  EXPECT_EQ((Words{code::kBaudrate, 0, 3, 0}), WordsOf(c->Receive(kLongMs)));
  board_->SetFaults(Faults());
  ASSERT_TRUE(c->SendCommand(code::kSetBaud, 0, 1));
  ASSERT_TRUE(c->SendCommand(code::kGetBaud));
  EXPECT_EQ((Words{code::kBaudrate, 0, 1, 0}), WordsOf(c->Receive(kLongMs)));
}

TEST_F(SimulatorTest, FramesSplitAcrossSendsAreJoined) {
  StartBoard();
  auto c = Connect(0);
  const FrameBytes request = Command(code::kInternal, 0, code::kEscUp);
  for (const auto& [from, to] : {std::pair{0, 1}, {1, 7}, {7, 8}, {8, 15}, {15, 16}}) {
    ASSERT_TRUE(c->SendBytes(request.data() + from, static_cast<size_t>(to - from)));
    platform::SleepMs(20);  // give each piece its own segment
  }
  EXPECT_EQ((Words{code::kInternal, 0, code::kEscUp, 0}), WordsOf(c->Receive(kLongMs)));
  EXPECT_EQ(std::vector<FrameBytes>{request}, board_->ReceivedFrames(0));
}

TEST_F(SimulatorTest, HalfClosedClientStillGetsItsAnswers) {
  StartBoard();
  auto c = Connect(3);
  ASSERT_TRUE(c->SendCommand(code::kGetBaud));
  ASSERT_TRUE(c->SendCommand(code::kOutputs));
  ASSERT_TRUE(c->SendBytes("\x01\x02\x03", 3));  // a partial frame that never completes
  c->ShutdownSend();
  const std::vector<uint8_t> bytes = c->ReceiveAll(kLongMs);
  ASSERT_EQ(32U, bytes.size());
  EXPECT_EQ(code::kBaudrate, FrameWord(bytes.data(), 0));
  EXPECT_EQ(code::kOutputs, FrameWord(bytes.data() + 16, 0));
  EXPECT_TRUE(c->PeerClosed());
}

TEST_F(SimulatorTest, SurvivesGarbageHalfFramesAndAbruptDisconnects) {
  StartBoard();
  std::mt19937 random(1234);
  std::vector<std::thread> vandals;
  for (int i = 0; i < 8; ++i) {
    std::vector<uint8_t> junk(100'000 + 7 * static_cast<size_t>(i));
    for (uint8_t& b : junk) b = static_cast<uint8_t>(random());
    vandals.emplace_back([this, i, junk = std::move(junk)] {
      FrameClient c;
      if (!c.Connect(board_->Address(i % kChannelCount))) return;
      c.SendBytes(junk.data(), junk.size() / static_cast<size_t>(i % 3 + 1));
      if (i % 2 == 0) {
        c.Abort();  // a reset, with answers and traffic still on their way
      } else {
        c.ReceiveAll(50);
      }
    });
  }
  // Some close the moment they connect, some after half a frame.
  for (int i = 0; i < 8; ++i) {
    FrameClient c;
    EXPECT_TRUE(c.Connect(board_->Address(i % kChannelCount)));
    if (i % 2 == 1) {
      EXPECT_TRUE(c.SendBytes("\x00\x01\x02\x03\x04\x05\x06\x07", 8));
    }
  }
  for (std::thread& t : vandals) t.join();

  // Whatever the junk did to the state, the board still serves every channel.
  for (int ch = 0; ch < kChannelCount; ++ch) {
    FrameClient c;
    ASSERT_TRUE(c.Connect(board_->Address(ch)));
    ASSERT_TRUE(c.SendCommand(code::kNsr));
    EXPECT_EQ(code::kNsr, WordsOf(c.ReceiveAnswer(code::kNsr, kLongMs))[0]) << "channel " << ch;
  }
  EXPECT_TRUE(board_->WaitForState([](const BoardState& s) { return s.Clients() == 0; }, kLongMs))
      << "every connection was let go";
}

TEST_F(SimulatorTest, ServesSixtyFourClientsAtOnce) {
  StartBoard();
  constexpr int kPerChannel = 16;
  std::vector<std::unique_ptr<FrameClient>> clients;
  for (int i = 0; i < kPerChannel * kChannelCount; ++i) clients.push_back(Connect(i % 4));
  ASSERT_EQ(64U, board_->State().Clients());

  // Every client of channel 0 sends one frame; every client of channel 2 gets all sixteen.
  for (int i = 0; i < kPerChannel; ++i) {
    ASSERT_TRUE(clients[static_cast<size_t>(i * 4)]->Send(Can(static_cast<uint32_t>(i))));
  }
  for (int i = 0; i < kPerChannel; ++i) {
    FrameClient& receiver = *clients[static_cast<size_t>(i * 4 + 2)];
    std::vector<uint32_t> ids;
    for (int k = 0; k < kPerChannel; ++k) ids.push_back(WordsOf(receiver.Receive(kLongMs))[0]);
    std::sort(ids.begin(), ids.end());
    std::vector<uint32_t> expected(kPerChannel);
    std::iota(expected.begin(), expected.end(), 0U);
    EXPECT_EQ(expected, ids) << "receiver " << i;
  }
  for (auto& c : clients) ASSERT_TRUE(c->SendCommand(code::kGetStatus));
  for (auto& c : clients) {
    const Words status = WordsOf(c->ReceiveAnswer(code::kGetStatus, kLongMs));
    EXPECT_EQ(64U, status[2]);
  }
}

// A receiver that does not read makes the board hold the sender back instead of dropping
// frames; every frame arrives, in order, once the receiver reads.
TEST_F(SimulatorTest, BackPressureLosesNothing) {
  Config config = TestConfig();
  config.record_frames = false;
  StartBoard(config);
  auto sender = Connect(0);
  auto receiver = Connect(2);
  // 16 MB: far more than the board and the socket buffers hold while nobody reads.
  constexpr uint32_t kFrames = 1'000'000;
  BackgroundSend send(*sender, NumberedFrames(kFrames));
  // Let the receiver's queue fill up and the sender stall.
  EXPECT_FALSE(board_->WaitForState(
      [](const BoardState& s) { return s.frames_from_clients == kFrames; }, 500))
      << "the board read every frame although the receiver took none";
  uint32_t next = 0;
  while (next < kFrames) {
    const std::optional<FrameBytes> f = receiver->Receive(kLongMs);
    ASSERT_TRUE(f) << "frame " << next << " never came";
    ASSERT_EQ(next, FrameWord(f->data(), 2)) << "lost or reordered";
    ++next;
  }
  EXPECT_TRUE(send.Join());
  const BoardState state = board_->State();
  EXPECT_EQ(kFrames, state.frames_from_clients);
  EXPECT_EQ(kFrames, state.frames_to_clients);
}

// A receiver that never reads and then vanishes must not keep its bus stalled.
TEST_F(SimulatorTest, StalledReceiverThatLeavesReleasesTheBus) {
  Config config = TestConfig();
  config.record_frames = false;
  StartBoard(config);
  auto sender = Connect(0);
  auto stalled = Connect(2);
  constexpr uint32_t kFrames = 1'000'000;
  BackgroundSend send(*sender, NumberedFrames(kFrames, 1));
  platform::SleepMs(300);
  stalled->Close();
  ASSERT_TRUE(board_->WaitForState(
      [](const BoardState& s) { return s.frames_from_clients == kFrames; }, kLongMs));
  EXPECT_TRUE(send.Join());
  ExpectNothingQueued(*sender, "the sender got traffic");
}

TEST_F(SimulatorTest, PacingHoldsTheBusToItsBitRate) {
  Config config = TestConfig();
  config.pace = true;
  StartBoard(config);
  auto sender = Connect(0);
  auto receiver = Connect(2);
  // 8-byte standard frames take 111 bits: 444 us each at 250 kbaud, the start rate.
  constexpr uint32_t kFrames = 500;
  const std::vector<uint8_t> all = NumberedFrames(kFrames);
  const uint64_t start = platform::MonotonicMs();
  ASSERT_TRUE(sender->SendBytes(all.data(), all.size()));
  // A command on the other bus is not held up by this one.
  auto other = Connect(1);
  ASSERT_TRUE(other->SendCommand(code::kOutputs));
  EXPECT_EQ(code::kOutputs, WordsOf(other->Receive(kLongMs))[0]);
  for (uint32_t i = 0; i < kFrames; ++i) ASSERT_EQ(i, WordsOf(receiver->Receive(kLongMs))[0]);
  const uint64_t elapsed = platform::MonotonicMs() - start;
  EXPECT_GE(elapsed, 200U) << "500 frames at 250 kbaud need 222 ms";
}

TEST_F(SimulatorTest, StopEndsEveryConnectionAndKeepsTheState) {
  StartBoard();
  auto c0 = Connect(0);
  auto c2 = Connect(2);
  ASSERT_TRUE(c0->SendCommand(code::kSetOut, 0x00020000));
  ASSERT_TRUE(board_->WaitForReceivedFrames(0, 1, kLongMs));
  board_->Stop();
  board_->Stop();
  EXPECT_TRUE(c0->ReceiveAll(kLongMs).empty());
  EXPECT_TRUE(c0->PeerClosed());
  c2->ReceiveAll(kLongMs);
  EXPECT_TRUE(c2->PeerClosed());
  EXPECT_EQ(0x0002, board_->State().outputs);
  EXPECT_EQ(0U, board_->State().Clients());
  FrameClient late;
  EXPECT_FALSE(late.Connect(board_->Address(0)));
  EXPECT_FALSE(board_->Start()) << "a board starts once";
}

TEST_F(SimulatorTest, PortsArePickedFreeOrReportedTaken) {
  StartBoard();
  Simulator second(TestConfig());
  ASSERT_TRUE(second.Start()) << second.Error();
  EXPECT_TRUE(second.BasePort() + 3 < board_->BasePort() ||
              board_->BasePort() + 3 < second.BasePort())
      << board_->BasePort() << " and " << second.BasePort();

  Config taken = TestConfig();
  taken.base_port = static_cast<uint16_t>(board_->BasePort() - 2);  // overlaps at +2 and +3
  Simulator third(taken);
  EXPECT_FALSE(third.Start());
  EXPECT_EQ("cannot listen on 127.0.0.1 port " + std::to_string(board_->BasePort()) +
                " (in use, or the address is not this host's)",
            third.Error());

  Config bad = TestConfig();
  bad.bind_address = "127.0.0";
  Simulator fourth(bad);
  EXPECT_FALSE(fourth.Start());
  EXPECT_EQ("not an IPv4 address: '127.0.0'", fourth.Error());
}

}  // namespace
}  // namespace kel::sim
