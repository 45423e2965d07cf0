// mon and trace against the virtual board while other clients talk to it, and against a
// scripted board that closes the connection in the middle of a monitor.

#include <gtest/gtest.h>

#include <functional>
#include <regex>
#include <thread>

#include "device/command_codes.h"
#include "shell/executor.h"
#include "sim/frame_client.h"
#include "support/board_fixture.h"
#include "support/fake_board.h"

namespace kel {
namespace {

using testing::Command;
using testing::LineRun;

constexpr int kLongMs = 20000;

FrameBytes Data(uint32_t id, uint32_t info, uint32_t data_low = 0, uint32_t data_high = 0) {
  return EncodeCommand(CommandFrame{id, info, data_low, data_high});
}

// What a command line printed to the console, with its result.
struct ConsoleRun {
  LineRun line;
  std::string console;
};

// The console lines of `text` with their first `skip` characters (the time column) cut.
std::string WithoutTimes(const std::string& text, size_t skip = 11) {
  std::string result;
  size_t start = 0;
  for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
    const std::string line = text.substr(start, end + 1 - start);
    result += line.size() > skip && line[9] >= '0' && line[9] <= '9' ? line.substr(skip) : line;
  }
  return result;
}

class MonitorTest : public testing::BoardTest {
 protected:
  // Runs `line` on `channel` while `other` runs on a thread with a client of
  // `other_channel` that the board has taken, once the board counts `clients` connections.
  ConsoleRun RunBeside(std::string_view line, int channel, int other_channel, uint32_t clients,
                       const std::function<void(sim::FrameClient&)>& other) {
    sim::FrameClient client;
    EXPECT_TRUE(client.Connect(board_->Address(other_channel)));
    std::thread thread([&] {
      if (board_->WaitForState([&](const sim::BoardState& s) { return s.Clients() >= clients; },
                               kLongMs)) {
        other(client);
      }
    });
    ::testing::internal::CaptureStdout();
    ConsoleRun run;
    run.line = Run(line, channel);
    run.console = ::testing::internal::GetCapturedStdout();
    thread.join();
    return run;
  }

