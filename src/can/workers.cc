#include "can/workers.h"

#include <chrono>
#include <thread>

#include "platform/subprocess.h"

namespace kel {

WorkerOutcome RunWorker(const WorkerSlot& slot,
                        const std::function<void(platform::ChildProcess*)>& running) {
  using Mode = platform::ChildProcess::OutputMode;
  platform::ChildProcess child;
  platform::ChildProcess::Options options;
  options.output =
      slot.capture_output ? Mode::kCapture : (slot.show_output ? Mode::kInherit : Mode::kDiscard);
  options.merge_stderr = !slot.show_output;
  WorkerOutcome outcome;
  outcome.done = true;
  if (!child.Start(slot.argv, options)) {
    outcome.result = -1;
    return outcome;
  }
  if (running) running(&child);
  outcome.result = platform::ResultOfChild(child.Wait());
  if (running) running(nullptr);
  outcome.captured = child.CapturedOutput();
  return outcome;
}

WorkerPool::WorkerPool(size_t capacity) : state_(std::make_shared<State>()) {
  state_->capacity = capacity;
}

size_t WorkerPool::Launch(std::shared_ptr<const WorkerSlot> slot) {
  size_t index = 0;
  {
    std::unique_lock lock(state_->mutex);
    state_->changed.wait(lock, [this] { return state_->running < state_->capacity; });
    ++state_->running;
    index = state_->outcomes.size();
    state_->outcomes.emplace_back();
    state_->children.push_back(nullptr);
  }
  std::thread([state = state_, slot = std::move(slot), index] {
    WorkerOutcome outcome = RunWorker(*slot, [&state, index](platform::ChildProcess* child) {
      std::lock_guard lock(state->mutex);
      state->children[index] = child;
      if (child != nullptr && state->terminating) child->Terminate();
    });
    std::lock_guard lock(state->mutex);
    state->outcomes[index] = std::move(outcome);
    --state->running;
    state->changed.notify_all();
  }).detach();
  return index;
}

WorkerOutcome WorkerPool::Outcome(size_t index) const {
  std::lock_guard lock(state_->mutex);
  return index < state_->outcomes.size() ? state_->outcomes[index] : WorkerOutcome{};
}

bool WorkerPool::WaitAll(int timeout_ms) {
  std::unique_lock lock(state_->mutex);
  return state_->changed.wait_for(lock, std::chrono::milliseconds(timeout_ms),
                                  [this] { return state_->running == 0; });
}

void WorkerPool::TerminateAll() {
  std::lock_guard lock(state_->mutex);
  state_->terminating = true;
  for (platform::ChildProcess* child : state_->children) {
    if (child != nullptr) child->Terminate();
  }
}

size_t WorkerPool::Running() const {
  std::lock_guard lock(state_->mutex);
  return state_->running;
}

}  // namespace kel
