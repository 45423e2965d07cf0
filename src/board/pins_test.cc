#include "board/pins.h"

#include <gtest/gtest.h>

#include "board/control_commands.h"

namespace kel {
namespace {

TEST(PinNameTest, FourFormsAndUnknownIndexes) {
  EXPECT_EQ("23V power", PinName(10, false, false));
  EXPECT_EQ("23V", PinName(10, false, true));
  EXPECT_EQ("P5.7", PinName(10, true, false));
  EXPECT_EQ("b10", PinName(10, true, true));
  EXPECT_EQ("USB 5V power", PinName(3, false, true)) << "no short id of its own";
  for (int index : {0, 15, -1, 99}) EXPECT_EQ("???", PinName(index, true, true)) << index;
}

TEST(PinChoicesTest, EveryPinsFourNamesInSelectorOrder) {
  const std::string text = PinChoices();
  EXPECT_EQ(0U, text.find("'P0.13'/'b1'/'D9 12V power'/'D9', 'P0.14'/'b2'/"));
  const std::string tail = ", 'P5.5'/'b14'/'3.7V power'/'EN_3V7'";
  ASSERT_GE(text.size(), tail.size());
  EXPECT_EQ(tail, text.substr(text.size() - tail.size()));
}

TEST(ParsePinListTest, NamesNumbersAndLists) {
  struct Case {
    const char* text;
    uint16_t mask;
  };
  const Case cases[] = {
      {"23V,CAN1", (1 << 10) | (1 << 8)},
      {"p2.6", 1 << 8},
      {"B8", 1 << 8},
      {"can1 23v power", 1 << 8},
      {"Modem reset", 1 << 13},
      {"EN_3V7;d9", (1 << 14) | (1 << 1)},
      {"0x0100", 1 << 8},
      {"0100", 100},
      {"1x3", 1},
      {"CAN1,CAN9", 1 << 8},
      {"???", (1 << 0) | (1 << 15)},
      {"nothing", 0},
      {" CAN2 , ,b1,", (1 << 4) | (1 << 1)},
      {"0x12345", 0x2345},
  };
  for (const Case& c : cases) EXPECT_EQ(c.mask, ParsePinList(c.text)) << c.text;
}

TEST(ParseBitRateTest, IndexesAndRatesWithSuffixes) {
  struct Case {
    const char* text;
    int index;
  };
  const Case cases[] = {
      {"3", 3},  {"250000", 3}, {"250k", 3},    {"0.25M", 3},      {"1000000", 5},
      {"1M", 5}, {"100k", 1},   {"125000", 2},  {"500K", 4},       {"1", 1},
      {"0", 0},  {"6", 0},      {"200000", 0},  {"2.5", 0},        {"-3", 0},
      {"x", 0},  {"", 0},       {"1000001", 0}, {"5000000000", 0},
  };
  for (const Case& c : cases) EXPECT_EQ(c.index, ParseBitRate(c.text)) << c.text;
  EXPECT_STREQ("1 Mbaud", BitRateName(5));
  EXPECT_STREQ("???", BitRateName(0));
}

}  // namespace
}  // namespace kel
