// The logging service against a virtual board and scripted peers, and the log command
// through the executor: what reaches the files, and every status text.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "config/settings.h"
#include "logging/log_command.h"
#include "logging/logging_service.h"
#include "logging/parsed_log.h"
#include "platform/clock.h"
#include "shell/command.h"
#include "shell/executor.h"
#include "sim/frame_client.h"
#include "sim/simulator.h"
#include "support/fake_board.h"
#include "support/temp_dir.h"

namespace kel {
namespace {

namespace fs = std::filesystem;
using testing::FakeBoard;
using testing::ReadFile;
using testing::TempDir;

constexpr int kWaitMs = 60000;  // generous: sanitizer builds on a busy machine

// The log files of a directory in index order, each read and parsed.
struct LogSet {
  std::vector<std::string> names;
  std::vector<std::string> texts;
  std::vector<ParsedLog> logs;
};

LogSet ReadLogs(const fs::path& dir) {
  LogSet set;
  for (const auto& entry : fs::directory_iterator(dir)) {
    set.names.push_back(entry.path().filename().string());
  }
  std::sort(set.names.begin(), set.names.end());
  for (const std::string& name : set.names) {
    set.texts.push_back(ReadFile((dir / name).string()));
    set.logs.push_back(ParseLog(set.texts.back()));
  }
  return set;
}

bool WaitFor(const std::function<bool()>& done, int timeout_ms = kWaitMs) {
  const uint64_t start = platform::MonotonicMs();
  while (!done()) {
    if (platform::MonotonicMs() - start > static_cast<uint64_t>(timeout_ms)) return false;
    platform::SleepMs(5);
  }
  return true;
}

FrameBytes CanFrame(uint32_t id, uint32_t info, uint32_t low, uint32_t high) {
  FrameBytes frame{};
  SetFrameWord(frame.data(), 0, id);
  SetFrameWord(frame.data(), 1, info);
  SetFrameWord(frame.data(), 2, low);
  SetFrameWord(frame.data(), 3, high);
  return frame;
}

// A port where nothing listens: bound once, then released.
uint16_t ClosedPort() {
  platform::Socket listener = platform::ListenTcp({0x0100007F, 0}, 1);
  return platform::LocalAddress(listener).port;
}

// A virtual board on four free ports, wired 0-2 and 1-3.
sim::Config FreePortsBoard() {
  sim::Config config;
  config.base_port = 0;
  return config;
}

LoggingConfig Config(const TempDir& dir, int base_port) {
  LoggingConfig config;
  config.base_port = base_port;
  config.path = dir.Path().string();
  return config;
}

TEST(LoggingServiceTest, EveryFrameOfFourChannelsOnceAndInOrderAcrossRotatedFiles) {
  sim::Simulator board(FreePortsBoard());
  ASSERT_TRUE(board.Start()) << board.Error();
  TempDir dir;
  LoggingConfig config = Config(dir, board.BasePort());
  config.size_limit = 1 << 20;
  config.max_count = 50;
  LoggingService service;
  service.Start(config);
  ASSERT_EQ(4U, service.Status().peers.size());
  ASSERT_TRUE(
      board.WaitForState([](const sim::BoardState& s) { return s.Clients() == 4; }, kWaitMs));

  // Each channel's sender: identifier 0x100 + channel (extended on odd channels), a running
  // counter in the first data word, a DLC that cycles through 0 to 8.
  constexpr uint32_t kFrames = 25000;
  auto sender = [&board](int channel) {
    sim::FrameClient client;
    ASSERT_TRUE(client.Connect(board.Address(channel)));
    std::vector<uint8_t> batch;
    for (uint32_t n = 0; n < kFrames; ++n) {
      const uint32_t info = (n % 9) | (channel % 2 == 1 ? kInfoExtended : 0);
      const FrameBytes frame =
          CanFrame(0x100 + static_cast<uint32_t>(channel) + (channel % 2 == 1 ? 0x10000 : 0), info,
                   n, 0xA5A5A5A5);
      batch.insert(batch.end(), frame.begin(), frame.end());
      if (batch.size() >= 64 * kFrameSize || n + 1 == kFrames) {
        ASSERT_TRUE(client.SendBytes(batch.data(), batch.size()));
        batch.clear();
        while (client.Receive(0)) {  // the paired sender's frames
        }
      }
    }
    while (client.Receive(200)) {
    }
  };
  std::vector<std::thread> senders;
  for (int channel = 0; channel < 4; ++channel) senders.emplace_back(sender, channel);
  for (std::thread& t : senders) t.join();
  ASSERT_TRUE(WaitFor([&service] { return service.Status().rows_written == 4 * kFrames; }))
      << service.Status().rows_written;
  const LoggingStatus status = service.Status();
  service.Stop();

  const LogSet set = ReadLogs(dir.Path());
  ASSERT_GE(set.logs.size(), 4U);
  EXPECT_EQ(set.logs.size(), status.files_opened);
  uint64_t bytes = 0;
  // Row channel r (slot r - 1) hears the channel paired with r - 1: 0-2 and 1-3.
  const std::array<int, 4> heard = {2, 3, 0, 1};
  std::map<int, uint32_t> next;  // row channel -> next counter expected
  for (size_t f = 0; f < set.logs.size(); ++f) {
    const ParsedLog& log = set.logs[f];
    EXPECT_TRUE(log.header && log.footer) << set.names[f];
    EXPECT_TRUE(log.bad_lines.empty()) << set.names[f] << ": " << log.bad_lines.front();
    for (const ParsedRow& row : log.rows) {
      ASSERT_GE(row.channel, 1);
      ASSERT_LE(row.channel, 4);
      const int from = heard[static_cast<size_t>(row.channel - 1)];
      const uint32_t n = next[row.channel]++;
      EXPECT_FALSE(row.transmitted);
      ASSERT_EQ(0x100U + static_cast<uint32_t>(from) + (from % 2 == 1 ? 0x10000U : 0U), row.id);
      EXPECT_EQ(from % 2 == 1, row.extended);
      ASSERT_EQ(static_cast<int>(n % 9), row.dlc);
      std::vector<uint8_t> data = {static_cast<uint8_t>(n),
                                   static_cast<uint8_t>(n >> 8),
                                   static_cast<uint8_t>(n >> 16),
                                   static_cast<uint8_t>(n >> 24),
                                   0xA5,
                                   0xA5,
                                   0xA5,
                                   0xA5};
      data.resize(n % 9);
      ASSERT_EQ(data, row.data) << "channel " << row.channel << " frame " << n;
    }
    // A file is rotated at the first row that finds it at 1 MiB or more.
    const size_t footer = FooterText("01:01:2000 00:00:00:000").size();
    const size_t body = set.texts[f].size() - footer;
    if (f + 1 < set.logs.size()) {
      EXPECT_GE(body, size_t{1} << 20) << set.names[f];
      EXPECT_LT(body, (size_t{1} << 20) + kMaxRowSize) << set.names[f];
    }
    bytes += set.texts[f].size();
  }
  for (int channel = 1; channel <= 4; ++channel) EXPECT_EQ(kFrames, next[channel]);
  EXPECT_LT(status.bytes_written, bytes) << "rows only, no headers or footers";
  EXPECT_GT(status.bytes_written, bytes - set.logs.size() * 1000);
}

TEST(LoggingServiceTest, SkipsCommandRecordsAndJoinsRecordsSplitAcrossReceives) {
  FakeBoard peer([](platform::Socket& client) {
    std::vector<uint8_t> stream;
    const std::array<FrameBytes, 4> frames = {
        CanFrame(0x123, 3, 0x00FF0201, 0), CanFrame(0x80000100, 0, 0, 0),
        CanFrame(0xFFFFFFFF, 8, 1, 2),
        CanFrame(0x1ABCDEF0, kInfoExtended | 12, 0x04030201, 0x08070605)};
    for (const FrameBytes& f : frames) stream.insert(stream.end(), f.begin(), f.end());
    for (size_t at = 0; at < stream.size(); at += 5) {  // records cut at odd places
      FakeBoard::Write(client, stream.data() + at, std::min<size_t>(5, stream.size() - at));
      platform::SleepMs(2);
    }
    FrameBytes ignored;
    FakeBoard::ReadFrame(client, ignored, kWaitMs);  // until the logger goes
  });
  TempDir dir;
  LoggingService service;
  service.Start(Config(dir, peer.Port()));
  ASSERT_TRUE(WaitFor([&service] { return service.Status().rows_written == 2; }));
  service.Stop();
  const LogSet set = ReadLogs(dir.Path());
  ASSERT_EQ(1U, set.logs.size());
  ASSERT_EQ(2U, set.logs[0].rows.size());
  EXPECT_EQ(" Rx 1 0x123 s 3 01 02 FF \r\n",
            set.texts[0].substr(set.texts[0].find(" Rx 1 0x123"), 27));
  const ParsedRow& extended = set.logs[0].rows[1];
  EXPECT_EQ(0x1ABCDEF0U, extended.id);
  EXPECT_TRUE(extended.extended);
  EXPECT_EQ(12, extended.dlc);
  EXPECT_EQ((std::vector<uint8_t>{1, 2, 3, 4, 5, 6, 7, 8}), extended.data);
}

TEST(LoggingServiceTest, NotesAndRunsWithoutAnyPort) {
  TempDir dir;
  LoggingService service;
  EXPECT_EQ(0U, service.Note("before %d", 1)) << "no notes while stopped";
  service.Start(Config(dir, ClosedPort()));
  LoggingStatus status = service.Status();
  EXPECT_TRUE(status.active && status.running);
  EXPECT_EQ(1U, status.files_opened);
  EXPECT_TRUE(status.peers.empty());
  EXPECT_EQ(29U, service.Note("COMMENT '%s'", "hello"));
  EXPECT_EQ(21U, service.Note("%s", "50% off"));

  service.Start(Config(dir, ClosedPort()));  // a start while running stops first
  EXPECT_EQ(1U, service.Status().files_opened);
  service.Stop();
  service.Stop();
  status = service.Status();
  EXPECT_FALSE(status.active || status.running);
  EXPECT_EQ(0U, service.Note("after"));

  const LogSet set = ReadLogs(dir.Path());
  ASSERT_EQ((std::vector<std::string>{"kelcmd_00000.log", "kelcmd_00001.log"}), set.names);
  EXPECT_EQ((std::vector<std::string>{"COMMENT 'hello'", "50% off"}), set.logs[0].notes);
  for (const ParsedLog& log : set.logs) {
    EXPECT_TRUE(log.header && log.footer && log.rows.empty() && log.bad_lines.empty());
  }

  LoggingConfig nowhere = Config(dir, ClosedPort());
  nowhere.path = dir.File("plain-file/sub");
  testing::WriteFile(dir.File("plain-file"), "x");
  service.Start(nowhere);
  EXPECT_TRUE(service.Active()) << "active without a file";
  EXPECT_EQ(0U, service.Status().files_opened);
  EXPECT_EQ(0U, service.Note("dropped"));
  service.Stop();
}

TEST(LoggingServiceTest, ReaderEndsWhenTheBoardClosesAndStopStillCloses) {
  FakeBoard peer([](platform::Socket& client) {
    const FrameBytes frame = CanFrame(0x42, 1, 7, 0);
    FakeBoard::Write(client, frame);
  });
  TempDir dir;
  LoggingService service;
  service.Start(Config(dir, peer.Port()));
  ASSERT_TRUE(WaitFor([&service] { return service.Status().rows_written == 1; }));
  // The reader's row reaches the file without any stop: it went out when the reader ended.
  ASSERT_TRUE(WaitFor([&dir] { return ReadLogs(dir.Path()).logs[0].rows.size() == 1; }));
  service.Stop();
  const LogSet set = ReadLogs(dir.Path());
  ASSERT_EQ(1U, set.logs.size());
  EXPECT_TRUE(set.logs[0].footer);
  EXPECT_EQ(1U, set.logs[0].rows.size());
  EXPECT_TRUE(set.logs[0].notes.empty()) << "no reader was left behind";
}

class LogCommandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    saved_ = CurrentSettings();
    Settings& s = CurrentSettings();
    s.device_address = "127.0.0.1";
    s.log_file_path = dir_.Path().string();
    s.log_file_name = "kelcmd.log";
    s.log_slice_size = 10 << 20;
    s.log_slice_count = 10;
  }
  void TearDown() override {
    StopLogging();
    CurrentSettings() = saved_;
  }

