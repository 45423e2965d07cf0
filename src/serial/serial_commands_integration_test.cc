// The serial commands against kelsim's controller on a pseudo-terminal, and against a
// scripted controller for the faults kelsim never makes.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <thread>

#include "config/settings.h"
#include "platform/poller.h"
#include "platform/pseudo_terminal.h"
#include "serial/line_codec.h"
#include "sim/simulator.h"
#include "support/board_fixture.h"
#include "support/fake_sysfs.h"
#include "support/temp_dir.h"

namespace kel {
namespace {

using testing::LineRun;

class SerialCommandsTest : public testing::BoardTest {};

// kelsim's controller line is the shell's port.
class ControllerTest : public SerialCommandsTest {
 protected:
  void SetUp() override {
    SerialCommandsTest::SetUp();
    const std::string path = board_->StartSerial();
#ifdef _WIN32
    GTEST_SKIP() << "kelsim's controller needs a pseudo-terminal: " << board_->Error();
#endif
    ASSERT_FALSE(path.empty()) << board_->Error();
    CurrentSettings().serial_port = path;
  }
};

TEST_F(ControllerTest, SverAsksTheControllerForItsVersion) {
  const LineRun run = Run("sver");
  EXPECT_LT(0, run.result);
  EXPECT_EQ("Board controller KELCTRL 1.0.0\r\n", run.text);
}

// The reset cuts the board's connections; the line's next command connects afresh and
// finds the board as it starts.
TEST_F(ControllerTest, RporResetsTheWholeBoardAndTheLineGoesOnWithTheBoardThatCameBack) {
  ASSERT_LT(0, Run("baud 1M;int 1 1;int 0x80005500;filt set CAN=0 AM=0x7FF AR=0x100").result);
  const LineRun run = Run("set CAN1;rpor;out CAN1");
  EXPECT_LT(0, run.result) << run.text;
  EXPECT_EQ(
      "Output bits (0x0100):\nCAN1 23V power = on\n"
      "Power on reset done, controller 1.0.0\r\n"
      "Output bits (0x0000):\nCAN1 23V power = off\n",
      run.text);
  const sim::BoardState state = board_->State();
  EXPECT_EQ(0U, state.debug | state.events | state.outputs);
  for (const sim::ChannelState& c : state.channels) {
    EXPECT_EQ(sim::kDefaultBaudIndex, c.baud_index);
    EXPECT_EQ(0U, c.filter_mask | c.filter_arbitration);
  }
}

TEST_F(ControllerTest, SsendFramesOrPassesItsTextAndSrecvShowsEveryAnswerSafely) {
  struct Case {
    const char* line;
    ResultCode result;
    const char* text;
  };
  // One srecv takes the answers to every line of a request text: each srecv waits for a
  // second of silence, to be sure on a busy machine.
  const Case cases[] = {
      {"ssend ECHO,hi;srecv 1s", kOk, "13 bytes sent\r\n$ECHO,hi*2C\r\n1 lines received\r\n"},
      {"ssend \"$ECHO,1;2 = 50%\\r$VER*00\\r$FOO\\r$ECHO,a\\tb\\r$OUT\";srecv 1s", kOk,
       "45 bytes sent\r\n$ECHO,1;2 = 50%%*08\r\n$ERR,2,checksum*7A\r\n"
       "$ERR,1,unknown command*5B\r\n$ERR,3,bad line*3F\r\n$OUT,0x0000*2A\r\n"
       "5 lines received\r\n"},
      {"srecv 200ms", kErrReceive, "ERROR -13: Receiving failed\r\n"},
      {"ssend", kErrBadArgs, "ERROR -102: Bad or missing arguments (try 'help ssend')\r\n"},
      {"ssend ECHO,\\q", kErrBadArgs,
       "ERROR -102: Bad or missing arguments (try 'help ssend')\r\n"},
  };
  for (const Case& c : cases) {
    const LineRun run = Run(c.line);
    EXPECT_EQ(c.result, std::min(run.result, kOk)) << c.line;
    EXPECT_EQ(c.text, run.text) << c.line;
  }
  // "$", the text and "*HH": 128 bytes at most, then CR LF.
  const std::string text = "ECHO," + std::string(kMaxLineBytes - 4 - 5, 'x');
  EXPECT_EQ("130 bytes sent\r\n", Run("ssend " + text).text);
  EXPECT_EQ(kErrBadArgs, Run("ssend " + text + "x").result);
}

TEST_F(ControllerTest, DebugSerialTracesEveryLineBothWays) {
  ::testing::internal::CaptureStdout();
  const LineRun run =
      Run("debug serial on;sver;ssend $ECHO,%\\x01\\\\;srecv 1s;debug serial off;sver");
  EXPECT_EQ(
      "[SerSend $VER*41]\n[SerRecv $VER,KELCTRL,1.0.0*3B]\n"
      "[SerSend $ECHO,%\\x01\\\\]\n[SerRecv $ERR,3,bad line*3F]\n",
      ::testing::internal::GetCapturedStdout());
  EXPECT_LT(0, run.result) << run.text;
}

TEST_F(SerialCommandsTest, SerialNamesThePortAndAPortThatIsNoneFailsToConnect) {
  testing::TempDir dir;
  const std::string file = dir.File("plain");
  testing::WriteFile(file, "");
  struct Case {
    std::string line;
    std::string text;
  };
  const Case cases[] = {
      {"serial", "Serial port ''\r\n"},
      {"serial \\\\.\\COM12", "Serial port '\\\\.\\COM12'\r\n"},
      {"serial \"" + dir.File("tty 5%") + "\"", "Serial port '" + dir.File("tty 5%%") + "'\r\n"},
      {"sver", "ERROR -10: Connect failed\r\n"},
      {"serial " + file, "Serial port '" + file + "'\r\n"},
      {"rpor", "ERROR -10: Connect failed\r\n"},
      {"serial OFF;ssend VER", "Serial port ''\r\nERROR -10: Connect failed\r\n"},
      {"srecv", "ERROR -10: Connect failed\r\n"},
  };
  for (const Case& c : cases) EXPECT_EQ(c.text, Run(c.line).text) << c.line;
}

TEST_F(SerialCommandsTest, AutoLooksThePortUpAgainAsAtStartUp) {
#ifdef _WIN32
  GTEST_SKIP() << "Windows lists its ports through SetupAPI, not a sysfs tree";
#endif
  testing::FakeSysfs pc;
  pc.TypicalPc();
  {
    const testing::ScopedEnvironment root("KELCMD_SYSFS", pc.Root());
    EXPECT_EQ("Serial port '/dev/ttyUSB0'\r\nSerial port '/dev/ttyS0'\r\n",
              Run("serial /dev/ttyUSB0;serial AUTO").text);
  }
  testing::FakeSysfs container;
  container.Directory("class/tty");
  const testing::ScopedEnvironment root("KELCMD_SYSFS", container.Root());
  EXPECT_EQ("Serial port ''\r\n", Run("serial auto").text) << "no UART: the name is forgotten";
}

// A controller that answers every request line with `reply` (bytes as they are), or never
// when it is empty; with `vanish` its terminal goes away at the first request instead.
class ScriptedController {
 public:
  ScriptedController(std::string reply, bool vanish) : reply_(std::move(reply)), vanish_(vanish) {
    if (pty_.Open() && poller_.AddHandle(pty_.Handle(), platform::kPollRead, 1)) {
      thread_ = std::thread([this] { Serve(); });
    }
  }
  ~ScriptedController() {
    stop_ = true;
    poller_.Wake();
    if (thread_.joinable()) thread_.join();
  }
  bool Running() const { return thread_.joinable(); }
  std::string Path() const { return pty_.SlavePath(); }