  // Waits until `channel` has taken a frame with `code` as its first word.
  bool WaitForCommand(int channel, uint32_t code) {
    for (size_t seen = 1;; ++seen) {
      if (!board_->WaitForReceivedFrames(channel, seen, kLongMs)) return false;
      if (FrameWord(board_->ReceivedFrames(channel)[seen - 1].data(), 0) == code) return true;
    }
  }
};

TEST_F(MonitorTest, ShowsExactlyTheFramesAnotherClientSentOnTheWiredChannel) {
  const ConsoleRun run = RunBeside("mon can 1500ms", 0, 2, 2, [](sim::FrameClient& c) {
    c.Send(Data(0x123, 4, 0x01000000));
    c.Send(Data(0x12345678, kInfoExtended | 8, 0x04030201, 0x08070605));
    c.Send(Data(0x7FF, kInfoRemote));
    c.Send(Data(0x100, 12 | 1U << 24, 0xDDCCBBAA, 0x11FFEE00));  // a DLC above 8, an 's' flag
    c.Send(Data(0x0, 1, 0x25));                                  // '%' as data
  });
  EXPECT_EQ(
      "Monitoring CAN0 for 1500 ms (key to stop)\n"
      "   time ms Type Ch ID       DLC Data\n"
      "---   0 00000123 4   00 00 00 01 \n"
      "x--   0 12345678 8   01 02 03 04 05 06 07 08 \n"
      "-r-   0 000007FF 0   \n"
      "--s   0 00000100 12  AA BB CC DD 00 EE FF 11 00 00 00 00 \n"
      "---   0 00000000 1   25 \n",
      WithoutTimes(run.console));
  EXPECT_EQ(0U, run.line.text.find("5 frames, 0 commands in ")) << run.line.text;
  EXPECT_TRUE(std::regex_match(run.line.text, std::regex("5 frames, 0 commands in [0-9]+ ms\r\n")));
}

TEST_F(MonitorTest, AFilterPassesTheIdentifiersItsMaskSelects) {
  const ConsoleRun run = RunBeside("MONITOR 123:7FF 1500ms", 0, 2, 2, [](sim::FrameClient& c) {
    for (const uint32_t id : {0x123U, 0x124U, 0x923U, 0x1123U}) c.Send(Data(id, 1));
  });
  EXPECT_EQ(
      "Monitoring CAN0 filter 123:7FF for 1500 ms (key to stop)\n"
      "   time ms Type Ch ID       DLC Data\n"
      "---   0 00000123 1   00 \n---   0 00000923 1   00 \n---   0 00001123 1   00 \n",
      WithoutTimes(run.console));
  EXPECT_EQ(0U, run.line.text.find("3 frames, 0 commands in "));
}

TEST_F(MonitorTest, IdsCountsEachIdentifierAndPrintsItsTableAtTheEnd) {
  const ConsoleRun run = RunBeside("mon ids 1500ms", 2, 0, 2, [](sim::FrameClient& c) {
    for (const uint32_t id : {0x200U, 0x100U, 0x200U, 0x200U}) c.Send(Data(id, 2, id));
  });
  const std::string table = run.console.substr(run.console.find("ID "));
  EXPECT_TRUE(std::regex_match(table, std::regex("ID       Type      Count Period ms DLC Data\n"
                                                 "00000100 ---           1         0 2   00 01 \n"
                                                 "00000200 ---           3 +[0-9]+ 2   00 02 \n")))
      << table;
  EXPECT_EQ(0U, run.line.text.find("4 frames, 0 commands in "));
}

TEST_F(MonitorTest, OutputsShowTheStateFirstAndThenEachChange) {
  ASSERT_GE(Run("set D9").result, 0);
  board_->ClearReceivedFrames();
  const ConsoleRun run = RunBeside("mon out 50ms 2s", 0, 1, 2, [this](sim::FrameClient& c) {
    if (WaitForCommand(0, code::kOutputs)) c.SendCommand(code::kToggleOut, 1U << 24);
  });
  EXPECT_EQ(
      "Monitoring outputs every 50 ms for 2 s (key to stop)\n"
      "Output bits (0x0002): +D9\n"
      "Output bits (0x0102): +CAN1\n",
      WithoutTimes(run.console));
  EXPECT_EQ(0U, run.line.text.find("1 changes in "));
}

TEST_F(MonitorTest, CurrentsAreStreamedAtTheIntervalUntilTheMonitorEnds) {
  ::testing::internal::CaptureStdout();
  const LineRun run = Run("set CAN1;mon curr 10ms 300ms");
  const std::string console = ::testing::internal::GetCapturedStdout();
  const std::string row =
      "   0     0     0     0     0     0     0   108     0 | 12000  5000  3300\n";
  size_t rows = 0;
  for (size_t at = console.find(row); at != std::string::npos; at = console.find(row, at + 1)) {
    ++rows;
  }
  EXPECT_GE(rows, 5U) << console;
  EXPECT_LE(rows, 40U) << console;
  EXPECT_NE(std::string::npos, run.text.find(std::to_string(rows) + " measurements in "));
  const std::vector<FrameBytes> frames = board_->ReceivedFrames(0);
  ASSERT_GE(frames.size(), 2U);
  EXPECT_EQ(Command(code::kGetMeas, 10), frames[frames.size() - 2]);
  EXPECT_EQ(Command(code::kGetMeas), frames.back()) << "the stream was ended";
}

TEST_F(MonitorTest, ABoardThatClosesEndsTheMonitorAtOnceWithAnError) {
  testing::FakeBoard board([](platform::Socket& client) {
    testing::FakeBoard::Write(client, Command(code::kEscUp, 1, 2, 3));
    testing::FakeBoard::Write(client, Data(0x55, 1, 0xAB));
  });
  Output out(4096);
  ::testing::internal::CaptureStdout();
  const ResultCode result = RunCommandLine({"127.0.0.1", board.Port()}, "mon", out);
  const std::string console = ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(kErrReceive, result);
  EXPECT_EQ(
      "Monitoring CAN0 (key to stop)\n"
      "   time ms Type Ch ID       DLC Data\n"
      "CMD     0x80005502 ESC_UP 0x00000001 0x00000002 0x00000003\n"
      "---   0 00000055 1   AB \n",
      WithoutTimes(console));
  EXPECT_TRUE(
      std::regex_match(std::string(out.Text()), std::regex("1 frames, 1 commands in [0-9]+ ms\r\n"
                                                           "ERROR -13: Receiving failed\r\n")))
      << out.Text();
}

TEST_F(MonitorTest, BadWordsAreRefusedWithTheHint) {
  for (const char* line : {"mon everything", "mon curr 1:2", "mon 1s can", "monitor can 1s 2s"}) {
    const LineRun run = Run(line);
    EXPECT_EQ(kErrBadArgs, run.result) << line;
    EXPECT_EQ("ERROR -102: Bad or missing arguments (try 'help mon')\r\n", run.text) << line;
  }
  const LineRun run = Run("trace \"(\" 1s");
  EXPECT_EQ("ERROR -102: Bad or missing arguments (try 'help trace')\r\n", run.text);
  EXPECT_TRUE(board_->ReceivedFrames(0).empty()) << "nothing was sent";
}

// The other client on channel 0 asks the bit rate and sends three frames nobody receives.
void TalkToTheBoard(sim::FrameClient& c) {
  c.SendCommand(code::kGetBaud);
  c.ReceiveAnswer(code::kBaudrate, kLongMs);
  for (uint32_t i = 0; i < 3; ++i) c.Send(Data(0x123, 1, i));
}

TEST_F(MonitorTest, TraceShowsTheOtherClientsTrafficThatItsPatternFinds) {
  const std::string get_baud = "[COMMAND] 81010005 00000000 00000000 00000000 (GET_BAUD)\n";
  const std::string baudrate = "[COMMAND] 80010005 00000000 00000003 00000000 (BAUDRATE)\n";
  const std::string data =
      "[DATA] 00000123 00000001 00 00 00 00 00 00 00 00 (1/35)\n"
      "[DATA] 00000123 00000001 01 00 00 00 00 00 00 00 (1/35)\n"
      "[DATA] 00000123 00000001 02 00 00 00 00 00 00 00 (1/35)\n";
  struct Case {
    const char* line;
    std::string lines;
    const char* result;
  };
  const Case cases[] = {
      {"trace GET_BAUD 1500ms", get_baud, "1 of 5 frames shown\r\n"},
      {"trace 1500ms", get_baud + baudrate + data, "5 of 5 frames shown\r\n"},
      {"trace \"i/^\\[data] .*00 \\(\" 1500ms", data, "3 of 5 frames shown\r\n"},
  };
  for (const Case& c : cases) {
    StartBoard();
    const ConsoleRun run = RunBeside(c.line, 1, 0, 2, [this](sim::FrameClient& client) {
      if (board_->WaitForState([](const sim::BoardState& s) { return s.trace_started; }, kLongMs)) {
        TalkToTheBoard(client);
      }
    });
    EXPECT_EQ("Tracing zousbsocket for 1500 ms (key to stop)\n" + c.lines, run.console) << c.line;
    EXPECT_EQ(c.result, run.line.text) << c.line;
    EXPECT_EQ((std::vector<FrameBytes>{Command(code::kInternal, 0, 7, 1),
                                       Command(code::kInternal, 0, 7, 0)}),
              board_->ReceivedFrames(1))
        << "started and ended";
  }
}

}  // namespace
}  // namespace kel
