// CAN traffic between two kelcmd processes through one kelsim process: a counter stream
// from channel 0 checked on channel 2, a lost frame, and an echo that never comes.

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "device/command_codes.h"
#include "platform/clock.h"
#include "platform/subprocess.h"
#include "sim/config.h"
#include "sim/frame_client.h"
#include "shell/result.h"
#include "support/programs.h"
#include "support/temp_dir.h"

namespace kel {
namespace {

using testing::ProgramRun;

constexpr int kLongMs = 60000;

// kelsim as a process of its own, started with `args` on ports it picks; stopped at the end.
class KelsimProcess {
 public:
  KelsimProcess(const testing::TempDir& dir, std::vector<std::string> args)
      : output_(dir.File("kelsim.out")) {
    platform::ChildProcess::Options options;
    options.output = platform::ChildProcess::OutputMode::kDiscard;
    std::vector<std::string> argv = {"/bin/sh",
                                     "-c",
                                     "out=$1; shift; exec \"$0\" \"$@\" >\"$out\" 2>&1",
                                     testing::KelsimPath(),
                                     output_,
                                     "--port",
                                     "0"};
    argv.insert(argv.end(), args.begin(), args.end());
    if (!process_.Start(argv, options)) return;
    // The start-up line names the ports: "kelsim: board on ADDR ports A-B".
    const uint64_t start = platform::MonotonicMs();
    while (base_port_ == 0 && platform::MonotonicMs() - start < kLongMs) {
      const std::string text = testing::ReadFile(output_);
      const size_t at = text.find(" ports ");
      if (at != std::string::npos && text.find('\n', at) != std::string::npos) {
        base_port_ = static_cast<uint16_t>(std::stoi(text.substr(at + 7)));
      } else {
        platform::SleepMs(20);
      }
    }
  }
  ~KelsimProcess() {
    process_.Terminate();
    process_.Wait(kLongMs);
  }

  uint16_t BasePort() const { return base_port_; }
  platform::SocketAddress Address(int channel) const {
    return {*sim::ParseIpv4("127.0.0.1"), static_cast<uint16_t>(base_port_ + channel)};
  }

  // Waits until the board counts `count` clients in all.
  bool WaitForClients(uint32_t count) const {
    sim::FrameClient client;
    if (!client.Connect(Address(1))) return false;
    const uint64_t start = platform::MonotonicMs();
    while (platform::MonotonicMs() - start < kLongMs) {
      if (!client.SendCommand(code::kGetStatus)) return false;
      const std::optional<FrameBytes> status = client.ReceiveAnswer(code::kGetStatus, kLongMs);
      if (status && FrameWord(status->data(), 2) >= count + 1) return true;  // and this one
      platform::SleepMs(20);
    }
    return false;
  }

 private:
  std::string output_;
  platform::ChildProcess process_;
  uint16_t base_port_ = 0;
};

// kelcmd running in the background, its output captured.
class KelcmdProcess {
 public:
  KelcmdProcess(const testing::TempDir& dir, const std::vector<std::string>& args) {
    std::vector<std::string> argv = {testing::KelcmdPath()};
    argv.insert(argv.end(), args.begin(), args.end());
    platform::ChildProcess::Options options;
    options.output = platform::ChildProcess::OutputMode::kCapture;
    options.merge_stderr = true;
    options.stdin_text = "";
    options.working_dir = dir.Path().string();
    process_.Start(argv, options);
  }
  ProgramRun Finish() {
    const platform::ChildExit end = process_.Wait(kLongMs);
    return ProgramRun{end.exited && !end.timed_out, end.status, process_.CapturedOutput()};
  }

 private:
  platform::ChildProcess process_;
};

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
  std::vector<std::string> On(const KelsimProcess& board, int channel, const std::string& line) {
    return {"-p" + std::to_string(board.BasePort()), "-c" + std::to_string(channel), line};
  }
  ProgramRun Kelcmd(const std::vector<std::string>& args) {
    return testing::RunKelcmd(args, "", dir_.Path().string());
  }
  testing::TempDir dir_;
};

TEST_F(CanTrafficEndToEndTest, ACounterStreamFromChannel0PassesTheFilterOfChannel2) {
  KelsimProcess board(dir_, {});
  ASSERT_NE(0, board.BasePort());
  const ProgramRun filter = Kelcmd(On(board, 2, "filt add 0x123"));
  EXPECT_EQ(0, filter.status);
  EXPECT_EQ("CAN=2, MIDE=0, AM=0x7FF, PRI=0, IDE=0, AR=0x123\n", filter.output);
  const ProgramRun listing = Kelcmd(On(board, 2, "filt tst"));
  EXPECT_EQ(0, listing.status);
  EXPECT_EQ("0x123 \nTotal 1 CAN ID matches\n", listing.output);

  KelcmdProcess receiver(dir_, On(board, 2, "recv 0x123:count*1000"));
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
  KelsimProcess board(dir_, {"--drop-every", "100"});
  ASSERT_NE(0, board.BasePort());
  KelcmdProcess receiver(dir_, On(board, 2, "recv 0x123:count*300"));
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
  KelsimProcess board(dir_, {"--wire", "none"});
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
