#include "core/safe_format.h"

#include <gtest/gtest.h>

namespace kel {
namespace {

TEST(RenderOutputTest, InterpretsConversionsWithoutArguments) {
  struct Case {
    std::string_view format;
    std::string_view printed;
  };
  const Case cases[] = {
      {"plain\r\n", "plain\r\n"},
      {"100%% done", "100% done"},
      {"a%db", "a0b"},
      {"[%5d]", "[    0]"},
      {"[%-3u]", "[0  ]"},
      {"%08X", "00000000"},
      {"[%s]", "[]"},
      {"[%4s]", "[    ]"},
      {"%n%s%n", ""},
      {"%*d", "0"},
      {"%.2f", "0.00"},
      {"%lld %I64u %zu", "0 0 0"},
      {"50%", "50"},
      {"%y", "%y"},
      {std::string_view("a\0b", 3), "a"},
  };
  for (const Case& c : cases) EXPECT_EQ(c.printed, RenderOutput(c.format)) << c.format;
}

TEST(RenderOutputTest, SurvivesHostileFormats) {
  const std::string many(10000, '%');
  EXPECT_EQ(std::string(5000, '%'), RenderOutput(many));
  EXPECT_EQ(99999U, RenderOutput("%999999999999d").size());
  EXPECT_EQ(std::string(3, '\0'), RenderOutput("%c%c%c"));
}

}  // namespace
}  // namespace kel
