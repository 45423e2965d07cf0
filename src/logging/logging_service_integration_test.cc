// The logging service against the virtual board and a scripted peer, and the log command
// through the executor: what reaches the files, and every status text.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "config/settings.h"
#include "logging/logging_service.h"
#include "logging/parsed_log.h"
#include "platform/clock.h"
#include "sim/frame_client.h"
#include "support/board_fixture.h"
#include "support/fake_board.h"
#include "support/temp_dir.h"

namespace kel {
namespace {

using testing::FakeBoard;

constexpr int kWaitMs = 60000;  // generous: sanitizer builds on a busy machine

bool WaitFor(const std::function<bool()>& done) {
  for (const uint64_t start = platform::MonotonicMs(); !done(); platform::SleepMs(5)) {
    if (platform::MonotonicMs() - start > kWaitMs) return false;
  }
  return true;
}

std::string Fields(const CanRow& row) {
  char text[kMaxRowSize];
  return std::string(text, FormatRowFields(row, text));
}

class LoggingServiceTest : public testing::BoardTest {
 protected:
  LoggingConfig Config(int base_port, uint64_t size_limit = 0xA00000) const {
    return {"127.0.0.1", base_port, dir_.Path().string(), "kelcmd.log", size_limit, 50};
  }

  // The files kelcmd_00000.log, kelcmd_00001.log and so on, each parsed.
  std::vector<ParsedLog> Logs() const {
    std::vector<ParsedLog> logs;
    for (int i = 0; std::filesystem::exists(dir_.File(LogFileName("", "kelcmd.log", "", i))); ++i) {
      logs.push_back(ParseLog(testing::ReadFile(dir_.File(LogFileName("", "kelcmd.log", "", i)))));
    }
    return logs;
  }

