// Logging as a user meets it: kelcmd started with logging active against a virtual board,
// the log command at the prompt, and a process killed in the middle of a flood.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "logging/parsed_log.h"
#include "platform/clock.h"
#include "platform/subprocess.h"
#include "shell/result.h"
#include "sim/frame_client.h"
#include "sim/simulator.h"
#include "support/programs.h"
#include "support/temp_dir.h"

namespace kel {
namespace {

namespace fs = std::filesystem;
using testing::ReadFile;
using testing::TempDir;

constexpr int kWaitMs = 60000;  // generous: sanitizer builds on a busy machine

class LoggingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    sim::Config config;
    config.base_port = 0;
    board_ = std::make_unique<sim::Simulator>(config);
    ASSERT_TRUE(board_->Start()) << board_->Error();
  }

  // kelcmd.ini in the working directory: logging active into `log_dir`, 1 MiB * 50 files,
  // the board's ports as the logging ports.
  void WriteSettings(const std::string& log_dir) {
    testing::WriteFile(
        dir_.File("kelcmd.ini"),
        "[SETTINGS]\nDeviceAddr = 127.0.0.1\n"
        "[PROXY]\nProxyPort = " +
            std::to_string(board_->BasePort()) +
            "\n[LOGGING]\nActive = 1\nFileSizeM = 1\nFileCount = 50\nFilePath = " + log_dir + "\n");
  }

  bool WaitForClients(uint32_t clients) {
    return board_->WaitForState(
        [clients](const sim::BoardState& s) { return s.Clients() == clients; }, kWaitMs);
  }

  static std::vector<std::string> LogNames(const std::string& dir) {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(dir, error)) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  TempDir dir_;
  std::unique_ptr<sim::Simulator> board_;
};

TEST_F(LoggingTest, ActiveAtStartUpLogsUntilShutdown) {
  const std::string log_dir = (dir_.Path() / "logs" / "run").string();  // both levels are made
  WriteSettings(log_dir);
  const testing::ProgramRun run =
      testing::RunKelcmd({}, "log\nlog comment hello\nquit\n", dir_.Path().string());
  EXPECT_TRUE(run.exited);
  EXPECT_EQ(0, run.status);
  std::string sockets;
  for (int i = 0; i < 4; ++i) {
    sockets += " + socket " + std::to_string(i + 1) +
               ": 127.0.0.1:" + std::to_string(board_->BasePort() + i) + "\n";
  }
  const std::string banner_port = "== Port    27015 / Ch 0               ==\n";
  EXPECT_EQ(
      "========================================\n"
      "==         KELCommander v0.19         ==\n"
      "== Address 127.0.0.1                  ==\n" +
          banner_port +
          "== Logging     1 MiB *    50 slice    ==\n"
          "== Quit kills, Help help gives hope   ==\n"
          "========================================\n"
          "\n"
          "~>Logging is active and running (1MiB * 50 files)\n"
          " + 1 files / 0 MiB written\n"
          " + name 'kelcmd.log'\n"
          " + path '" +
          log_dir + "'\n" + sockets + "~>~>",
      run.output);

  ASSERT_EQ(std::vector<std::string>{"kelcmd_00000.log"}, LogNames(log_dir));
  const ParsedLog log = ParseLog(ReadFile((fs::path(log_dir) / "kelcmd_00000.log").string()));
  EXPECT_TRUE(log.header && log.footer && log.bad_lines.empty());
  EXPECT_EQ(std::vector<std::string>{"COMMENT 'hello'"}, log.notes);
  EXPECT_TRUE(WaitForClients(0)) << "the logger's connections closed at shutdown";
}

TEST_F(LoggingTest, CommentWithoutLoggingFailsTheBatch) {
  const testing::ProgramRun run =
      testing::RunKelcmd({"log", "comment", "x;", "log"}, "", dir_.Path().string());
  EXPECT_EQ(testing::StatusOf(kErrLogging), run.status);
  EXPECT_EQ("ERROR -110: Logging not active\r\n", run.output);
}

