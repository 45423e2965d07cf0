#include <winsock2.h>

#include "platform/socket_options.h"

namespace kel::platform {

bool SetNoDelay(const Socket& socket) {
  const BOOL one = TRUE;
  return setsockopt(static_cast<SOCKET>(socket.Handle()), IPPROTO_TCP, TCP_NODELAY,
                    reinterpret_cast<const char*>(&one), sizeof one) == 0;
}

void ShutdownSend(const Socket& socket) {
  if (socket.Valid()) shutdown(static_cast<SOCKET>(socket.Handle()), SD_SEND);
}

void AbortConnection(Socket& socket) {
  if (!socket.Valid()) return;
  const linger reset{1, 0};
  setsockopt(static_cast<SOCKET>(socket.Handle()), SOL_SOCKET, SO_LINGER,
             reinterpret_cast<const char*>(&reset), sizeof reset);
  socket.Close();
}

// Windows tells the bytes in flight only through a newer query that older systems and Wine
// lack; closing ends then wait kCloseWaitMs.
std::optional<size_t> UnsentBytes(const Socket&) { return std::nullopt; }

}  // namespace kel::platform
