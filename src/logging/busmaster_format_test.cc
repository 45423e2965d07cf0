#include "logging/busmaster_format.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

namespace kel {
namespace {

std::string Stamp(RowClock& clock, int64_t seconds, int milliseconds) {
  char text[kRowTimeSize];
  const size_t length = clock.Stamp(platform::WallTime{seconds, milliseconds}, text);
  EXPECT_EQ(std::string(text).size(), length) << "zero terminated at its length";
  return std::string(text, length);
}

std::string Row(const CanRow& row, std::string_view time = "14:05:09:0420") {
  char text[kMaxRowSize];
  return std::string(text, FormatRow(time, row, text));
}

TEST(BusmasterTextTest, DateTimeHasColonsBetweenDayMonthAndYear) {
  EXPECT_EQ("07:03:2024 14:05:09:042", DateTimeText({2024, 3, 7, 14, 5, 9, 42}));
  EXPECT_EQ("31:12:1999 23:59:59:999", DateTimeText({1999, 12, 31, 23, 59, 59, 999}));
  EXPECT_EQ("01:01:0042 00:00:00:000", DateTimeText({42, 1, 1, 0, 0, 0, 0}));
}

TEST(BusmasterTextTest, HeaderFooterAndNoteLines) {
  EXPECT_EQ(
      "***BUSMASTER Ver 3***\r\n"
      "***PROTOCOL CAN***\r\n"
      "***NOTE: PLEASE DO NOT EDIT THIS DOCUMENT***\r\n"
      "***[START LOGGING SESSION]***\r\n"
      "***START DATE AND TIME 07:03:2024 14:05:09:042***\r\n"
      "***HEX***\r\n"
      "***SYSTEM MODE***\r\n"
      "***START CHANNEL BAUD RATE***\r\n"
      "***END CHANNEL BAUD RATE***\r\n"
      "***START DATABASE FILES***\r\n"
      "***END DATABASE FILES***\r\n"
      "***<Time><Tx/Rx><Channel><CAN ID><Type><DLC><DataBytes>***\r\n",
      HeaderText("07:03:2024 14:05:09:042"));
  EXPECT_EQ(
      "***END DATE AND TIME 07:03:2024 14:05:10:001***\r\n"
      "***[STOP LOGGING SESSION]***\r\n",
      FooterText("07:03:2024 14:05:10:001"));
  EXPECT_EQ("***NOTE: COMMENT 'hello'***\r\n", NoteText("COMMENT 'hello'"));
  EXPECT_EQ("***NOTE: <null>***\r\n", NoteText(nullptr));
  EXPECT_EQ("***NOTE: 100% %s***\r\n", NoteText("100% %s")) << "the text is not a format";
}

TEST(BusmasterRowTest, FieldsFollowTheRowFormat) {
  struct Case {
    const char* rule;
    CanRow row;
    const char* text;
  };
  const Case cases[] = {
      {"example",
       {false, 1, 0x123, false, 3, {1, 2, 0xFF}},
       "14:05:09:0420 Rx 1 0x123 s 3 01 02 FF \r\n"},
      {"id padded to three digits",
       {false, 2, 0x5, false, 1, {0xab}},
       "14:05:09:0420 Rx 2 0x005 s 1 AB \r\n"},
      {"extended id",
       {false, 4, 0x1ABCDEF0, true, 2, {0, 0x10}},
       "14:05:09:0420 Rx 4 0x1abcdef0 x 2 00 10 \r\n"},
      {"no data", {false, 16, 0x7FF, false, 0, {1, 2}}, "14:05:09:0420 Rx 16 0x7ff s 0 \r\n"},
      {"dlc above 8 shows 8 bytes",
       {false, 1, 0x100, false, 12, {1, 2, 3, 4, 5, 6, 7, 8}},
       "14:05:09:0420 Rx 1 0x100 s 12 01 02 03 04 05 06 07 08 \r\n"},
      {"transmitted",
       {true, 3, 0x0, false, 8, {}},
       "14:05:09:0420 Tx 3 0x000 s 8 00 00 00 00 00 00 00 00 \r\n"},
      {"negative numbers",
       {false, -1, 0xFFFFFFFF, true, -5, {}},
       "14:05:09:0420 Rx -1 0xffffffff x -5 \r\n"},
  };
  for (const Case& c : cases) EXPECT_EQ(c.text, Row(c.row)) << c.rule;
}

TEST(BusmasterRowTest, WidestRowFitsItsBuffer) {
  const CanRow widest{true, -2147483647 - 1, 0xFFFFFFFF, true, -2147483647 - 1, {}};
  const std::string time(kRowTimeSize - 1, '9');
  EXPECT_LE(Row(widest, time).size(), kMaxRowSize);
}

TEST(RowClockTest, TimeIsLocalTimeWithMillisecondsAndSuffix) {
  RowClock clock;
  const int64_t seconds = 1709820309;
  const platform::LocalTime local = platform::ToLocalTime({seconds, 0});
  char expected[64];
  std::snprintf(expected, sizeof expected, "%02d:%02d:%02d:%03d0", local.hour, local.minute,
                local.second, 42);
  EXPECT_EQ(expected, Stamp(clock, seconds, 42));
  const platform::LocalTime next = platform::ToLocalTime({seconds + 1, 0});
  std::snprintf(expected, sizeof expected, "%02d:%02d:%02d:%03d0", next.hour, next.minute,
                next.second, 7);
  EXPECT_EQ(expected, Stamp(clock, seconds + 1, 7)) << "the cached second moves on";
}

TEST(RowClockTest, SuffixSequenceWithinOneMillisecond) {
  RowClock clock;
  std::vector<std::string> suffixes;
  for (int i = 0; i < 30; ++i) suffixes.push_back(Stamp(clock, 1000, 5).substr(12));
  const std::vector<std::string> expected = {
      "0",   "1",   "2",   "3",   "4",   "5",   "6",   "7",   "8",    "9",
      "91",  "92",  "93",  "94",  "95",  "96",  "97",  "98",  "99",   "991",
      "992", "993", "994", "995", "996", "997", "998", "999", "9991", "9992"};
  EXPECT_EQ(expected, suffixes);
}

TEST(RowClockTest, SuffixRestartsWhenTheMillisecondChanges) {
  RowClock clock;
  EXPECT_EQ("0", Stamp(clock, 1000, 5).substr(12));
  EXPECT_EQ("1", Stamp(clock, 1000, 5).substr(12));
  EXPECT_EQ("0", Stamp(clock, 1000, 6).substr(12));
  EXPECT_EQ("0", Stamp(clock, 1000, 5).substr(12)) << "any other reading restarts it";
  EXPECT_EQ("0", Stamp(clock, 1001, 5).substr(12)) << "same millisecond, other second";
}

TEST(RowClockTest, SuffixesOfOneMillisecondSortAsGrowingFractions) {
  RowClock clock;
  std::string previous;  // "" sorts before every suffix
  for (int i = 0; i < 172; ++i) {
    // Decimal fractions without trailing zeros compare like their digit texts.
    const std::string fraction = Stamp(clock, 7, 0).substr(12);
    if (i > 0) {
      ASSERT_NE('0', fraction.back()) << "row " << i;
    }
    ASSERT_LT(previous, fraction) << "row " << i;
    previous = fraction;
  }
  EXPECT_EQ(std::string(19, '9'), previous) << "the last suffix a 64-bit counter reaches";
  EXPECT_EQ(previous, Stamp(clock, 7, 0).substr(12)) << "later rows repeat it";
  EXPECT_EQ(previous, Stamp(clock, 7, 0).substr(12));
  EXPECT_EQ("0", Stamp(clock, 7, 1).substr(12));
}

}  // namespace
}  // namespace kel