 private:
  void Serve() {
    LineSplitter splitter;
    std::array<platform::PollEvent, 1> events;
    while (!stop_) {
      if (poller_.Wait(events, -1) != 1) continue;
      std::array<char, 256> chunk;
      const platform::SerialResult r = pty_.Read(chunk.data(), chunk.size());
      std::vector<ReceivedLine> requests;
      splitter.Feed(std::string_view(chunk.data(), r.bytes), requests);
      if (requests.empty()) continue;
      if (vanish_) {
        poller_.RemoveHandle(pty_.Handle());
        pty_.Close();
        return;
      }
      if (!reply_.empty()) pty_.Write(reply_.data(), reply_.size());
    }
  }

  std::string reply_;
  bool vanish_;
  platform::PseudoTerminal pty_;
  platform::Poller poller_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

TEST_F(SerialCommandsTest, BrokenSilentOrVanishingControllersFailWithinTheirLimits) {
#ifdef _WIN32
  GTEST_SKIP() << "a scripted controller needs a pseudo-terminal";
#endif
  const std::string too_long = "$VER," + std::string(kMaxLineBytes, 'x') + "*00\r\n";
  struct Case {
    std::string reply;
    bool vanish;
    std::string line;
    ResultCode result;
    std::string text;
  };
  const Case cases[] = {
      // noise and other lines are skipped; "%" and control bytes never reach printf raw
      {"boot chatter\r\n$BOOT,1.0.0*0B\r\n$VER,A%B,2*55\r\n", false, "sver", kOk,
       "Board controller A%%B 2\r\n"},
      {"a\x01%b\r\n", false, "ssend X;srecv 1s", kOk,
       "7 bytes sent\r\na\\x01%%b\r\n1 lines received\r\n"},
      {"$VER,KELCTRL,1.0.0*00\r\n", false, "sver", kErrIntegrity,
       "ERROR -15: Integrity failed\r\n"},
      {"$VER,KELCTRL,1.0.0\r\n", false, "sver", kErrIntegrity, "ERROR -15: Integrity failed\r\n"},
      {too_long, false, "sver", kErrIntegrity, "ERROR -15: Integrity failed\r\n"},
      {"$VER,KELCTRL*26\r\n", false, "sver", kErrIntegrity, "ERROR -15: Integrity failed\r\n"},
      {"$ERR,1,unknown command*5B\r\n", false, "sver", kErrMsgIo, "ERROR -101: MsgIO failed\r\n"},
      {"$POR,NO*60\r\n", false, "rpor", kErrMsgIo, "ERROR -101: MsgIO failed\r\n"},
      {"", false, "sver", kErrReceive, "ERROR -13: Receiving failed\r\n"},
      {"", true, "sver", kErrReceive, "ERROR -13: Receiving failed\r\n"},
  };
  for (const Case& c : cases) {
    ScriptedController controller(c.reply, c.vanish);
    ASSERT_TRUE(controller.Running());
    CurrentSettings().serial_port = controller.Path();
    const LineRun run = Run(c.line);
    EXPECT_EQ(c.result, std::min(run.result, kOk)) << c.line << " " << c.reply;
    EXPECT_EQ(c.text, run.text) << c.line << " " << c.reply;
  }
}

}  // namespace
}  // namespace kel
