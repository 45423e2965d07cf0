#include "core/wildcard.h"

#include <gtest/gtest.h>

#include <string>

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

TEST(MatchWildcardTest, ManyStarsStayCheap) {
  const std::string name(4000, 'a');
  EXPECT_FALSE(MatchWildcard(name, std::string(200, '*') + "b"));
  EXPECT_TRUE(MatchWildcard(name, "*a*a*a*" + std::string(100, '*')));
}

}  // namespace
}  // namespace kel
