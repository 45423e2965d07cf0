#include "platform/thread.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <system_error>

namespace kel::platform {

// Shared by the owner and the thread, so a detached thread never touches freed memory.
struct Thread::Done {
  std::mutex mutex;
  std::condition_variable changed;
  bool finished = false;
};

Thread::~Thread() { JoinFor(kThreadJoinLimitMs); }

Thread& Thread::operator=(Thread&& other) noexcept {
  if (this != &other) {
    JoinFor(kThreadJoinLimitMs);
    done_ = std::move(other.done_);
    thread_ = std::move(other.thread_);
  }
  return *this;
}

bool Thread::Start(std::function<void()> body) {
  if (thread_.joinable()) return false;
  auto done = std::make_shared<Done>();
  try {
    thread_ = std::thread([done, body = std::move(body)] {
      try {
        body();
      } catch (...) {
        // Exceptions never cross a thread: the body is over either way.
      }
      std::lock_guard lock(done->mutex);
      done->finished = true;
      done->changed.notify_all();
    });
  } catch (const std::system_error&) {
    return false;
  }
  done_ = std::move(done);
  return true;
}

bool Thread::Finished() const {
  if (!thread_.joinable()) return true;
  std::lock_guard lock(done_->mutex);
  return done_->finished;
}

bool Thread::WaitFor(int timeout_ms) const {
  if (!thread_.joinable()) return true;
  std::unique_lock lock(done_->mutex);
  return done_->changed.wait_for(lock, std::chrono::milliseconds(timeout_ms),
                                 [this] { return done_->finished; });
}

bool Thread::JoinFor(int timeout_ms) {
  if (!thread_.joinable()) return true;
  const bool finished = WaitFor(timeout_ms);
  if (finished) {
    thread_.join();
  } else {
    thread_.detach();
  }
  done_.reset();
  return finished;
}

void YieldThread() { std::this_thread::yield(); }

}  // namespace kel::platform
