// The log's debug-output monitor between two kelcmd processes: the first one to start
// takes the debug output, the second logs without it.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "platform/clock.h"
#include "platform/debug_output.h"
#include "platform/subprocess.h"
#include "support/fake_sysfs.h"
#include "support/programs.h"
#include "support/temp_dir.h"

namespace kel {
namespace {

constexpr int kWaitMs = 60000;

TEST(MonitorsEndToEndTest, SecondKelcmdLogsWithoutTheDebugOutputTheFirstHolds) {
#ifdef _WIN32
  GTEST_SKIP() << "Windows has one debug output for the whole machine, which the monitor "
                  "tests of the logging service take; this one would race them";
#else
  testing::TempDir dir;
  const testing::ScopedEnvironment runtime("XDG_RUNTIME_DIR", dir.Path().string());
  const std::string socket = platform::DebugOutputPath();
  // Logging connects from the proxy port: one nobody listens on, so only notes are logged.
  testing::WriteFile(dir.File("kelcmd.ini"), "[PROXY]\nProxyPort = 1\n");
  platform::ChildProcess first;
  platform::ChildProcess::Options options;
  options.output = platform::ChildProcess::OutputMode::kDiscard;
  options.working_dir = dir.Path().string();
  ASSERT_TRUE(first.Start({testing::KelcmdPath(), "log debug on;log start;delay 5m"}, options));
  for (const uint64_t start = platform::MonotonicMs(); !std::filesystem::exists(socket);
       platform::SleepMs(10)) {
    ASSERT_LT(platform::MonotonicMs() - start, uint64_t{kWaitMs}) << "the first never took it";
  }
  const testing::ProgramRun second = testing::RunKelcmd(
      {"log debug on;log start;log comment second;log"}, "", dir.Path().string());
  first.Terminate();
  first.Wait(kWaitMs);
  EXPECT_EQ(0, second.status) << second.output;
  EXPECT_NE(std::string::npos, second.output.find("Logging is active and running"))
      << second.output;
  EXPECT_EQ(std::string::npos, second.output.find("WinDebug monitor")) << second.output;
#endif
}

}  // namespace
}  // namespace kel
