#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/socket.h"
#include "platform/thread.h"

namespace kel {

/// Closes non-blocking connections whose sending direction has ended, each once its peer
/// has closed its end or the limits of platform::CloseGracefully are over, while the owner
/// goes on: the peer still gets everything sent and the end. Each Add closes the ones that
/// have ended meanwhile, and a thread of its own (started by the first Add) looks at the
/// rest every 10 ms. At most kMaxWaiting connections wait at once; past that, Add waits for
/// the oldest. Where the system refuses a thread, Add closes at once, waiting.
///
///   BackgroundCloser closer;
///   platform::ShutdownSend(socket);
///   closer.Add(std::move(socket), platform::MonotonicMs());
///   closer.Finish();  // before the program ends
class BackgroundCloser {
 public:
  static constexpr size_t kMaxWaiting = 16;

  BackgroundCloser();
  /// Finishes, then ends the thread.
  ~BackgroundCloser();
  BackgroundCloser(const BackgroundCloser&) = delete;
  BackgroundCloser& operator=(const BackgroundCloser&) = delete;

  /// Takes a connection whose sending direction ended at `since_ms` (MonotonicMs).
  void Add(platform::Socket socket, uint64_t since_ms);
  /// Closes every connection added so far, waiting for each as CloseGracefully does.
  void Finish();

 private:
  struct State;
  std::shared_ptr<State> state_;
  platform::Thread thread_;
};

}  // namespace kel
