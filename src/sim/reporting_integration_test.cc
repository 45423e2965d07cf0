// What the virtual board sends unasked: measurement streams and the remote trace's copies.

#include <gtest/gtest.h>

#include "device/command_codes.h"
#include "sim/frame_client.h"
#include "sim/simulator.h"

namespace kel::sim {
namespace {

constexpr int kLongMs = 20000;
constexpr int kQuietMs = 300;

using Words = std::array<uint32_t, 4>;

Words Next(FrameClient& client) {
  const std::optional<FrameBytes> f = client.Receive(kLongMs);
  if (!f) return {0xDEAD, 0xDEAD, 0xDEAD, 0xDEAD};
  const CommandFrame w = DecodeCommand(f->data());
  return {w.command, w.value1, w.value2, w.value3};
}

class ReportingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Config config;
    config.base_port = 0;
    board_ = std::make_unique<Simulator>(config);
    ASSERT_TRUE(board_->Start()) << board_->Error();
  }

  // A client of `channel` once the board has taken it.
  std::unique_ptr<FrameClient> Connect(int channel) {
    auto client = std::make_unique<FrameClient>();
    EXPECT_TRUE(client->Connect(board_->Address(channel)));
    EXPECT_TRUE(board_->WaitForState(
        [n = ++connected_](const BoardState& s) { return s.Clients() >= n; }, kLongMs));
    return client;
  }

  std::unique_ptr<Simulator> board_;
  uint32_t connected_ = 0;
};

TEST_F(ReportingTest, AMeasurementStreamRunsUntilGetMeasZeroOrTheConnectionGoes) {
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

TEST_F(ReportingTest, ATapGetsCopiesOfEveryOtherClientsTrafficUntilItEnds) {
  auto tap = Connect(1), other = Connect(3);
  ASSERT_TRUE(tap->SendCommand(code::kInternal, 0, internal::kStartTrace, 1));
  ASSERT_EQ((Words{code::kInternal, 0, 7, 1}), Next(*tap));
  ASSERT_TRUE(tap->SendCommand(code::kGetBaud));
  EXPECT_EQ((Words{code::kBaudrate, 0, 3, 0}), Next(*tap)) << "its own frames are not copied";

  ASSERT_TRUE(other->SendCommand(code::kGetBaud));
  ASSERT_TRUE(other->Send(EncodeCommand(CommandFrame{0x5, 0x0301, 0xAA, 0})));
  EXPECT_EQ((Words{code::kGetBaud, 0, 0, 0}), Next(*tap)) << "taken from the other client";
  EXPECT_EQ((Words{code::kBaudrate, 0, 3, 0}), Next(*tap)) << "sent to it";
  EXPECT_EQ((Words{0x5, 0x0301, 0xAA, 0}), Next(*tap)) << "taken from it, as sent";
  EXPECT_EQ((Words{0x5, 0x0101, 0xAA, 0}), Next(*tap)) << "and delivered to the tap's channel";

  ASSERT_TRUE(tap->SendCommand(code::kInternal, 0, internal::kStartTrace, 0));
  EXPECT_EQ((Words{code::kInternal, 0, 7, 0}), Next(*tap));
  ASSERT_TRUE(other->SendCommand(code::kGetBaud));
  ASSERT_EQ(code::kBaudrate, Next(*other)[0]);
  EXPECT_FALSE(tap->Receive(kQuietMs)) << "copies after the end";
}

}  // namespace
}  // namespace kel::sim
