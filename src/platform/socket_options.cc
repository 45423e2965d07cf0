#include "platform/socket_options.h"

#include <array>

#include "platform/clock.h"

namespace kel::platform {
namespace {

// While the peer's end has not come, the wait looks at the time limit this often.
constexpr int kCloseSliceMs = 20;

}  // namespace

bool CloseWaitOver(const Socket& socket, uint64_t waited_ms) {
  if (waited_ms >= kCloseHoldMs) return true;
  if (waited_ms < kCloseWaitMs) return false;
  const std::optional<size_t> unsent = UnsentBytes(socket);
  return !unsent || *unsent == 0;
}

void CloseGracefully(Socket& socket) {
  if (!socket.Valid()) return;
  ShutdownSend(socket);
  const uint64_t start = MonotonicMs();
  std::array<uint8_t, 16 * 1024> sink;
  while (!CloseWaitOver(socket, MonotonicMs() - start)) {
    const WaitStatus wait = WaitReadable(socket, kCloseSliceMs);
    if (wait == WaitStatus::kTimeout) continue;
    if (wait != WaitStatus::kReadable) break;
    const IoResult r = Receive(socket, sink.data(), sink.size());
    // The peer's end, or a failure: nothing more to wait for.
    if (r.status == IoStatus::kClosed || r.status == IoStatus::kError) break;
  }
  socket.Close();
}

}  // namespace kel::platform
