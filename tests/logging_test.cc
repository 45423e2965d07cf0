// Logging as a user meets it: kelcmd started with logging active against the virtual board,
// the log command at the prompt and in batch mode, and a process killed amid a flood.

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
#include "shell/result.h"
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
  // kelcmd.ini in the working directory: logging active into `log_dir`, 1 MiB * 50 files,
  // the board's ports as the logging ports.
  void WriteSettings(const fs::path& log_dir) {
    testing::WriteFile(dir_.File("kelcmd.ini"),
                       "[PROXY]\nProxyPort = " + std::to_string(board_->BasePort()) +
                           "\n[LOGGING]\nActive = 1\nFileSizeM = 1\nFileCount = 50\nFilePath = " +
                           log_dir.string() + "\n");
  }

  bool WaitForClients(uint32_t clients) {
    return board_->WaitForState([&](const sim::BoardState& s) { return s.Clients() == clients; },
                                kWaitMs);
  }

  static fs::path LogFile(const fs::path& dir, int index) {
    return dir / LogFileName("", "kelcmd.log", "", index);
  }

  testing::TempDir dir_;
};

TEST_F(LoggingTest, ActiveFromStartUpUntilShutdown) {
  const fs::path log_dir = dir_.Path() / "logs" / "run";  // both levels are made
  WriteSettings(log_dir);
  const testing::ProgramRun run =
      testing::RunKelcmd({}, "log\nlog comment hello\nquit\n", dir_.Path().string());
  EXPECT_EQ(0, run.status);
  EXPECT_NE(std::string::npos, run.output.find("\n== Logging     1 MiB *    50 slice    ==\n"))
      << run.output;
  EXPECT_NE(std::string::npos, run.output.find("\n~>Logging is active and running (1MiB * 50 "
                                               "files)\n + 1 files / 0 MiB written\n"));
  EXPECT_FALSE(fs::exists(LogFile(log_dir, 1)));
  const ParsedLog log = ParseLog(testing::ReadFile(LogFile(log_dir, 0).string()));
  EXPECT_TRUE(log.header && log.footer && log.bad_lines.empty());
  EXPECT_EQ(std::vector<std::string>{"COMMENT 'hello'"}, log.notes);
  EXPECT_TRUE(WaitForClients(0)) << "the logger's connections closed at shutdown";
}

TEST_F(LoggingTest, ACommentWithoutLoggingFailsTheBatch) {
  const testing::ProgramRun run =
      testing::RunKelcmd({"log", "comment", "x;", "log"}, "", dir_.Path().string());
  EXPECT_EQ(testing::StatusOf(kErrLogging), run.status);
  EXPECT_EQ("ERROR -110: Logging not active\r\n", run.output);
}

// Four senders flood the board in paced batches while kelcmd logs, and kelcmd is killed
// once a few files are full: every closed file is whole, the open one whole up to its cut
// last line, and every channel's frames are there in order without a gap or a repeat.
TEST_F(LoggingTest, KilledAmidAFloodLeavesWholeFiles) {
  const fs::path log_dir = dir_.Path() / "logs";
  WriteSettings(log_dir);
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
      std::vector<uint8_t> batch;
      for (uint32_t n = 0; n < 100000 && !stop; ++n) {
        const FrameBytes frame = testing::Command(0x200 + channel, 4, n);
        batch.insert(batch.end(), frame.begin(), frame.end());
        if (batch.size() < 64 * kFrameSize) continue;
        if (!client.SendBytes(batch.data(), batch.size())) return;
        batch.clear();
        while (client.Receive(0)) {  // the bus partner's frames
        }
        platform::SleepMs(1);
      }
    });
  }
  const uint64_t start = platform::MonotonicMs();
  while (!fs::exists(LogFile(log_dir, 3)) && platform::MonotonicMs() - start < kWaitMs) {
    platform::SleepMs(5);
  }
  EXPECT_TRUE(kelcmd.Wait(1).timed_out) << "killed at the limit";
  stop = true;
  for (std::thread& sender : senders) sender.join();

  int files = 0;
  while (fs::exists(LogFile(log_dir, files))) ++files;
  ASSERT_GE(files, 4);
  std::array<uint32_t, 4> next{};  // per slot: the counter of the next row
  for (int f = 0; f < files; ++f) {
    const std::string text = testing::ReadFile(LogFile(log_dir, f).string());
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
