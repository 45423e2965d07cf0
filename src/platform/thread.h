#pragma once

#include <functional>
#include <memory>
#include <thread>

namespace kel::platform {

/// How long an owner waits for one of its threads to end after waking it.
inline constexpr int kThreadJoinLimitMs = 3000;

/// Lets threads that are ready to run go first; returns at once when there is none.
void YieldThread();

/// A thread with an owner and a stop. Nothing ends a thread by force: its owner wakes it
/// (by shutting down the socket it blocks on) and joins it with a time limit; a thread
/// that still runs at the limit is detached, and the owner notes that.
///
///   platform::Thread reader;
///   if (!reader.Start([&] { ... blocks on socket ... })) Fail();
///   socket.Shutdown();
///   if (!reader.JoinFor(platform::kThreadJoinLimitMs)) Note("reader left running");
class Thread {
 public:
  Thread() = default;
  /// Joins with kThreadJoinLimitMs (and detaches at the limit) if still running.
  ~Thread();
  Thread(Thread&& other) noexcept = default;
  Thread& operator=(Thread&& other) noexcept;
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  /// Runs `body` on a new thread. False when the system refuses a thread (or one is
  /// already owned). An exception leaving `body` ends only the body.
  bool Start(std::function<void()> body);

  /// True from Start until the thread is joined or detached.
  bool Owned() const { return thread_.joinable(); }

  /// True once the body has returned (or when no thread is owned).
  bool Finished() const;

  /// Waits up to `timeout_ms` for the body to return: true when it has (or when no thread
  /// is owned). The thread stays owned either way.
  bool WaitFor(int timeout_ms) const;

  /// Waits up to `timeout_ms` for the body to return, then joins the thread: true. At the
  /// limit the thread is detached instead and false is returned. True when none is owned.
  bool JoinFor(int timeout_ms);

 private:
  struct Done;
  std::shared_ptr<Done> done_;
  std::thread thread_;
};

}  // namespace kel::platform
