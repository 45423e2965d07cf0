#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include "platform/thread.h"

namespace kel {

/// How long a watcher's step waits for its source at most: a stop is seen this soon.
inline constexpr int kWatchSliceMs = 200;

/// Watches one open source (a debug-output reader, a USB event source) on a thread of its
/// own: the thread calls `step` with the source until Stop, or until `step` returns false
/// (the source failed for good; then the watch no longer runs). `step` waits for the
/// source at most kWatchSliceMs at a time.
template <typename Source>
class SourceWatcher {
 public:
  SourceWatcher() = default;
  ~SourceWatcher() { Stop(); }
  SourceWatcher(const SourceWatcher&) = delete;
  SourceWatcher& operator=(const SourceWatcher&) = delete;

  /// Starts watching `source`, stopping a watch going on first. False, and not running,
  /// when no thread could be started.
  bool Start(std::unique_ptr<Source> source, std::function<bool(Source&)> step) {
    Stop();
    auto shared = std::make_shared<Shared>();
    shared->source = std::move(source);
    shared_ = shared;
    if (!thread_.Start([shared = std::move(shared), step = std::move(step)] {
          while (!shared->stop && step(*shared->source)) {
          }
          shared->ended = true;
        })) {
      shared_.reset();
      return false;
    }
    return true;
  }

  /// Stops the thread and closes the source. A thread still running at
  /// platform::kThreadJoinLimitMs (a step held up) keeps the source until it ends.
  void Stop() {
    if (!shared_) return;
    shared_->stop = true;
    thread_.JoinFor(platform::kThreadJoinLimitMs);
    shared_.reset();
  }

  /// From a successful Start until Stop, unless the source failed meanwhile.
  bool Running() const { return shared_ && !shared_->ended; }

 private:
  struct Shared {
    std::unique_ptr<Source> source;
    std::atomic<bool> stop{false};
    std::atomic<bool> ended{false};
  };
  std::shared_ptr<Shared> shared_;
  platform::Thread thread_;
};

}  // namespace kel
