#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace kel {

namespace platform {
class ChildProcess;
}

/// One worker: a copy of this program that runs one command line against the board.
struct WorkerSlot {
  std::string label;              ///< "M:<commands>" or "S:<commands>"
  std::string command_line;       ///< the whole command line, as shown to the user
  std::vector<std::string> argv;  ///< what is started
  bool show_output = false;       ///< the worker writes to this terminal
  bool capture_output = false;    ///< the worker's output is kept
};

/// What became of a worker. A worker still running has none of it yet.
struct WorkerOutcome {
  bool done = false;
  int32_t result = 0;
  std::string captured;
};

/// Starts workers, at most `capacity` at a time, each on a thread of its own that waits
/// for its child. The threads share the pool's state, so a pool (and its slots) can be let
/// go while workers still run: they finish on their own and touch nothing that is gone.
class WorkerPool {
 public:
  explicit WorkerPool(size_t capacity);
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  /// Waits for a free place, then starts the worker of `slot`. Returns its index for
  /// Outcome().
  size_t Launch(std::shared_ptr<const WorkerSlot> slot);

  /// What became of the worker started `index`-th.
  WorkerOutcome Outcome(size_t index) const;

  /// Waits up to `timeout_ms` for every worker to end; true when none runs.
  bool WaitAll(int timeout_ms);

  /// Asks every worker that runs, and every one started later, to end (as Ctrl-C would).
  void TerminateAll();

  size_t Running() const;

 private:
  struct State {
    mutable std::mutex mutex;
    std::condition_variable changed;
    size_t running = 0;
    size_t capacity = 0;
    std::vector<WorkerOutcome> outcomes;
    std::vector<platform::ChildProcess*> children;  // by index; null unless running
    bool terminating = false;
  };
  std::shared_ptr<State> state_;
};

/// Runs one worker to its end: the child's result, or -1 when it could not be started.
/// `running` (if any) is called with the child once it runs and with null before it goes.
WorkerOutcome RunWorker(const WorkerSlot& slot,
                        const std::function<void(platform::ChildProcess*)>& running = {});

}  // namespace kel