// Four senders flood the board (in paced batches, so that the kill comes mid-stream) while
// kelcmd logs; kelcmd is killed once a few files are full. Every closed file must be whole,
// the open one readable up to its last whole row, and every channel's frames must appear in
// order without a gap or a repeat.
TEST_F(LoggingTest, KilledMidLogLeavesWholeFiles) {
  const std::string log_dir = dir_.File("logs");
  fs::create_directory(log_dir);
  WriteSettings(log_dir);
  platform::ChildProcess kelcmd;
  platform::ChildProcess::Options options;
  options.output = platform::ChildProcess::OutputMode::kDiscard;
  options.working_dir = dir_.Path().string();
  ASSERT_TRUE(kelcmd.Start({testing::KelcmdPath(), "delay", "5m"}, options));
  ASSERT_TRUE(WaitForClients(4)) << "the logger connects to the four channels";

  constexpr uint32_t kMaxFrames = 100000;  // per channel: fewer files than the count keeps
  std::atomic<bool> stop{false};
  auto sender = [this, &stop](int channel) {
    sim::FrameClient client;
    if (!client.Connect(board_->Address(channel))) return;
    std::vector<uint8_t> batch;
    for (uint32_t n = 0; n < kMaxFrames && !stop; ++n) {
      FrameBytes frame{};
      SetFrameWord(frame.data(), 0, 0x200 + static_cast<uint32_t>(channel));
      SetFrameWord(frame.data(), 1, 4);
      SetFrameWord(frame.data(), 2, n);
      batch.insert(batch.end(), frame.begin(), frame.end());
      if (batch.size() == 64 * kFrameSize) {
        if (!client.SendBytes(batch.data(), batch.size())) return;
        batch.clear();
        while (client.Receive(0)) {  // the bus partner's frames
        }
        platform::SleepMs(1);
      }
    }
  };
  std::vector<std::thread> senders;
  for (int channel = 0; channel < 4; ++channel) senders.emplace_back(sender, channel);
  const uint64_t start = platform::MonotonicMs();
  while (LogNames(log_dir).size() < 4 && platform::MonotonicMs() - start < kWaitMs) {
    platform::SleepMs(5);
  }
  const platform::ChildExit end = kelcmd.Wait(1);  // killed at the limit
  stop = true;
  for (std::thread& t : senders) t.join();
  EXPECT_TRUE(end.timed_out);

  const std::vector<std::string> names = LogNames(log_dir);
  ASSERT_GE(names.size(), 4U);
  ASSERT_LT(names.size(), 50U);
  std::map<int, uint32_t> next;  // row channel -> next counter
  for (size_t f = 0; f < names.size(); ++f) {
    const std::string text = ReadFile((fs::path(log_dir) / names[f]).string());
    const ParsedLog log = ParseLog(text);
    const bool open = f + 1 == names.size();
    // The kill may come between the creation of the newest file and its header.
    if (open && text.empty()) continue;
    EXPECT_TRUE(log.header) << names[f];
    EXPECT_EQ(!open, log.footer) << names[f];
    if (open) {
      EXPECT_LE(log.bad_lines.size(), log.whole_lines ? 0U : 1U) << "only the cut last line";
    } else {
      EXPECT_TRUE(log.bad_lines.empty()) << names[f];
    }
    for (const ParsedRow& row : log.rows) {
      ASSERT_EQ(4, row.dlc);
      const uint32_t n = static_cast<uint32_t>(row.data[0]) | uint32_t{row.data[1]} << 8 |
                         uint32_t{row.data[2]} << 16 | uint32_t{row.data[3]} << 24;
      ASSERT_EQ(next[row.channel]++, n) << "channel " << row.channel << " in " << names[f];
    }
  }
  for (int channel = 1; channel <= 4; ++channel) EXPECT_GT(next[channel], 0U) << channel;
}

}  // namespace
}  // namespace kel
