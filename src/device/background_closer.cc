#include "device/background_closer.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <vector>

#include "platform/socket_options.h"

namespace kel {
namespace {

// While connections wait, the thread looks at them this often.
constexpr std::chrono::milliseconds kLookEvery{10};

}  // namespace

struct BackgroundCloser::State {
  struct Waiting {
    platform::Socket socket;
    uint64_t since_ms;
  };

  std::mutex mutex;
  std::condition_variable changed;
  std::deque<Waiting> waiting;  // guarded by mutex, like the rest
  bool stop = false;
  bool idle = false;  // the thread sleeps until woken: nothing waited when it last looked

  // Closes the connections whose peer has closed, or whose wait is over; no call waits.
  void CloseEnded() {
    std::erase_if(waiting,
                  [](Waiting& w) { return platform::CloseIfPeerEnded(w.socket, w.since_ms); });
  }

  // The thread: sleeps while nothing waits, and looks every kLookEvery while something does.
  void Run() {
    std::unique_lock lock(mutex);
    while (true) {
      if (waiting.empty()) {
        if (stop) return;
        idle = true;
        changed.wait(lock, [this] { return stop || !waiting.empty(); });
        idle = false;
        continue;
      }
      CloseEnded();
      if (!waiting.empty()) changed.wait_for(lock, kLookEvery);
    }
  }
};

BackgroundCloser::BackgroundCloser() : state_(std::make_shared<State>()) {}

BackgroundCloser::~BackgroundCloser() {
  Finish();
  if (!thread_.Owned()) return;
  {
    const std::lock_guard lock(state_->mutex);
    state_->stop = true;
  }
  state_->changed.notify_all();
  thread_.JoinFor(platform::kThreadJoinLimitMs);
}

void BackgroundCloser::Add(platform::Socket socket, uint64_t since_ms) {
  if (!thread_.Owned() && !thread_.Start([state = state_] { state->Run(); })) {
    platform::FinishGracefulClose(socket, since_ms);
    return;
  }
  std::unique_lock lock(state_->mutex);
  // The ones that have ended since the last look go now: a quick run of connections
  // rarely needs the thread.
  state_->CloseEnded();
  while (state_->waiting.size() >= kMaxWaiting) {
    State::Waiting oldest = std::move(state_->waiting.front());
    state_->waiting.pop_front();
    lock.unlock();
    platform::FinishGracefulClose(oldest.socket, oldest.since_ms);
    lock.lock();
  }
  state_->waiting.push_back({std::move(socket), since_ms});
  if (state_->idle) state_->changed.notify_all();
}

void BackgroundCloser::Finish() {
  std::vector<State::Waiting> left;
  {
    const std::lock_guard lock(state_->mutex);
    for (State::Waiting& w : state_->waiting) left.push_back(std::move(w));
    state_->waiting.clear();
  }
  for (State::Waiting& w : left) platform::FinishGracefulClose(w.socket, w.since_ms);
}

}  // namespace kel
