// Workers as real child processes: their results are read back whole.

#include <gtest/gtest.h>

#include "can/workers.h"
#include "support/programs.h"

namespace kel {
namespace {

std::shared_ptr<WorkerSlot> Worker(std::vector<std::string> argv, bool capture = false) {
  auto slot = std::make_shared<WorkerSlot>();
  slot->argv = std::move(argv);
  slot->capture_output = capture;
  return slot;
}

TEST(WorkerPoolTest, ResultsComeBackAsTheChildsResultCode) {
  WorkerPool pool(2);
  const std::string kelcmd = testing::KelcmdPath();
  const size_t bad = pool.Launch(Worker({kelcmd, "nosuchcmd"}));
  const size_t good = pool.Launch(Worker({kelcmd, "debug", "socket"}, true));
  const size_t missing = pool.Launch(Worker({kelcmd + "-not-there"}));
  while (!pool.WaitAll(1000)) {
  }
  EXPECT_EQ(-100, pool.Outcome(bad).result);
  const WorkerOutcome ok = pool.Outcome(good);
  EXPECT_TRUE(ok.done);
  EXPECT_EQ(0, ok.result);
  EXPECT_EQ("socket = off\n", ok.captured);
  EXPECT_EQ(-1, pool.Outcome(missing).result) << "a worker that cannot start is Nok";
  EXPECT_EQ(0U, pool.Running());
}

TEST(WorkerPoolTest, APoolLetGoWhileWorkersRunLeavesThemToFinish) {
  {
    WorkerPool pool(4);
    pool.Launch(Worker({testing::KelcmdPath(), "delay", "300"}));
    EXPECT_EQ(1U, pool.Running());
  }
  // The worker's thread still owns what it needs; the sanitizer build checks that
  // nothing freed is touched when it ends.
  WorkerPool later(1);
  later.Launch(Worker({testing::KelcmdPath(), "delay", "600"}));
  while (!later.WaitAll(1000)) {
  }
  EXPECT_EQ(0, later.Outcome(0).result);
}

}  // namespace
}  // namespace kel
