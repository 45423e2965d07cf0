// The watch behind both monitors: it runs until stopped, or until its source fails.

#include "logging/source_watcher.h"

#include <gtest/gtest.h>

#include <atomic>

#include "platform/clock.h"

namespace kel {
namespace {

struct CountingSource {
  std::atomic<int> steps{0};
  int fail_after = -1;  // -1: never
};

bool WaitFor(const std::function<bool()>& done) {
  for (const uint64_t start = platform::MonotonicMs(); !done(); platform::SleepMs(2)) {
    if (platform::MonotonicMs() - start > 60000) return false;
  }
  return true;
}

TEST(SourceWatcherTest, RunsUntilStoppedOrUntilItsSourceFails) {
  struct Case {
    int fail_after;
    bool stopped_by_hand;
  };
  for (const Case c : {Case{-1, true}, Case{3, false}}) {
    SourceWatcher<CountingSource> watcher;
    auto source = std::make_unique<CountingSource>();
    source->fail_after = c.fail_after;
    CountingSource* seen = source.get();
    ASSERT_TRUE(watcher.Start(std::move(source), [](CountingSource& s) {
      platform::SleepMs(1);
      return ++s.steps != s.fail_after;
    }));
    ASSERT_TRUE(WaitFor([&] { return seen->steps >= 3; }));
    if (c.stopped_by_hand) {
      EXPECT_TRUE(watcher.Running());
      watcher.Stop();
    } else {
      EXPECT_TRUE(WaitFor([&] { return !watcher.Running(); }));
      EXPECT_EQ(3, seen->steps) << "no step after the failure";
      watcher.Stop();
    }
    EXPECT_FALSE(watcher.Running());
    watcher.Stop();  // harmless twice
  }
}

}  // namespace
}  // namespace kel
