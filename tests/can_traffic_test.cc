// CAN traffic between kelcmd processes through one kelsim process: a counter stream from
// channel 0 checked on channel 2, a lost frame, an echo that never comes, and two senders
// at once.

#include <gtest/gtest.h>

#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "core/result.h"
#include "device/command_codes.h"
#include "platform/clock.h"
#include "sim/frame_client.h"
#include "support/kelsim_process.h"
#include "support/programs.h"
#include "support/temp_dir.h"

namespace kel {
namespace {

using testing::ProgramRun;

// What follows the progress lines at the start of `output`, each of which must have the
// form `verb` "ing CAN data: <done> / <total> @ <rate> msg/s".
std::string AfterProgress(const std::string& output, const std::string& verb) {
  const std::regex line(verb + "ing CAN data: [0-9]+ / [0-9]+ @ [0-9]+ msg/s");
  size_t pos = 0;
  for (size_t end; (end = output.find('\n', pos)) != std::string::npos; pos = end + 1) {
    if (!std::regex_match(output.substr(pos, end - pos), line)) break;
  }
  return output.substr(pos);
}

class CanTrafficEndToEndTest : public ::testing::Test {
 protected:
  std::vector<std::string> On(int channel, const std::string& line) {
    return {"-p" + std::to_string(board_->BasePort()), "-c" + std::to_string(channel), line};
  }
  // Runs `receive` on channel 2 and, once it is connected, `send` on channel 0.
  void Stream(const std::string& send, const std::string& receive) {
    ASSERT_NE(0, board_->BasePort());
    testing::RunningProgram receiver(testing::KelcmdPath(), On(2, receive), "",
                                     dir_.Path().string());
    ASSERT_TRUE(board_->WaitForClients(1));
    sent_ = testing::RunKelcmd(On(0, send), "", dir_.Path().string());
    received_ = receiver.Finish();
    // The first line comes at once, however fast the stream.
    EXPECT_EQ(0U, received_.output.find("Receiving CAN data: 1 / ")) << received_.output;
  }
  testing::TempDir dir_;
  std::unique_ptr<testing::KelsimProcess> board_;
  ProgramRun sent_;
  ProgramRun received_;
};

TEST_F(CanTrafficEndToEndTest, ACounterStreamFromChannel0IsCheckedOnChannel2) {
  board_ = std::make_unique<testing::KelsimProcess>();
  Stream("send 0x123:count@10ms*1000", "recv 0x123:count*1000");
  EXPECT_EQ(0, sent_.status);
  EXPECT_EQ(0U, sent_.output.find("Sending CAN data: 1 / 1000 @ 1 msg/s\n")) << sent_.output;
  EXPECT_EQ("1000 messages sent\r\n", AfterProgress(sent_.output, "Send"));
  EXPECT_EQ(0, received_.status);
  EXPECT_EQ("1000 messages received\r\n", AfterProgress(received_.output, "Receiv"));
}

TEST_F(CanTrafficEndToEndTest, ALostFrameEndsTheReceiverWithIntegrityFailed) {
  board_ =
      std::make_unique<testing::KelsimProcess>(std::vector<std::string>{"--drop-every", "100"});
  Stream("send 0x123:count*300", "recv 0x123:count*300");
  EXPECT_EQ(0, sent_.status);
  EXPECT_EQ("300 messages sent\r\n", AfterProgress(sent_.output, "Send"));
  // The 100th frame, counter 99, is lost: counter 100 arrives where 99 is due.
  EXPECT_EQ(testing::StatusOf(kErrIntegrity), received_.status);
  EXPECT_EQ("99/300 received ERROR -15: Integrity failed\r\n",
            AfterProgress(received_.output, "Receiv"));
}

TEST_F(CanTrafficEndToEndTest, AnEchoThatNeverComesFailsAfterFifteenSeconds) {
  // Every channel alone on its bus: nobody acknowledges, so nothing is echoed.
  board_ = std::make_unique<testing::KelsimProcess>(std::vector<std::string>{"--wire", "none"});
  ASSERT_NE(0, board_->BasePort());
  const uint64_t start = platform::MonotonicMs();
  const ProgramRun sender =
      testing::RunKelcmd(On(0, "send 0x123:EXTIO:11*3"), "", dir_.Path().string());
  EXPECT_GE(platform::MonotonicMs() - start, 15000U) << "the wait lasts its whole limit";
  EXPECT_EQ(testing::StatusOf(kErrSendAck), sender.status);
  EXPECT_EQ("1/3 sent ERROR -12: SendAck failed\r\n", sender.output);
}

// Two senders on the two channels of one bus at once, neither reading the other's stream:
// every frame each reports sent has reached the board when its process ends.
TEST_F(CanTrafficEndToEndTest, TwoSendersOnOneBusLoseNothing) {
  board_ = std::make_unique<testing::KelsimProcess>();
  ASSERT_NE(0, board_->BasePort());
  constexpr uint32_t kCount = 30000;
  const std::string count = std::to_string(kCount);
  testing::RunningProgram first(testing::KelcmdPath(), On(0, "send 0x123:count*" + count), "",
                                dir_.Path().string());
  testing::RunningProgram second(testing::KelcmdPath(), On(2, "send 0x124:count*" + count), "",
                                 dir_.Path().string());
  for (testing::RunningProgram* sender : {&first, &second}) {
    const ProgramRun run = sender->Finish();
    EXPECT_EQ(0, run.status);
    EXPECT_EQ(count + " messages sent\r\n", AfterProgress(run.output, "Send"));
  }
  // Each channel's counters: frames received from the other channel, frames transmitted.
  for (const int channel : {0, 2}) {
    sim::FrameClient client;
    ASSERT_TRUE(client.Connect(board_->Address(channel)));
    ASSERT_TRUE(client.SendCommand(code::kNfcr));
    const std::optional<FrameBytes> counters = client.ReceiveAnswer(code::kNfcr, 10000);
    ASSERT_TRUE(counters.has_value());
    EXPECT_EQ(kCount, FrameWord(counters->data(), 1)) << "received on channel " << channel;
    EXPECT_EQ(kCount, FrameWord(counters->data(), 2)) << "transmitted on channel " << channel;
  }
}

}  // namespace
}  // namespace kel
