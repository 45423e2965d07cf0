// CAN traffic between two kelcmd processes through one kelsim process: a counter stream
// from channel 0 checked on channel 2, a lost frame, and an echo that never comes.

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "shell/result.h"
#include "support/kelsim_process.h"
#include "support/programs.h"
#include "support/temp_dir.h"

namespace kel {
namespace {

using testing::ProgramRun;

constexpr int kLongMs = 60000;

// Splits `output` into its progress lines and the rest, which follows the last of them.
// Every progress line must have the form `pattern`.
std::string AfterProgress(const std::string& output, const std::string& pattern) {
  const std::regex line(pattern);
  size_t pos = 0;
  while (true) {
    const size_t end = output.find('\n', pos);
    if (end == std::string::npos) break;
    if (!std::regex_match(output.substr(pos, end - pos), line)) break;
    pos = end + 1;
  }
  return output.substr(pos);
}

const char kSendingLine[] = "Sending CAN data: [0-9]+ / [0-9]+ @ [0-9]+ msg/s";
const char kReceivingLine[] = "Receiving CAN data: [0-9]+ / [0-9]+ @ [0-9]+ msg/s";

class CanTrafficEndToEndTest : public ::testing::Test {
 protected:
  std::vector<std::string> On(const testing::KelsimProcess& board, int channel,
                              const std::string& line) {
    return {"-p" + std::to_string(board.BasePort()), "-c" + std::to_string(channel), line};
  }
  ProgramRun Kelcmd(const std::vector<std::string>& args) {
    return testing::RunKelcmd(args, "", dir_.Path().string());
  }
  testing::TempDir dir_;
};

TEST_F(CanTrafficEndToEndTest, ACounterStreamFromChannel0PassesTheFilterOfChannel2) {
  const testing::KelsimProcess board;
  ASSERT_NE(0, board.BasePort());
  const ProgramRun filter = Kelcmd(On(board, 2, "filt add 0x123"));
  EXPECT_EQ(0, filter.status);
  EXPECT_EQ("CAN=2, MIDE=0, AM=0x7FF, PRI=0, IDE=0, AR=0x123\n", filter.output);
  const ProgramRun listing = Kelcmd(On(board, 2, "filt tst"));
  EXPECT_EQ(0, listing.status);
  EXPECT_EQ("0x123 \nTotal 1 CAN ID matches\n", listing.output);

  testing::RunningProgram receiver(testing::KelcmdPath(), On(board, 2, "recv 0x123:count*1000"), "",
                                   dir_.Path().string());
  ASSERT_TRUE(board.WaitForClients(1));
  const ProgramRun sender = Kelcmd(On(board, 0, "send 0x123:count@10ms*1000"));
  const ProgramRun received = receiver.Finish();

  EXPECT_TRUE(sender.exited);
  EXPECT_EQ(0, sender.status);
  EXPECT_EQ(0U, sender.output.find("Sending CAN data: 1 / 1000 @ 1 msg/s\n")) << sender.output;
  EXPECT_EQ("1000 messages sent\r\n", AfterProgress(sender.output, kSendingLine));
  EXPECT_TRUE(received.exited);
  EXPECT_EQ(0, received.status);
  EXPECT_EQ(0U, received.output.find("Receiving CAN data: 1 / 1000 @ 1 msg/s\n"))
      << received.output;
  EXPECT_EQ("1000 messages received\r\n", AfterProgress(received.output, kReceivingLine));
}

TEST_F(CanTrafficEndToEndTest, ALostFrameEndsTheReceiverWithIntegrityFailed) {
  const testing::KelsimProcess board({"--drop-every", "100"});
  ASSERT_NE(0, board.BasePort());
  testing::RunningProgram receiver(testing::KelcmdPath(), On(board, 2, "recv 0x123:count*300"), "",
                                   dir_.Path().string());
  ASSERT_TRUE(board.WaitForClients(1));
  const ProgramRun sender = Kelcmd(On(board, 0, "send 0x123:count*300"));
  const ProgramRun received = receiver.Finish();

  EXPECT_EQ(0, sender.status);
  EXPECT_EQ(0U, sender.output.find("Sending CAN data: 1 / 300 @ 1 msg/s\n")) << sender.output;
  EXPECT_EQ("300 messages sent\r\n", AfterProgress(sender.output, kSendingLine));
  // The 100th frame, counter 99, is lost: counter 100 arrives where 99 is due.
  EXPECT_TRUE(received.exited);
  EXPECT_EQ(testing::StatusOf(kErrIntegrity), received.status);
  EXPECT_EQ(0U, received.output.find("Receiving CAN data: 1 / 300 @ 1 msg/s\n"))
      << "the first line comes at once, however fast the stream";
  EXPECT_EQ("99/300 received ERROR -15: Integrity failed\r\n",
            AfterProgress(received.output, kReceivingLine));
}

TEST_F(CanTrafficEndToEndTest, AnEchoThatNeverComesFailsAfterFifteenSeconds) {
  // Every channel alone on its bus: nobody acknowledges, so nothing is echoed.
  const testing::KelsimProcess board({"--wire", "none"});
  ASSERT_NE(0, board.BasePort());
  const uint64_t start = platform::MonotonicMs();
  const ProgramRun sender = Kelcmd(On(board, 0, "send 0x123:EXTIO:11*3"));
  EXPECT_GE(platform::MonotonicMs() - start, 15000U) << "the wait lasts its whole limit";
  EXPECT_TRUE(sender.exited);
  EXPECT_EQ(testing::StatusOf(kErrSendAck), sender.status);
  EXPECT_EQ("1/3 sent ERROR -12: SendAck failed\r\n", sender.output);
}

}  // namespace
}  // namespace kel