  ResultCode Run(const std::string& line) {
    out_.Clear();
    return RunCommandLine(DeviceTarget{"127.0.0.1", 1}, line, out_);
  }
  std::string Text() const { return std::string(out_.Text()); }
  std::string Path() const { return dir_.Path().string(); }

  static std::string Error(ResultCode code) { return ErrorText(FindCommand("log"), code) + "\r\n"; }

  TempDir dir_;
  Output out_{16384};
  Settings saved_;
};

TEST_F(LogCommandTest, StatusStartCommentStop) {
  sim::Simulator board(FreePortsBoard());
  ASSERT_TRUE(board.Start()) << board.Error();
  CurrentSettings().proxy_port = board.BasePort();
  const std::string stopped_tail = " + name 'kelcmd.log'\n + path '" + Path() + "'\n";

  for (const char* line : {"log", "log view", "logging status", "LOG"}) {
    EXPECT_EQ(0, Run(line)) << line;
    EXPECT_EQ(
        "Logging is not active and not running (10MiB * 10 files)\n"
        " + 0 files / 0 MiB written\n" +
            stopped_tail,
        Text())
        << line;
  }
  EXPECT_EQ(kErrLogging, Run("log comment early"));
  EXPECT_EQ(Error(kErrLogging), Text());

  EXPECT_EQ(0, Run("log start"));
  std::string sockets;
  for (int i = 0; i < 4; ++i) {
    sockets += " + socket " + std::to_string(i + 1) +
               ": 127.0.0.1:" + std::to_string(board.BasePort() + i) + "\n";
  }
  const std::string running =
      "Logging is active and running (10MiB * 10 files)\n"
      " + 1 files / 0 MiB written\n" +
      stopped_tail + sockets;
  EXPECT_EQ(running, Text());
  EXPECT_EQ(0, Run("log comment  hello; ver  "));
  EXPECT_EQ("", Text());
  EXPECT_EQ(0, Run("log note"));
  EXPECT_EQ(0, Run("log on"));
  EXPECT_EQ(running, Text()) << "a start while running starts over";
  EXPECT_EQ(0, Run("log comment second run"));

  EXPECT_EQ(0, Run("log off"));
  EXPECT_EQ(
      "Logging is not active and not running (10MiB * 10 files)\n"
      " + 1 files / 0 MiB written\n" +
          stopped_tail,
      Text());
  EXPECT_EQ(0, Run("log stop"));

  const LogSet set = ReadLogs(dir_.Path());
  ASSERT_EQ(2U, set.logs.size());
  EXPECT_EQ((std::vector<std::string>{"COMMENT 'hello; ver'", "COMMENT ''"}), set.logs[0].notes);
  EXPECT_EQ((std::vector<std::string>{"COMMENT 'second run'"}), set.logs[1].notes);
  EXPECT_NE(std::string::npos, set.texts[0].find("***NOTE: COMMENT 'hello; ver'***\r\n"));
}

