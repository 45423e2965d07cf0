// The texts of the log format byte for byte, and the time stamps of its rows.

#include "logging/busmaster_format.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <functional>
#include <string>
#include <vector>

namespace kel {
namespace {

std::string Stamp(RowClock& clock, int64_t seconds, int milliseconds) {
  char text[kRowTimeSize];
  return std::string(text, clock.Stamp(platform::WallTime{seconds, milliseconds}, text));
}

TEST(BusmasterTextTest, DateTimeHeaderFooterAndNoteLines) {
  EXPECT_EQ("07:03:2024 14:05:09:042", DateTimeText({2024, 3, 7, 14, 5, 9, 42}));
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
  EXPECT_EQ("***NOTE: 100% %s***\r\n", NoteText("100% %s")) << "the text is no format";
  EXPECT_EQ("***NOTE: <null>***\r\n", NoteText(nullptr));
}

TEST(BusmasterTextTest, RowFields) {
  const struct {
    CanRow row;
    const char* fields;
  } cases[] = {
      {{false, 1, 0x123, false, 3, {1, 2, 0xFF}}, "Rx 1 0x123 s 3 01 02 FF "},
      {{false, 2, 0x5, false, 1, {0xab}}, "Rx 2 0x005 s 1 AB "},  // three digits at least
      {{false, 4, 0x1ABCDEF0, true, 2, {0, 0x10}}, "Rx 4 0x1abcdef0 x 2 00 10 "},
      {{true, 16, 0x7FF, false, 12, {1, 2, 3, 4, 5, 6, 7, 8}},  // eight bytes at most
       "Tx 16 0x7ff s 12 01 02 03 04 05 06 07 08 "},
      {{false, -1, 0xFFFFFFFF, true, -5, {}}, "Rx -1 0xffffffff x -5 "},
  };
  char text[kMaxRowSize];
  for (const auto& c : cases) {
    EXPECT_EQ("14:05:09:0420 " + std::string(c.fields) + "\r\n",
              std::string(text, FormatRow("14:05:09:0420", c.row, text)));
  }
  const CanRow widest{true, INT_MIN, 0xFFFFFFFF, true, INT_MIN, {}};
  EXPECT_LE(FormatRow(std::string(kRowTimeSize - 1, '9'), widest, text), kMaxRowSize);
}

TEST(RowClockTest, LocalTimeThenASuffixThatGrowsWithinTheMillisecond) {
  RowClock clock;
  for (const platform::WallTime time : {platform::WallTime{1709820309, 42}, {1709820310, 7}}) {
    EXPECT_EQ(DateTimeText(platform::ToLocalTime(time)).substr(11) + "0",
              Stamp(clock, time.seconds, time.milliseconds));
  }
  std::vector<std::string> suffixes;
  for (int i = 0; i < 172; ++i) suffixes.push_back(Stamp(clock, 7, 0).substr(12));
  std::string first;
  for (int i = 0; i < 29; ++i) first += suffixes[static_cast<size_t>(i)] + " ";
  EXPECT_EQ(
      "0 1 2 3 4 5 6 7 8 9 91 92 93 94 95 96 97 98 99 991 992 993 994 995 996 997 998 999 9991 ",
      first);
  // Read as decimal fractions they grow; the texts (no trailing zeros) sort alike.
  EXPECT_EQ(suffixes.end(), std::adjacent_find(suffixes.begin(), suffixes.end(),
                                               std::greater_equal<std::string>()));
  EXPECT_EQ(std::string(19, '9'), suffixes.back()) << "the last that a 64-bit counter reaches";
  EXPECT_EQ(suffixes.back(), Stamp(clock, 7, 0).substr(12)) << "later rows repeat it";
  EXPECT_EQ("0", Stamp(clock, 7, 1).substr(12)) << "a new millisecond starts over";
  EXPECT_EQ("0", Stamp(clock, 8, 1).substr(12)) << "so does the same one of another second";
  EXPECT_EQ("1", Stamp(clock, 8, 1).substr(12));
}

TEST(RowClockTest, ACopyThatSkipsRowsLeavesTheClockWhereStampingThemWould) {
  // Skip hands a block of rows over to a copy of the clock: afterwards the original stamps
  // exactly what it would have stamped after as many rows of its own, and the copy stamps
  // those rows.
  struct Case {
    size_t before;  // rows stamped in millisecond 0 before the skip
    int millisecond;
    size_t skipped;
  };
  for (const Case c : {Case{0, 0, 0},
                       {0, 0, 1},
                       {3, 0, 7},
                       {9, 0, 1},
                       {3, 0, 40},
                       {0, 0, 171},
                       {5, 0, 300},
                       {5, 1, 0},
                       {5, 1, 12}}) {
    RowClock stamped;
    RowClock skipped;
    for (size_t i = 0; i < c.before; ++i) {
      Stamp(stamped, 7, 0);
      Stamp(skipped, 7, 0);
    }
    RowClock copy = skipped;
    skipped.Skip(platform::WallTime{7, c.millisecond}, c.skipped);
    for (size_t i = 0; i < c.skipped; ++i) {
      ASSERT_EQ(Stamp(stamped, 7, c.millisecond), Stamp(copy, 7, c.millisecond)) << i;
    }
    EXPECT_EQ(Stamp(stamped, 7, c.millisecond), Stamp(skipped, 7, c.millisecond))
        << c.before << " " << c.skipped;
    EXPECT_EQ(Stamp(stamped, 7, 2), Stamp(skipped, 7, 2));
  }
}

}  // namespace
}  // namespace kel
