#include "can/regression_tests.h"

#include <gtest/gtest.h>

namespace kel {
namespace {

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
