// The virtual board over real loopback connections: routing, faults, hostile clients, many
// clients, back-pressure, pacing and the board's life. board_test.cc checks the answers.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <thread>

#include "device/command_codes.h"
#include "platform/clock.h"
#include "sim/frame_client.h"
#include "sim/options.h"
#include "sim/simulator.h"

namespace kel::sim {
namespace {

constexpr int kLongMs = 20000;  // generous: a healthy board always gets there

using Words = std::array<uint32_t, 4>;

FrameBytes Frame(const Words& w) { return EncodeCommand(CommandFrame{w[0], w[1], w[2], w[3]}); }

// `count` frames made by `make` from their numbers, as one block of bytes.
std::vector<uint8_t> Block(uint32_t count, const std::function<Words(uint32_t)>& make) {
  std::vector<uint8_t> all(count * kFrameSize);
  for (uint32_t i = 0; i < count; ++i) std::ranges::copy(Frame(make(i)), &all[i * kFrameSize]);
  return all;
}

// The next frame to `client`; 0xDEAD words when none comes.
Words Next(FrameClient& client) {
  const FrameBytes f = client.Receive(kLongMs).value_or(Frame({0xDEAD, 0xDEAD, 0xDEAD, 0xDEAD}));
  const CommandFrame w = DecodeCommand(f.data());
  return {w.command, w.value1, w.value2, w.value3};
}

// A board set up as kelsim's `options` ask, on free ports, keeping what it receives.
Config Options(std::vector<std::string> options) {
  options.insert(options.begin(), {"--port", "0"});
  std::string error;
  Config config = ParseOptions(options, &error).value().config;
  config.record_frames = true;
  return config;
}

class SimulatorTest : public ::testing::Test {
 protected:
  void StartBoard(std::vector<std::string> options = {}) {
    StartBoardWith(Options(std::move(options)));
  }
  void StartBoardWith(const Config& config) {
    board_ = std::make_unique<Simulator>(config);
    ASSERT_TRUE(board_->Start()) << board_->Error();
  }

  // A client of `channel` once the board has taken it, so that traffic sent later reaches it.
  std::unique_ptr<FrameClient> Connect(int channel) {
    auto client = std::make_unique<FrameClient>();
    EXPECT_TRUE(client->Connect(board_->Address(channel)));
    EXPECT_TRUE(board_->WaitForState(
        [n = ++connected_](const BoardState& s) { return s.Clients() >= n; }, kLongMs));
    return client;
  }

  Words Ask(FrameClient& client, const Words& request) {
    EXPECT_TRUE(client.Send(Frame(request)));
    return Next(client);
  }

  bool AllClientsGone() {
    return board_->WaitForState([](const BoardState& s) { return s.Clients() == 0; }, kLongMs);
  }

