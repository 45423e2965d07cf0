#include "shell/parse.h"

#include <gtest/gtest.h>

namespace kel {
namespace {

TEST(SplitWordTest, TakesWordsOffTheFront) {
  std::string_view text = "  \t help  me;next";
  EXPECT_EQ("help", SplitWord(text, kWordSeparators, 64));
  EXPECT_EQ("  me;next", text);
  EXPECT_EQ("me", SplitWord(text, kWordSeparators, 64));
  EXPECT_EQ(";next", text) << "separators stay unless asked to drop";
  EXPECT_EQ("", SplitWord(text, kWordSeparators, 64)) << "a leading ';' gives an empty word";
}

TEST(SplitWordTest, QuotedRunsKeepSeparatorsAndQuotes) {
  std::string_view text = "\"a b\";c";
  EXPECT_EQ("\"a b\"", SplitWord(text, kWordSeparators, 64));
  EXPECT_EQ(";c", text);
  std::string_view open = "\"never closed; at all";
  EXPECT_EQ("\"never closed; at all", SplitWord(open, kWordSeparators, 64));
  EXPECT_TRUE(open.empty());
}

TEST(SplitWordTest, CutsTheCopyButConsumesTheWholeWord) {
  const std::string line = std::string(100, 'x') + " tail";
  std::string_view text = line;
  EXPECT_EQ(std::string(63, 'x'), SplitWord(text, kWordSeparators, 64));
  EXPECT_EQ(" tail", text);
}

TEST(SplitWordTest, DropsAtMostTheGivenNumberOfSeparators) {
  std::string_view text = "a,,,b";
  EXPECT_EQ("a", SplitWord(text, kListSeparators, 64, 2));
  EXPECT_EQ(",b", text);
}

TEST(TrimTest, TrimsBlanksAndControlsAndUnquotes) {
  EXPECT_EQ("a b", TrimText("\r\n\t a b \r\n"));
  EXPECT_EQ("", TrimText(" \x01\x7f "));
  EXPECT_EQ("x y", Unquote("  \"x y\"  "));
  EXPECT_EQ("\"x", Unquote("\"x"));
  EXPECT_EQ("", Unquote("\"\""));
}

TEST(ParseValueTest, FollowsEveryRuleInOrder) {
  struct Case {
    const char* text;
    uint32_t value;
  };
  const Case cases[] = {
      {"", 0},
      {"0x1F", 31},
      {"0X1f", 31},
      {"0x12_34", 0x1234},
      {"0b11", 0x11},
      {"0b101", 0x101},
      {"'a'", 97},
      {"'AB'", 0x4142},
      {"''", 0},
      {"on", 1},
      {"ON", 1},
      {"TrueColor", 1},
      {"true", 1},
      {"offset", 0},
      {"off", 0},
      {"FALSE", 0},
      {"12", 12},
      {"-1", 0xFFFFFFFF},
      {"  42abc", 42},
      {"x", 0},
      {"0x", 0},
      {"0xZZ", 0},
      {"99999999999", 2147483647},
  };
  for (const Case& c : cases) EXPECT_EQ(c.value, ParseValue(c.text)) << c.text;
}

TEST(ParseDurationTest, ReadsNumbersUnitsAndWords) {
  struct Case {
    const char* text;
    double ms;
  };
  const Case cases[] = {
      {"10", 10},
      {"10ms", 10},
      {"1s", 1000},
      {"0.25s", 250},
      {"2m", 120000},
      {"1.5h", 5400000},
      {"1d", 86400000},
      {"1w", 604800000},
      {"10ms*1000", 10},
      {"10*5", 10},
      {"forever", 2147483647},
      {"Forever", 0},
      {"sec", 1000},
      {"minute", 60000},
      {"hour", 3600000},
      {"day", 86400000},
      {"week", 604800000},
      {"-5", -5},
      {"junk", 0},
  };
  for (const Case& c : cases) EXPECT_DOUBLE_EQ(c.ms, ParseDuration(c.text)) << c.text;
}

TEST(ParseDurationTest, TruncatesToUnsignedWithinRange) {
  EXPECT_EQ(0U, TruncateToU32(-5));
  EXPECT_EQ(0U, TruncateToU32(ParseDuration("nan")));
  EXPECT_EQ(1500U, TruncateToU32(1500.9));
  EXPECT_EQ(0xFFFFFFFFU, TruncateToU32(ParseDuration("1e30")));
}

TEST(ParseDecimalTest, UsesTheLeadingDigitsRule) {
  EXPECT_EQ(27016, ParseDecimal("27016"));
  EXPECT_EQ(-3, ParseDecimal(" -3x"));
  EXPECT_EQ(0, ParseDecimal("port"));
  EXPECT_EQ(0, ParseDecimal(""));
}

TEST(HexDigitTest, CoversAllDigitsAndRejectsOthers) {
  EXPECT_EQ(0, HexDigitValue('0'));
  EXPECT_EQ(15, HexDigitValue('f'));
  EXPECT_EQ(10, HexDigitValue('A'));
  EXPECT_EQ(-1, HexDigitValue('g'));
  EXPECT_EQ(-1, HexDigitValue('\xff'));
}

TEST(InetAddrTest, ReadsDottedAddressesLikeTheSocketsLibrary) {
  EXPECT_EQ(0x0100007FU, InetAddr("127.0.0.1"));
  EXPECT_EQ(0x7F000001U, InetAddr("1.0.0.127"));
  EXPECT_EQ(0x0100007FU, InetAddr("0x7f.1"));
  EXPECT_EQ(0x0100007FU, InetAddr("127.0.0.1 "));
  EXPECT_EQ(0U, InetAddr("0.0.0.0"));
  EXPECT_EQ(kInetNone, InetAddr("255.255.255.255"));
  for (const char* bad : {"", "x", "1.2.3.256", "1.2.3.4.5", "1..2", "1.2.3.4x", "09"}) {
    EXPECT_EQ(kInetNone, InetAddr(bad)) << bad;
  }
}

}  // namespace
}  // namespace kel
