// Threads with an owner: joined when they end in time, detached (never killed) when not.

#include "platform/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>

#include "platform/clock.h"

namespace kel::platform {
namespace {

TEST(ThreadTest, JoinsABodyThatEndsInTimeAndDetachesOneStillRunningAtTheLimit) {
  // Shared, so that a detached body may outlive the test's stack.
  auto open = std::make_shared<std::atomic<bool>>(false);
  auto passed = std::make_shared<std::atomic<int>>(0);
  const auto body = [open, passed] {
    while (!*open) SleepMs(1);
    ++*passed;
  };
  {
    Thread thread;
    ASSERT_TRUE(thread.Start(body));
    EXPECT_FALSE(thread.Start([] {})) << "one thread per owner";
    EXPECT_FALSE(thread.JoinFor(20));
    EXPECT_FALSE(thread.Owned()) << "detached at the limit";
    EXPECT_TRUE(thread.JoinFor(0)) << "nothing left to join";
  }
  *open = true;
  Thread thread;
  ASSERT_TRUE(thread.Start(body));
  EXPECT_TRUE(thread.JoinFor(20000));
  EXPECT_TRUE(thread.Finished());
  for (int i = 0; i < 20000 && *passed < 2; ++i) SleepMs(1);
  EXPECT_EQ(2, *passed) << "the detached body ran on to its end";

  ASSERT_TRUE(thread.Start([] { throw std::runtime_error("body failed"); }));
  EXPECT_TRUE(thread.JoinFor(20000)) << "an exception ends only the body";
}

}  // namespace
}  // namespace kel::platform
