#include "device/frame.h"

#include <gtest/gtest.h>

#include "device/command_codes.h"
#include "device/frame_text.h"

namespace kel {
namespace {

TEST(FrameTest, CommandFramesAreFourLittleEndianWords) {
  const FrameBytes bytes = EncodeCommand(CommandFrame{0x81010005, 0x04030201, 0, 0xA0B0C0D0});
  const FrameBytes expected = {0x05, 0x00, 0x01, 0x81, 0x01, 0x02, 0x03, 0x04,
                               0x00, 0x00, 0x00, 0x00, 0xD0, 0xC0, 0xB0, 0xA0};
  EXPECT_EQ(expected, bytes);
  const CommandFrame back = DecodeCommand(bytes.data());
  EXPECT_EQ(0x81010005U, back.command);
  EXPECT_EQ(0x04030201U, back.value1);
  EXPECT_EQ(0xA0B0C0D0U, back.value3);
}

TEST(FrameTest, CanDataFramesKeepTheirFieldsInPlace) {
  CanDataFrame frame;
  frame.id = 0x123;
  frame.dlc = 3;
  frame.info = 0x82;  // channel 2, extended
  frame.flag_r = 1;
  frame.flag_s = 0x02;
  frame.data = {1, 2, 3, 4, 5, 6, 7, 8};
  const FrameBytes bytes = EncodeCanData(frame);
  EXPECT_EQ(0x02018203U, FrameWord(bytes.data(), 1));
  EXPECT_EQ(0x04030201U, FrameWord(bytes.data(), 2));
  const CanDataFrame back = DecodeCanData(bytes.data());
  EXPECT_EQ(2, back.Channel());
  EXPECT_TRUE(back.Extended());
  EXPECT_EQ(frame.data, back.data);
  EXPECT_EQ(frame.InfoWord(), back.InfoWord());
}

TEST(FrameTest, TheSignOfTheFirstWordTellsTheKind) {
  FrameBytes bytes{};
  SetFrameWord(bytes.data(), 0, 0x7FFFFFFF);
  EXPECT_FALSE(IsCommandFrame(bytes.data()));
  SetFrameWord(bytes.data(), 0, 0x80000000);
  EXPECT_TRUE(IsCommandFrame(bytes.data()));
  EXPECT_STREQ("???", CommandCodeName(0x80000000));
}

TEST(CommandCodeNameTest, BothFilterCodesShareANameAndUnknownCodesHaveNone) {
  EXPECT_STREQ("CAN_FILTER", CommandCodeName(0x80010004));
  EXPECT_STREQ("CAN_FILTER", CommandCodeName(0x81010006));
  EXPECT_STREQ("???", CommandCodeName(0x80010002));
  EXPECT_STREQ("???", CommandCodeName(0x00000100)) << "bit 31 belongs to the code";
}

TEST(FrameTextTest, DebugAndTraceLines) {
  const FrameBytes command = EncodeCommand(CommandFrame{0x80000100, 0x05000000, 0, 0});
  EXPECT_EQ("[Sending 0x80000100 0x05000000 0x00000000 0x00000000]\n",
            SendingCommandText(command.data()));
  EXPECT_EQ("[Receivd 0x80000100 0x05000000 0x00000000 0x00000000]\n",
            ReceivedText(command.data()));
  EXPECT_EQ("[COMMAND] 80000100 05000000 00000000 00000000 (SET_OUT)", TraceText(command.data()));

  CanDataFrame data;
  data.id = 0x1234;
  data.dlc = 2;
  data.data = {0xAB, 0xCD};
  const FrameBytes bytes = EncodeCanData(data);
  EXPECT_EQ("[Sending 34 12 00 00 02 00 00 00 AB CD 00 00 00 00 00 00]\n",
            SendingDataText(bytes.data()));
  EXPECT_EQ("[DATA] 00001234 00000002 AB CD 00 00 00 00 00 00 (18/52)", TraceText(bytes.data()));
}

TEST(FrameTextTest, MonitorColumnsFollowTheDlcWithoutReadingPastTheFrame) {
  CanDataFrame frame;
  frame.dlc = 12;
  frame.info = 0x83;
  frame.flag_s = 1;
  frame.data = {1, 2, 3, 4, 5, 6, 7, 8};
  const FrameBytes bytes = EncodeCanData(frame);
  const MonitorColumns columns = MonitorColumnsOf(bytes.data());
  EXPECT_EQ("x-s", columns.type);
  EXPECT_EQ(3U, columns.channel);
  EXPECT_EQ(12U, columns.dlc);
  EXPECT_EQ("01 02 03 04 05 06 07 08 00 00 00 00 ", columns.data);
  frame.dlc = 0;
  frame.info = 0;
  frame.flag_s = 0;
  frame.flag_r = 7;
  const FrameBytes empty = EncodeCanData(frame);
  EXPECT_EQ("-r-", MonitorColumnsOf(empty.data()).type);
  EXPECT_EQ("", MonitorColumnsOf(empty.data()).data);
}

}  // namespace
}  // namespace kel
