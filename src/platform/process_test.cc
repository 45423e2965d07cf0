#include "platform/process.h"

#include <gtest/gtest.h>

namespace kel::platform {
namespace {

TEST(ExitStatusTest, ResultsSurviveTheRoundTripThroughAnExitStatus) {
  for (int32_t result : {0, -1, -10, -15, -100, -101, -110}) {
    EXPECT_EQ(result, ResultFromExitStatus(ExitStatusForResult(result))) << result;
  }
#ifdef _WIN32
  EXPECT_EQ(-100, ExitStatusForResult(-100)) << "a Windows exit code holds all 32 bits";
  EXPECT_EQ(static_cast<int32_t>(0xC000013A), ResultFromExitStatus(static_cast<int>(0xC000013A)));
#else
  EXPECT_EQ(156, ExitStatusForResult(-100)) << "eight bits on Linux";
  EXPECT_EQ(246, ExitStatusForResult(-10));
  EXPECT_EQ(0, ExitStatusForResult(256));
#endif
}

}  // namespace
}  // namespace kel::platform
