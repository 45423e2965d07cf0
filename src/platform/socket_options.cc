#include "platform/socket_options.h"

#include <array>

#include "platform/clock.h"

namespace kel::platform {
namespace {

// While the peer's end has not come, the wait looks at the time limit this often.
constexpr int kCloseSliceMs = 20;

// Drops one receive of input: true once the peer's end came or the socket failed
// (nothing more to wait for).
bool ReceiveEnded(const Socket& socket) {
  std::array<uint8_t, 16 * 1024> sink;
  const IoResult r = Receive(socket, sink.data(), sink.size());
  return r.status == IoStatus::kClosed || r.status == IoStatus::kError;
}

// ReceiveEnded once input came within `wait_ms`.
bool PeerEnded(const Socket& socket, int wait_ms) {
  const WaitStatus wait = WaitReadable(socket, wait_ms);
  if (wait == WaitStatus::kTimeout) return false;
  return wait != WaitStatus::kReadable || ReceiveEnded(socket);
}

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
  FinishGracefulClose(socket, MonotonicMs());
}

bool CloseIfPeerEnded(Socket& socket, uint64_t since_ms) {
  if (!socket.Valid()) return true;
  if (!ReceiveEnded(socket) && !CloseWaitOver(socket, MonotonicMs() - since_ms)) return false;
  socket.Close();
  return true;
}

void FinishGracefulClose(Socket& socket, uint64_t since_ms) {
  if (!socket.Valid()) return;
  while (!CloseWaitOver(socket, MonotonicMs() - since_ms) && !PeerEnded(socket, kCloseSliceMs)) {
  }
  socket.Close();
}

}  // namespace kel::platform