TEST_F(LogCommandTest, SettingsActionsChangeTheStatus) {
  struct Case {
    const char* line;
    const char* first_line;
    const char* name;
    const char* path;  // null: the test directory
  };
  const Case cases[] = {
      {"log size 1", "(1MiB * 10 files)", "kelcmd.log", nullptr},
      {"log size 0x10;log count 3", "(16MiB * 3 files)", "kelcmd.log", nullptr},
      {"log count 50", "(16MiB * 50 files)", "kelcmd.log", nullptr},
      {"log file  other;name.log  ", "(16MiB * 50 files)", "other;name.log", nullptr},
      {"log path  /tmp/a b  ", "(16MiB * 50 files)", "other;name.log", "/tmp/a b"},
      {"log usb on", "(16MiB * 50 files)", "other;name.log", "/tmp/a b"},
      {"log usbntf 0;log debug 1;log windbg 1;log windebug 1", "(16MiB * 50 files)",
       "other;name.log", "/tmp/a b"},
  };
  // A stopped service still shows the files of its last run.
  const std::string files = std::to_string(Logging().Status().files_opened);
  for (const Case& c : cases) {
    EXPECT_EQ(0, Run(c.line)) << c.line;
    const std::string expected = std::string("Logging is not active and not running ") +
                                 c.first_line + "\n + " + files +
                                 " files / 0 MiB written\n + name '" + c.name + "'\n + path '" +
                                 (c.path ? c.path : Path()) + "'\n";
    // Each command of the line prints the status; the last one shows every change.
    ASSERT_GE(Text().size(), expected.size()) << c.line;
    EXPECT_EQ(expected, Text().substr(Text().size() - expected.size())) << c.line;
  }
  const Settings& s = CurrentSettings();
  EXPECT_EQ(uint64_t{16} << 20, s.log_slice_size);
  EXPECT_EQ(50U, s.log_slice_count);
  EXPECT_EQ(0U, s.log_usb_notify);
  EXPECT_EQ(1U, s.log_win_debug);
}

TEST_F(LogCommandTest, UnknownActionsAreRejected) {
  for (const char* line : {"log START", "log begin", "log Comment x", "log sizes 1"}) {
    EXPECT_EQ(kErrBadArgs, Run(line)) << line;
    EXPECT_EQ(Error(kErrBadArgs), Text()) << line;
  }
  EXPECT_EQ(kErrBadArgs, Run("log bogus;log start"));
  EXPECT_FALSE(Logging().Active()) << "the line stops at the failure";
}

}  // namespace
}  // namespace kel