  testing::TempDir dir_;
};

TEST_F(LoggingServiceTest, FourFloodedChannelsLoseNoFrameAndKeepTheirOrderAcrossRotatedFiles) {
  LoggingService service;
  service.Start(Config(board_->BasePort(), 1 << 20));  // 1 MiB * 50 files
  ASSERT_TRUE(
      board_->WaitForState([](const sim::BoardState& s) { return s.Clients() == 4; }, kWaitMs));
  // The four channels send at once, a few frames per send so that the readers take many
  // small blocks side by side (in all less than the board holds back for a reader), and
  // the slot of each channel's bus partner logs them.
  constexpr uint32_t kFrames = 25000;
  constexpr size_t kChunk = 3 * kFrameSize;
  std::array<sim::FrameClient, 4> senders;
  std::array<std::vector<uint8_t>, 4> streams;
  for (uint32_t channel = 0; channel < 4; ++channel) {
    for (uint32_t n = 0; n < kFrames; ++n) {
      const FrameBytes frame = testing::Command(0x100 + channel, 8, n);
      streams[channel].insert(streams[channel].end(), frame.begin(), frame.end());
    }
    ASSERT_TRUE(senders[channel].Connect(board_->Address(static_cast<int>(channel))));
  }
  std::atomic<bool> sent{true};
  {
    std::vector<std::jthread> threads;
    for (size_t channel = 0; channel < 4; ++channel) {
      threads.emplace_back([&, channel] {
        const std::vector<uint8_t>& stream = streams[channel];
        for (size_t at = 0; at < stream.size(); at += kChunk) {
          if (!senders[channel].SendBytes(stream.data() + at,
                                          std::min(kChunk, stream.size() - at))) {
            sent = false;
          }
        }
      });
    }
  }
  ASSERT_TRUE(sent);
  ASSERT_TRUE(WaitFor([&] { return service.Status().rows_written == 4 * kFrames; }));
  service.Stop();

  const std::vector<ParsedLog> logs = Logs();
  ASSERT_GE(logs.size(), 4U);
  std::array<uint32_t, 4> next{};  // per slot: the counter of the next row
  std::string last_time;
  for (size_t f = 0; f < logs.size(); ++f) {
    EXPECT_TRUE(logs[f].header && logs[f].footer && logs[f].bad_lines.empty()) << f;
    for (size_t r = 0; r < logs[f].rows.size(); ++r) {
      // The readers write their rows side by side, yet along the files the suffixes of a
      // millisecond grow (up to the nineteen nines that later rows repeat).
      const std::string& time = logs[f].times[r];
      if (time.compare(0, 12, last_time, 0, 12) == 0) {
        ASSERT_TRUE(time > last_time || (time == last_time && time.size() == 12 + 19))
            << "file " << f << ", row " << r << ": " << last_time << " then " << time;
      }
      last_time = time;
      const CanRow& row = logs[f].rows[r];
      const uint32_t from = static_cast<uint32_t>(row.channel + 1) % 4;  // 0-2 and 1-3
      const uint32_t n = next.at(static_cast<size_t>(row.channel - 1))++;
      ASSERT_TRUE(row.id == 0x100 + from && FrameWord(row.data.data(), 0) == n)
          << "slot " << row.channel << ", frame " << n;
    }
    // A file is rotated at the first row that finds it at 1 MiB or more.
    const size_t body = logs[f].size - FooterText("01:01:2000 00:00:00:000").size();
    EXPECT_TRUE(f + 1 == logs.size() || (body >= (1U << 20) && body < (1U << 20) + kMaxRowSize));
  }
  EXPECT_EQ((std::array<uint32_t, 4>{kFrames, kFrames, kFrames, kFrames}), next);
}

TEST_F(LoggingServiceTest, RecordsWithANegativeIdentifierAreSkippedAndRecordsCutAnywhereJoined) {
  FakeBoard peer([](platform::Socket& client) {
    std::vector<uint8_t> stream;
    for (const FrameBytes& frame :
         {testing::Command(0x123, 3, 0x00FF0201), testing::Command(0x80000100, 8, 1, 2),
          testing::Command(0x1ABCDEF0, kInfoExtended | 12, 0x04030201, 0x08070605)}) {
      stream.insert(stream.end(), frame.begin(), frame.end());
    }
    for (size_t at = 0; at < stream.size(); at += 5) {
      FakeBoard::Write(client, stream.data() + at, std::min<size_t>(5, stream.size() - at));
      platform::SleepMs(2);
    }
  });  // then the connection ends, and so does its reader
  LoggingService service;
  service.Start(Config(peer.Port()));
  // The rows reach the file without a stop.
  ASSERT_TRUE(WaitFor([this] { return Logs().at(0).rows.size() == 2; }));
  service.Stop();
  const std::vector<ParsedLog> logs = Logs();
  ASSERT_EQ(1U, logs.size());
  EXPECT_TRUE(logs[0].footer && logs[0].notes.empty()) << "no reader was left behind";
  EXPECT_EQ(" Rx 1 0x123 s 3 01 02 FF \r\n", Fields(logs[0].rows[0]));
  EXPECT_EQ(" Rx 1 0x1abcdef0 x 12 01 02 03 04 05 06 07 08 \r\n", Fields(logs[0].rows[1]));
}

TEST_F(LoggingServiceTest, LogCommandActionsAndStatusTexts) {
  CurrentSettings().proxy_port = board_->BasePort();
  CurrentSettings().log_file_path = dir_.Path().string();
  const auto status = [this](bool on, const std::string& limits, int files,
                             const std::string& name = "kelcmd.log", std::string path = "") {
    std::string text = std::string("Logging is ") + (on ? "" : "not ") + "active and " +
                       (on ? "" : "not ") + "running (" + limits + ")\n + " +
                       std::to_string(files) + " files / 0 MiB written\n + name '" + name +
                       "'\n + path '" + (path.empty() ? dir_.Path().string() : path) + "'\n";
    for (int i = 0; on && i < 4; ++i) {
      text += " + socket " + std::to_string(i + 1) +
              ": 127.0.0.1:" + std::to_string(board_->Port(i)) + "\n";
    }
    return text;
  };
  const std::string ten = "10MiB * 10 files";
  const std::string idle = status(false, ten, 0);
  const std::string stopped = status(false, ten, 1);
  const std::string three = status(false, "16MiB * 3 files", 1);
  const std::string bad = "ERROR -102: Bad or missing arguments (try 'help log')\r\n";
  const struct {
    const char* line;
    ResultCode result;
    std::string text;
  } steps[] = {
      {"log;log view;logging status", kOk, idle + idle + idle},
      {"log comment early", kErrLogging, "ERROR -110: Logging not active\r\n"},
      {"log start", kOk, status(true, ten, 1)},
      {"log comment  hello; ver  ", kOk, ""},
      {"log note", kOk, ""},
      {"log on", kOk, status(true, ten, 1)},  // starts over
      {"log note 100% %s", kOk, ""},
      {"log off;log stop", kOk, stopped + stopped},
      {"log START", kErrBadArgs, bad},  // words are taken as written
      {"log sizes 1", kErrBadArgs, bad},
      {"log size 0x10;log count 3", kOk, status(false, "16MiB * 10 files", 1) + three},
      {"log usb 1;log usbntf 2", kOk, three + three},
      {"log debug 1;log windbg 2;log windebug 3", kOk, three + three + three},
      {"log file  other;name.log  ", kOk, status(false, "16MiB * 3 files", 1, "other;name.log")},
      {"log path  a b  ", kOk, status(false, "16MiB * 3 files", 1, "other;name.log", "a b")},
  };
  for (const auto& step : steps) {
    const testing::LineRun run = Run(step.line);
    EXPECT_EQ(step.result, run.result) << step.line;
    EXPECT_EQ(step.text, run.text) << step.line;
  }
  EXPECT_EQ(2U, CurrentSettings().log_usb_notify);
  EXPECT_EQ(3U, CurrentSettings().log_win_debug);
  const std::vector<ParsedLog> logs = Logs();
  ASSERT_EQ(2U, logs.size());
  EXPECT_EQ((std::vector<std::string>{"COMMENT 'hello; ver'", "COMMENT ''"}), logs[0].notes);
  EXPECT_EQ((std::vector<std::string>{"COMMENT '100% %s'"}), logs[1].notes);
  for (const ParsedLog& log : logs) EXPECT_TRUE(log.header && log.footer && log.rows.empty());
}

}  // namespace
}  // namespace kel
