// Version, status, counter and measurement queries against the virtual board.

#include <gtest/gtest.h>

#include <functional>
#include <regex>

#include "device/command_codes.h"
#include "sim/simulator.h"
#include "support/board_fixture.h"

namespace kel {
namespace {

using testing::Command;
using testing::LineRun;

class StatusCommandsTest : public testing::BoardTest {
 protected:
  // Waits until the board has handled what a line before sent on a connection of its own:
  // a later line's connection may otherwise overtake it.
  void WaitForChannel0(const std::function<bool(const sim::ChannelState&)>& done) {
    ASSERT_TRUE(
        board_->WaitForState([&](const sim::BoardState& s) { return done(s.channels[0]); }, 20000));
  }

  void StartBoardWith(sim::Config config) {
    config.base_port = 0;
    config.record_frames = true;
    board_ = std::make_unique<sim::Simulator>(config);
    ASSERT_TRUE(board_->Start()) << board_->Error();
  }
};

TEST_F(StatusCommandsTest, VersionsOfTheProgramFirmwareAndService) {
  sim::Config config;
  config.firmware_version = 0x020A012C;
  StartBoardWith(config);
  EXPECT_EQ(
      "Software version : 0.19\nFirmware version : 2.10.300 (0x020A012C)\n"
      "Service version  : 1.0.0 (0x01000000)\n",
      Run("version").text);
  EXPECT_EQ(
      (std::vector<FrameBytes>{Command(code::kInternal, 0, 2), Command(code::kInternal, 0, 3)}),
      Frames(2));
  config.firmware_version = 0xFFFFFFFF;
  StartBoardWith(config);
  EXPECT_NE(std::string::npos, Run("ver").text.find("Firmware version : unknown (0xFFFFFFFF)\n"));
}

TEST_F(StatusCommandsTest, CountersMoveByWhatWasSentAndResetClearsThem) {
  ASSERT_GE(Run("send 0x123:1122*10").result, 0);
  WaitForChannel0([](const sim::ChannelState& c) { return c.frames_transmitted == 10; });
  EXPECT_EQ("CAN0 message counters : rx 0, tx 10\nCAN0 error counters   : tx 0, rx 0\n",
            Run("nfcr;necnt").text);
  EXPECT_EQ("CAN2 message counters : rx 10, tx 0\n", Run("nfcr", 2).text);
  const std::string all = Run("cntr", 2).text;
  EXPECT_TRUE(std::regex_match(all, std::regex("CAN2 error counters   : tx 0, rx 0\n"
                                               "CAN2 message counters : rx 10, tx 0\n"
                                               "Board frames          : in [0-9]+, out [0-9]+, "
                                               "dropped 0\n")))
      << all;
  EXPECT_EQ("CAN2 message counters : rx 0, tx 0\n", Run("reset can;nfcr", 2).text);
}

TEST_F(StatusCommandsTest, PortStatusFollowsTheTransmitErrors) {
  sim::Faults faults;
  faults.drop_every = 1;  // every frame lost: a transmit error each
  board_->SetFaults(faults);
  ASSERT_GE(Run("send 0x123:11*300").result, 0);
  WaitForChannel0([](const sim::ChannelState& c) { return c.transmit_errors == 300; });
  EXPECT_EQ(
      "CAN0 error counters   : tx 300, rx 0\n"
      "CAN0 port status      : 0x00000007 (error warning, error passive, bus off), baudrate "
      "250 kbaud\n",
      Run("necnt;nsr").text);
  EXPECT_EQ(
      "Baudrate 1 Mbaud (0x00000005)\n"
      "CAN0 port status      : 0x00000000 (bus on), baudrate 1 Mbaud\n",
      Run("reset can;baud 1M;nsr").text);
}

TEST_F(StatusCommandsTest, StatusWordsRawAndDecoded) {
  sim::Faults faults;
  faults.overcurrent_pins = 1U << 8 | 1U << 10;
  board_->SetFaults(faults);
  ASSERT_GE(Run("int 0x80005500;int 0x80005502;set 23V,CAN1,D9").result, 0);
  const std::string all = Run("stat").text;
  EXPECT_TRUE(
      std::regex_match(all, std::regex("Global status    : 0x00000005 0x00000001 0x[0-9A-F]{8}\n"
                                       " \\+ events        : esc-down, esc-up\n"
                                       " \\+ clients       : 1\n"
                                       " \\+ uptime        : [0-9]+\\.[0-9]{3} s\n"
                                       "CAN task         : 0x[0-9A-F]{8} 0x[0-9A-F]{8} 0x00000000\n"
                                       " \\+ frames in [0-9]+, out [0-9]+, dropped 0\n"
                                       "USB task         : 0x00000000 0x00000000 0x00000000\n"
                                       " \\+ frames lost 0, slow connections closed 0\n"
                                       "IO task          : 0x05020000 0x00000005 0x00000000\n"
                                       " \\+ outputs 0x0502, events 0x00000005\n"
                                       "Over-current     : 0x05000000 0x00000000 0x00000000\n"
                                       " \\+ pins over current 0x0500\n")))
      << all;
  board_->ClearReceivedFrames();
  EXPECT_EQ(
      "IO task          : 0x05020000 0x00000000 0x00000000\n"
      " + outputs 0x0502, events 0x00000000\n",
      Run("reset all;stat IO").text);
  EXPECT_EQ((std::vector<FrameBytes>{Command(code::kClrEvents), Command(code::kStatus3)}),
            Frames(2));
  const LineRun bad = Run("stat tasks");
  EXPECT_EQ(kErrBadArgs, bad.result);
  EXPECT_EQ("ERROR -102: Bad or missing arguments (try 'help stat')\r\n", bad.text);
}

TEST_F(StatusCommandsTest, CurrentsFollowTheOutputsSwitchedOn) {
  const std::string rails =
      "Voltages:\n12V rail             = 12000 mV\n5V rail              =  5000 mV\n"
      "3.3V rail            =  3300 mV\n";
  EXPECT_EQ("Currents:\nD9 12V power         =     0 mA\n" + rails, Run("curr D9").text);
  const std::string all = Run("set D9,CAN1;curr").text;
  EXPECT_NE(std::string::npos, all.find("Currents:\nD9 12V power         =   101 mA\n"
                                        "M12 12V power        =     0 mA\n"));
  EXPECT_NE(std::string::npos, all.find("CAN1 23V power       =   108 mA\n"
                                        "Enable M2 modem      =     0 mA\n" +
                                        rails));
  sim::Faults faults;
  faults.overcurrent_pins = 1U << 8;
  faults.noise_before_answer = 2;  // and unrelated frames between the measurement frames
  faults.split_bytes = true;
  board_->SetFaults(faults);
  EXPECT_EQ("Currents:\nD9 12V power         =   101 mA\nCAN1 23V power       =  2500 mA\n" + rails,
            Run("current \"CAN1, D9\"").text);
  const LineRun unmeasured = Run("curr 23V");
  EXPECT_EQ(kErrBadIo, unmeasured.result) << "pin 10 is not measured";
}

TEST_F(StatusCommandsTest, AMissingAnswerFailsAfterTheTransactionLimit) {
  sim::Faults faults;
  faults.delayed_code = code::kGetMeas;
  faults.answer_delay_ms = -1;
  board_->SetFaults(faults);
  ::testing::internal::CaptureStdout();
  const LineRun run = Run("curr");
  ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(kErrMsgIo, run.result);
  EXPECT_EQ("ERROR -101: MsgIO failed\r\n", run.text);
}

}  // namespace
}  // namespace kel
