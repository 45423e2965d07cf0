#include "can/regression_tests.h"

#include <gtest/gtest.h>

namespace kel {
namespace {

TEST(MatchWildcardTest, StarsQuestionMarksCaseAndSkippedCharacters) {
  struct Case {
    const char* name;
    const char* pattern;
    bool match;
  };
  const Case cases[] = {
      {"sync", "sync", true},   {"sync2", "sync", false}, {"sync2", "sync*", true},
      {"sync", "sync*", true},  {"SYNC", "s?nc", true},   {"sync", "s?c", false},
      {"rank1", "*1", true},    {"rank1", "*", true},     {"", "*", true},
      {"recv", "r*v", true},    {"rank1", "r*v", false},  {"send", "\"send\"", true},
      {"send", "se\\nd", true}, {"send", "", false},      {"send", "**d", true},
      {"send", "????", true},   {"send", "?????", false},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.match, MatchWildcard(c.name, c.pattern)) << c.name << " ~ " << c.pattern;
  }
}

TEST(RegressionTestsTest, TheTableHoldsTheFiveTestsInOrder) {
  const std::vector<TestEntry>& tests = RegressionTests();
  ASSERT_EQ(5U, tests.size());
  const char* names[] = {"send", "recv", "sync", "sync2", "rank1"};
  for (size_t i = 0; i < tests.size(); ++i) EXPECT_EQ(names[i], tests[i].name);
  EXPECT_EQ(3U, tests[3].m_commands.size());
  EXPECT_EQ(6U, tests[4].s_commands.size());
}

}  // namespace
}  // namespace kel