  std::unique_ptr<Simulator> board_;
  uint32_t connected_ = 0;
};

TEST_F(SimulatorTest, CanFramesReachTheOtherChannelsOfTheBusThroughTheirFilters) {
  StartBoard();
  auto a0 = Connect(0), c2 = Connect(2), e1 = Connect(1), f3 = Connect(3);
  // Channel 2 passes 0x100 and 0x101 only; the senders' channel fields are wrong on purpose.
  ASSERT_TRUE(a0->Send(Frame({code::kCanFilterWrite, 2 << 8, 0x1FF80000, 0x84000000})));
  for (const uint32_t id : {0x100U, 0x555U}) {
    ASSERT_TRUE(a0->Send(Frame({id, kInfoEchoRequest | 0x0108, 0x44332211, 0x88776655})));
  }
  ASSERT_TRUE(e1->Send(Frame({0x7FF, kInfoExtended | 0x0002, 0x11})));

  EXPECT_EQ((Words{0x100, kInfoEchoRequest | 0x0208, 0x44332211, 0x88776655}), Next(*c2));
  EXPECT_EQ((Words{0x7FF, kInfoExtended | 0x0302, 0x11, 0}), Next(*f3));
  // Both frames that asked come back as sent with bit 25, the refused one too.
  for (const uint32_t id : {0x100U, 0x555U}) {
    EXPECT_EQ((Words{id, kInfoEchoRequest | kInfoEcho | 0x0108, 0x44332211, 0x88776655}),
              Next(*a0));
  }
  // Nothing else: no refused frame, no echo unasked, nothing across to the other bus.
  for (auto* c : {a0.get(), c2.get(), e1.get(), f3.get()}) {
    EXPECT_EQ((Words{code::kBaudrate, 0, 3, 0}), Ask(*c, {code::kGetBaud}));
  }
  // From clients: 4 frames and 4 requests before this one; to them: 2 routed frames, 2
  // echoes and 4 answers; 1 refusal.
  EXPECT_EQ((Words{code::kStatus1, 8, 8, 1}), Ask(*e1, {code::kStatus1}));
}

TEST_F(SimulatorTest, NoiseGoesBeforeAnswersOnlyAndFramesSplitIntoBytesArriveWhole) {
  StartBoard({"--noise", "3", "--split-bytes"});
  auto c = Connect(1), other = Connect(3);
  ASSERT_TRUE(c->Send(Frame({code::kGetMeas})));
  for (uint32_t measure = code::kMeasure1; measure <= code::kMeasure4; ++measure) {
    EXPECT_EQ((Words{0x7FF, 0x0108, 0xA5A5A5A5, 0xA5A5A5A5}), Next(*c));
    EXPECT_EQ((Words{code::kEscUp, 0, 0, 0}), Next(*c));
    EXPECT_EQ(0x7FFU, Next(*c)[0]);
    EXPECT_EQ(measure, Next(*c)[0]);
  }
  ASSERT_TRUE(c->Send(Frame({0x1, kInfoEchoRequest})));
  EXPECT_EQ(0x1U, Next(*other)[0]) << "routed traffic gets no noise";
  EXPECT_EQ(0x1U, Next(*c)[0]) << "nor do echoes";
}

TEST_F(SimulatorTest, AnswersComeLateOrNeverAndSetBaudMayNotTake) {
  StartBoard({"--delay-answer", "0x81010005:400", "--ignore-set-baud"});
  auto c = Connect(0);
  for (const uint32_t request : {code::kSetBaud, code::kGetBaud, code::kOutputs}) {
    ASSERT_TRUE(c->Send(Frame({request, 0, 5})));
  }
  EXPECT_EQ(code::kOutputs, Next(*c)[0]) << "a later answer overtakes the delayed one";
  EXPECT_EQ((Words{code::kBaudrate, 0, 3, 0}), Next(*c)) << "SET_BAUD took";

  board_->SetFaults(Options({"--drop-answer", "0xFFFFFFFF"}).faults);
  ASSERT_TRUE(c->Send(Frame({code::kInternal, 0, internal::kWriteDebug, 1})));
  ASSERT_TRUE(c->Send(Frame({code::kSetBaud, 0, 5})));
  EXPECT_EQ((Words{code::kBaudrate, 0, 5, 0}), Ask(*c, {code::kGetBaud}));
  EXPECT_FALSE(c->Receive(300)) << "the dropped answer came";
  EXPECT_EQ(1U, board_->State().debug) << "a command whose answer is dropped still acts";
}

TEST_F(SimulatorTest, EveryNthFrameOnABusIsLostUnechoedAndCountedAsAnError) {
  StartBoard({"--drop-every", "3"});
  auto sender = Connect(0), receiver = Connect(2);
  for (uint32_t id = 1; id <= 7; ++id) ASSERT_TRUE(sender->Send(Frame({id, kInfoEchoRequest})));
  for (const uint32_t id : {1, 2, 4, 5, 7}) {
    EXPECT_EQ(id, Next(*receiver)[0]);
    EXPECT_EQ(id, Next(*sender)[0]);
  }
  EXPECT_EQ((Words{code::kNecnt, 2, 0, 0}), Ask(*sender, {code::kNecnt}));
}

TEST_F(SimulatorTest, ConnectionsCloseAfterNFramesOrInTheMiddleOfTheNext) {
  const auto requests = Block(3, [](uint32_t) { return Words{code::kGetBaud}; });
  const auto answers = Block(3, [](uint32_t) { return Words{code::kBaudrate, 0, 3}; });
  // The options, and the bytes of the answers that go out before the close.
  for (const auto& [options, size] : std::vector<std::pair<std::vector<std::string>, size_t>>{
           {{"--close-after", "0"}, 0},
           {{"--close-after", "2"}, 32},
           {{"--close-after", "2", "--close-mid-frame"}, 40}}) {
    StartBoard(options);
    FrameClient client;
    ASSERT_TRUE(client.Connect(board_->Address(1)));
    if (size > 0) client.SendBytes(requests.data(), requests.size());
    EXPECT_EQ(std::vector<uint8_t>(answers.data(), answers.data() + size),
              client.ReceiveAll(kLongMs));
    EXPECT_TRUE(client.PeerClosed());
    EXPECT_TRUE(AllClientsGone());
  }
}

TEST_F(SimulatorTest, SurvivesGarbageHalfFramesAndAbruptDisconnects) {
  StartBoard();
  std::vector<std::thread> vandals;
  for (int i = 0; i < 8; ++i) {
    // Nothing, half a frame, or 100 kB of random bytes ending in a partial frame; then a
    // reset with answers and traffic still on their way, or a close.
    vandals.emplace_back([this, i] {
      std::mt19937 random(static_cast<uint32_t>(i));
      std::vector<uint8_t> junk(i < 2 ? 8 * i : 100'000 + 7 * i);
      for (uint8_t& b : junk) b = static_cast<uint8_t>(random());
      FrameClient c;
      if (!c.Connect(board_->Address(i % kChannelCount))) return;
      c.SendBytes(junk.data(), junk.size() / (i % 3 + 1));
      if (i % 2 == 0) c.Abort();
      if (i % 2 == 1) c.ReceiveAll(50);
    });
  }
  for (std::thread& t : vandals) t.join();
  ASSERT_TRUE(AllClientsGone()) << "every connection was let go";

  // Every channel still serves: a request sent in pieces is joined, and a client that ends
  // its sending gets its answer before the close, a partial frame after it dropped.
  const FrameBytes request = Frame({code::kNsr}), answer = Frame({code::kNsr, 0, 3});
  for (int ch = 0; ch < kChannelCount; ++ch) {
    board_->ClearReceivedFrames();
    FrameClient c;
    ASSERT_TRUE(c.Connect(board_->Address(ch)));
    ASSERT_TRUE(c.SendBytes(request.data(), 7));
    platform::SleepMs(20);  // the rest in a segment of its own
    ASSERT_TRUE(c.SendBytes(request.data() + 7, 9) && c.SendBytes("\x01\x02\x03", 3));
    c.ShutdownSend();
    EXPECT_EQ(std::vector<uint8_t>(answer.begin(), answer.end()), c.ReceiveAll(kLongMs)) << ch;
    EXPECT_TRUE(c.PeerClosed());
    EXPECT_EQ(std::vector<FrameBytes>{request}, board_->ReceivedFrames(ch));
  }
}

TEST_F(SimulatorTest, ServesSixtyFourClientsAtOnceAndStopEndsThemAll) {
  StartBoard();
  std::vector<std::unique_ptr<FrameClient>> clients;
  for (int i = 0; i < 64; ++i) clients.push_back(Connect(i % kChannelCount));
  // Each of the 16 clients of channel 0 sends one frame; each client of channel 2 gets all.
  for (uint32_t i = 0; i < 16; ++i) ASSERT_TRUE(clients[i * 4]->Send(Frame({i, 8})));
  for (size_t i = 2; i < 64; i += 4) {
    uint64_t ids = 0;  // bit n: frame n came
    for (int k = 0; k < 16; ++k) ids |= uint64_t{1} << (Next(*clients[i])[0] % 64);
    EXPECT_EQ(0xFFFFU, ids) << "receiver " << i;
  }
  for (auto& c : clients) ASSERT_TRUE(c->Send(Frame({code::kGetStatus})));
  for (auto& c : clients) EXPECT_EQ(64U, Next(*c)[2]) << "clients in GET_STATUS";
  board_->Stop();
  board_->Stop();
  for (auto& c : clients) EXPECT_TRUE(c->ReceiveAll(kLongMs).empty() && c->PeerClosed());
  EXPECT_EQ(0U, board_->State().Clients()) << "the state stays readable";
  EXPECT_FALSE(FrameClient().Connect(board_->Address(0)));
  EXPECT_FALSE(board_->Start()) << "a board starts once";
}

TEST_F(SimulatorTest, BackPressureLosesNothingAndALeavingReceiverReleasesTheBus) {
  StartBoard();
  auto sender = Connect(0), slow = Connect(2), gone = Connect(2);
  constexpr uint32_t kFrames = 1'000'000;  // 16 MB: far more than the board and sockets hold
  const std::vector<uint8_t> all = Block(kFrames, [](uint32_t i) { return Words{0x123, 8, i}; });
  bool sent = false;
  std::thread send([&] { sent = sender->SendBytes(all.data(), all.size()); });
  EXPECT_FALSE(board_->WaitForState(
      [](const BoardState& s) { return s.frames_from_clients == kFrames; }, 500))
      << "the board read every frame although no receiver read";
  gone->Close();
  uint32_t next = 0;
  for (std::optional<FrameBytes> f; next < kFrames; ++next) {
    if (!(f = slow->Receive(kLongMs)) || FrameWord(f->data(), 2) != next) break;
  }
  if (next < kFrames) sender->socket().Shutdown();  // ends a send stuck behind back-pressure
  send.join();
  EXPECT_EQ(kFrames, next) << "lost or out of order";
  EXPECT_TRUE(sent);
}

// One client that never reads while a sender floods its bus: the bus is held only until
// that client counts as not reading, then the frames for it alone are lost (counted in
// STATUS_1 and STATUS_2) and at last it is closed. Meanwhile a client on the same bus
// goes on with its transactions.
TEST_F(SimulatorTest, AClientThatDoesNotReadLosesItsOwnFramesAndNobodyWaitsOnIt) {
  Config config = Options({});
  config.queue.stall_ms = 200;
  config.queue.close_ms = 1500;
  std::mutex mutex;
  std::vector<std::string> notes;
  config.notes = [&](const std::string& line) {
    std::lock_guard lock(mutex);
    notes.push_back(line);
  };
  StartBoardWith(config);
  auto hog = Connect(2), sender = Connect(0), asker = Connect(0);
  constexpr uint32_t kFrames = 1'000'000;  // 16 MB: far more than the board and sockets hold
  const std::vector<uint8_t> all = Block(kFrames, [](uint32_t i) { return Words{0x123, 8, i}; });
  bool sent = false;
  std::thread send([&] { sent = sender->SendBytes(all.data(), all.size()); });
  for (uint32_t i = 0; i < 200 && !HasFailure(); ++i) {
    EXPECT_EQ(i & 1, Ask(*asker, {code::kInternal, 0, internal::kWriteDebug, i & 1})[3]);
  }
  EXPECT_TRUE(board_->WaitForState(
      [](const BoardState& s) { return s.frames_from_clients >= kFrames; }, kLongMs))
      << "the sender was held for good";
  if (!sent) sender->socket().Shutdown();  // ends a send stuck behind back-pressure
  send.join();
  EXPECT_TRUE(sent);
  ASSERT_TRUE(board_->WaitForState([](const BoardState& s) { return s.slow_clients_closed == 1; },
                                   kLongMs));
  const BoardState state = board_->State();
  EXPECT_GT(state.frames_lost, 0U);
  EXPECT_EQ(3U - 1, state.Clients());
  const Words status1 = Ask(*asker, {code::kStatus1});
  EXPECT_EQ(state.frames_lost, status1[3]) << "lost frames are dropped frames";
  EXPECT_EQ((Words{code::kStatus2, static_cast<uint32_t>(state.frames_lost), 1, 0}),
            Ask(*asker, {code::kStatus2}));
  hog->ReceiveAll(kLongMs);
  EXPECT_TRUE(hog->PeerClosed());
  std::lock_guard lock(mutex);
  ASSERT_EQ(2U, notes.size());
  EXPECT_EQ(0U, notes[0].find("kelsim: channel 2 connection 1 took nothing for ")) << notes[0];
  EXPECT_EQ(0U, notes[1].find("kelsim: channel 2 connection 1 closed after ")) << notes[1];
}

TEST_F(SimulatorTest, PacingHoldsTheBusToItsBitRate) {
  StartBoard({"--pace"});
  auto sender = Connect(0), receiver = Connect(2);
  // 8-byte standard frames take 111 bits: 444 us each at 250 kbaud, the start rate.
  const uint64_t start = platform::MonotonicMs();
  const std::vector<uint8_t> all = Block(500, [](uint32_t i) { return Words{i, 8}; });
  ASSERT_TRUE(sender->SendBytes(all.data(), all.size()));
  for (uint32_t i = 0; i < 500; ++i) ASSERT_EQ(i, Next(*receiver)[0]);
  EXPECT_GE(platform::MonotonicMs() - start, 200U) << "500 frames at 250 kbaud need 222 ms";
}

TEST_F(SimulatorTest, AMeasurementStreamRunsUntilGetMeasZeroOrTheConnectionGoes) {
  constexpr int kQuietMs = 300;
  StartBoard();
  auto client = Connect(0);
  ASSERT_TRUE(client->SendCommand(code::kGetMeas, 5));
  for (int set = 0; set < 4; ++set) {  // the answer, then three sets of the stream
    for (uint32_t measure = code::kMeasure1; measure <= code::kMeasure4; ++measure) {
      ASSERT_EQ(measure, Next(*client)[0]) << "set " << set;
    }
  }
  ASSERT_TRUE(client->SendCommand(code::kGetMeas));
  EXPECT_EQ(0U, client->ReceiveAll(kQuietMs).size() % (4 * kFrameSize)) << "whole sets";
  EXPECT_FALSE(client->Receive(kQuietMs)) << "the stream went on";

  // A connection that goes takes its stream along, even when a new one takes its place.
  auto gone = Connect(1);
  ASSERT_TRUE(gone->SendCommand(code::kGetMeas, 1));
  ASSERT_EQ(code::kMeasure1, Next(*gone)[0]);
  gone->Close();
  ASSERT_TRUE(board_->WaitForState([](const BoardState& s) { return s.Clients() == 1; }, kLongMs));
  connected_ = 1;
  auto next = Connect(1);
  EXPECT_FALSE(next->Receive(kQuietMs));
}

TEST_F(SimulatorTest, ATapGetsCopiesOfEveryOtherClientsTrafficUntilItEnds) {
  StartBoard();
  auto tap = Connect(1), other = Connect(3);
  ASSERT_EQ((Words{code::kInternal, 0, 7, 1}),
            Ask(*tap, {code::kInternal, 0, internal::kStartTrace, 1}));
  EXPECT_EQ((Words{code::kBaudrate, 0, 3, 0}), Ask(*tap, {code::kGetBaud}))
      << "its own frames are not copied";

  ASSERT_TRUE(other->Send(Frame({code::kGetBaud})));
  ASSERT_TRUE(other->Send(Frame({0x5, 0x0301, 0xAA})));
  EXPECT_EQ((Words{code::kGetBaud, 0, 0, 0}), Next(*tap)) << "taken from the other client";
  EXPECT_EQ((Words{code::kBaudrate, 0, 3, 0}), Next(*tap)) << "sent to it";
  EXPECT_EQ((Words{0x5, 0x0301, 0xAA, 0}), Next(*tap)) << "taken from it, as sent";
  EXPECT_EQ((Words{0x5, 0x0101, 0xAA, 0}), Next(*tap)) << "and delivered to the tap's channel";

  EXPECT_EQ((Words{code::kInternal, 0, 7, 0}),
            Ask(*tap, {code::kInternal, 0, internal::kStartTrace, 0}));
  ASSERT_EQ(code::kBaudrate, Ask(*other, {code::kGetBaud})[0]);
  EXPECT_FALSE(tap->Receive(300)) << "copies after the end";
}

}  // namespace
}  // namespace kel::sim
