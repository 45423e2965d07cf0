// Logging as a user meets it: kelcmd started with logging active against the virtual board,
// the log command at the prompt, and a process killed amid a flood.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "logging/log_files.h"
#include "logging/parsed_log.h"
#include "platform/clock.h"
#include "platform/subprocess.h"
#include "sim/frame_client.h"
#include "support/board_fixture.h"
#include "support/programs.h"
#include "support/temp_dir.h"

namespace kel {
namespace {

namespace fs = std::filesystem;

constexpr int kWaitMs = 60000;  // generous: sanitizer builds on a busy machine

class LoggingTest : public testing::BoardTest {
 protected:
  // kelcmd.ini in the working directory: logging active into a directory two levels down,
  // 1 MiB * 50 files, the board's ports as the logging ports.
  void SetUp() override {
    BoardTest::SetUp();
    testing::WriteFile(dir_.File("kelcmd.ini"),
                       "[PROXY]\nProxyPort = " + std::to_string(board_->BasePort()) +
                           "\n[LOGGING]\nActive = 1\nFileSizeM = 1\nFileCount = 50\nFilePath = " +
                           log_dir_.string() + "\n");
  }

  fs::path LogFile(int index) const { return log_dir_ / LogFileName("", "kelcmd.log", "", index); }

  testing::TempDir dir_;
  const fs::path log_dir_ = dir_.Path() / "logs" / "run";
};

TEST_F(LoggingTest, ActiveFromStartUpUntilShutdown) {
  // The comment is taken only by a running logger.
  const testing::ProgramRun run =
      testing::RunKelcmd({}, "log comment hello\nquit\n", dir_.Path().string());
  EXPECT_EQ(0, run.status) << run.output;
  EXPECT_FALSE(fs::exists(LogFile(1)));
  const ParsedLog log = ParseLog(testing::ReadFile(LogFile(0).string()));
  EXPECT_TRUE(log.header && log.footer && log.bad_lines.empty());
  EXPECT_EQ(std::vector<std::string>{"COMMENT 'hello'"}, log.notes);
  EXPECT_TRUE(WaitForClients(0)) << "the logger's connections closed at shutdown";
}

// Four senders flood the board in paced batches until kelcmd is killed with a few files
// full: each file is whole up to a cut last line, every channel's frames in order, no gap.
TEST_F(LoggingTest, KilledAmidAFloodLeavesWholeFiles) {
  platform::ChildProcess kelcmd;
  platform::ChildProcess::Options options;
  options.output = platform::ChildProcess::OutputMode::kDiscard;
  options.working_dir = dir_.Path().string();
  ASSERT_TRUE(kelcmd.Start({testing::KelcmdPath(), "delay", "5m"}, options));
  ASSERT_TRUE(WaitForClients(4)) << "the logger connects to the four channels";

  std::atomic<bool> stop{false};
  std::vector<std::thread> senders;
  for (uint32_t channel = 0; channel < 4; ++channel) {
    senders.emplace_back([this, &stop, channel] {
      sim::FrameClient client;
      if (!client.Connect(board_->Address(static_cast<int>(channel)))) return;
      for (uint32_t n = 0; n < 100000 && !stop; platform::SleepMs(1)) {
        std::vector<uint8_t> batch;
        for (const uint32_t end = n + 64; n < end; ++n) {
          const FrameBytes frame = testing::Command(0x200 + channel, 4, n);
          batch.insert(batch.end(), frame.begin(), frame.end());
        }
        if (!client.SendBytes(batch.data(), batch.size())) return;
        while (client.Receive(0)) {  // the bus partner's frames
        }
      }
    });
  }
  const uint64_t start = platform::MonotonicMs();
  while (!fs::exists(LogFile(3)) && platform::MonotonicMs() - start < kWaitMs) platform::SleepMs(5);
  EXPECT_TRUE(kelcmd.Wait(1).timed_out) << "killed at the limit";
  stop = true;
  for (std::thread& sender : senders) sender.join();

  int files = 0;
  while (fs::exists(LogFile(files))) ++files;
  ASSERT_GE(files, 4);
  std::array<uint32_t, 4> next{};  // per slot: the counter of the next row
  for (int f = 0; f < files; ++f) {
    const std::string text = testing::ReadFile(LogFile(f).string());
    const bool open = f + 1 == files;
    if (open && text.empty()) continue;  // killed between its creation and its header
    const ParsedLog log = ParseLog(text);
    EXPECT_TRUE(log.header && log.bad_lines.empty() && log.footer != open) << f;
    for (const CanRow& row : log.rows) {
      ASSERT_EQ(next.at(static_cast<size_t>(row.channel - 1))++, FrameWord(row.data.data(), 0))
          << "slot " << row.channel << " in file " << f;
    }
  }
  for (uint32_t count : next) EXPECT_GT(count, 0U);
}

}  // namespace
}  // namespace kel
