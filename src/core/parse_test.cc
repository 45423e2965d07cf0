#include "core/parse.h"

#include <gtest/gtest.h>

namespace kel {
namespace {

TEST(SplitWordTest, TakesWordsOffTheFrontByEveryRule) {
  std::string_view text = "  \t help  \"a b\";next";
  EXPECT_EQ("help", SplitWord(text, kWordSeparators, 64));
  EXPECT_EQ("\"a b\"", SplitWord(text, kWordSeparators, 64)) << "quotes keep separators";
  EXPECT_EQ(";next", text) << "separators stay unless asked to drop";
  EXPECT_EQ("", SplitWord(text, kWordSeparators, 64)) << "a leading ';' gives an empty word";

  const std::string line = std::string(100, 'x') + " tail";
  text = line;
  EXPECT_EQ(std::string(63, 'x'), SplitWord(text, kWordSeparators, 64));
  EXPECT_EQ(" tail", text) << "the copy is cut, the word is consumed whole";

  text = "a,,,b";
  EXPECT_EQ("a", SplitWord(text, kListSeparators, 64, 2));
  EXPECT_EQ(",b", text) << "at most two separators dropped";
  text = "\"never closed; at all";
  EXPECT_EQ("\"never closed; at all", SplitWord(text, kWordSeparators, 64));
}

TEST(TrimTest, TrimsBlanksAndControlsAndUnquotes) {
  EXPECT_EQ("a b", TrimText("\r\n\t a b \r\n"));
  EXPECT_EQ("", TrimText(" \x01\x7f "));
  EXPECT_EQ("x y", Unquote("  \"x y\"  "));
  EXPECT_EQ("\"x", Unquote("\"x"));
}

TEST(ParseValueTest, FollowsEveryRuleInOrder) {
  struct Case {
    const char* text;
    uint32_t value;
  };
  const Case cases[] = {{"", 0},
                        {"0x1F", 31},
                        {"0x12_34", 0x1234},
                        {"0b11", 0x11},
                        {"'a'", 97},
                        {"'AB'", 0x4142},
                        {"''", 0},
                        {"ON", 1},
                        {"TrueColor", 1},
                        {"offset", 0},
                        {"off", 0},
                        {"12", 12},
                        {"-1", 0xFFFFFFFF},
                        {"  42abc", 42},
                        {"0x", 0},
                        {"99999999999", 2147483647}};
  for (const Case& c : cases) EXPECT_EQ(c.value, ParseValue(c.text)) << c.text;
  EXPECT_EQ(-3, ParseDecimal(" -3x"));
  EXPECT_EQ(15, HexDigitValue('f'));
  EXPECT_EQ(-1, HexDigitValue('g'));
}

TEST(ParseDurationTest, ReadsNumbersUnitsAndWords) {
  struct Case {
    const char* text;
    double ms;
  };
  const Case cases[] = {{"10", 10},        {"10ms", 10},
                        {"1s", 1000},      {"0.25s", 250},
                        {"2m", 120000},    {"1.5h", 5400000},
                        {"1d", 86400000},  {"1w", 604800000},
                        {"10ms*1000", 10}, {"forever", 2147483647},
                        {"Forever", 0},    {"minute", 60000},
                        {"-5", -5},        {"junk", 0}};
  for (const Case& c : cases) EXPECT_DOUBLE_EQ(c.ms, ParseDuration(c.text)) << c.text;
  EXPECT_EQ(0U, TruncateToU32(-5));
  EXPECT_EQ(0U, TruncateToU32(ParseDuration("nan")));
  EXPECT_EQ(0xFFFFFFFFU, TruncateToU32(ParseDuration("1e30")));
}

TEST(InetAddrTest, ReadsDottedAddressesLikeTheSocketsLibrary) {
  EXPECT_EQ(0x0100007FU, InetAddr("127.0.0.1"));
  EXPECT_EQ(0x7F000001U, InetAddr("1.0.0.127"));
  EXPECT_EQ(0x0100007FU, InetAddr("0x7f.1 "));
  EXPECT_EQ(0U, InetAddr("0.0.0.0"));
  for (const char* bad : {"", "x", "1.2.3.256", "1.2.3.4.5", "1..2", "1.2.3.4x", "09"}) {
    EXPECT_EQ(kInetNone, InetAddr(bad)) << bad;
  }
}

}  // namespace
}  // namespace kel
