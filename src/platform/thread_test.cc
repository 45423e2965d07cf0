// Threads with an owner: joined when they end in time, detached (never killed) when not.

#include "platform/thread.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <stdexcept>

namespace kel::platform {
namespace {

// A gate a body waits at until the test opens it; shared, so that a detached body may
// outlive the test's stack.
struct Gate {
  std::mutex mutex;
  std::condition_variable changed;
  bool open = false;
  bool passed = false;

  void Open() {
    std::lock_guard lock(mutex);
    open = true;
    changed.notify_all();
  }
  void Pass() {
    std::unique_lock lock(mutex);
    changed.wait(lock, [this] { return open; });
    passed = true;
    changed.notify_all();
  }
  bool WaitPassed() {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, std::chrono::seconds(20), [this] { return passed; });
  }
};

TEST(ThreadTest, JoinsABodyThatEndsInTime) {
  auto gate = std::make_shared<Gate>();
  Thread thread;
  ASSERT_TRUE(thread.Start([gate] { gate->Pass(); }));
  EXPECT_TRUE(thread.Owned());
  EXPECT_FALSE(thread.Start([] {})) << "one thread per owner";
  gate->Open();
  EXPECT_TRUE(thread.JoinFor(20000));
  EXPECT_FALSE(thread.Owned());
  EXPECT_TRUE(thread.Finished());
  EXPECT_TRUE(gate->passed);
  EXPECT_TRUE(thread.JoinFor(0)) << "nothing left to join";
}

TEST(ThreadTest, DetachesABodyStillRunningAtTheLimitAndLetsItFinish) {
  auto gate = std::make_shared<Gate>();
  {
    Thread thread;
    ASSERT_TRUE(thread.Start([gate] { gate->Pass(); }));
    EXPECT_FALSE(thread.Finished());
    EXPECT_FALSE(thread.JoinFor(20));
    EXPECT_FALSE(thread.Owned());
  }
  gate->Open();
  EXPECT_TRUE(gate->WaitPassed()) << "the detached body runs on to its end";
}

TEST(ThreadTest, AnExceptionEndsOnlyTheBody) {
  Thread thread;
  ASSERT_TRUE(thread.Start([] { throw std::runtime_error("body failed"); }));
  EXPECT_TRUE(thread.JoinFor(20000));
}

TEST(ThreadTest, MovingJoinsTheThreadOwnedBefore) {
  bool first_ran = false;
  Thread thread;
  ASSERT_TRUE(thread.Start([&first_ran] { first_ran = true; }));
  Thread other;
  ASSERT_TRUE(other.Start([] {}));
  thread = std::move(other);
  EXPECT_TRUE(first_ran);
  EXPECT_TRUE(thread.Owned());
  EXPECT_TRUE(thread.JoinFor(20000));
}

}  // namespace
}  // namespace kel::platform
