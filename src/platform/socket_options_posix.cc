#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "platform/socket_options.h"

namespace kel::platform {

bool SetNoDelay(const Socket& socket) {
  const int one = 1;
  return setsockopt(static_cast<int>(socket.Handle()), IPPROTO_TCP, TCP_NODELAY, &one,
                    sizeof one) == 0;
}

void ShutdownSend(const Socket& socket) {
  if (socket.Valid()) shutdown(static_cast<int>(socket.Handle()), SHUT_WR);
}

void AbortConnection(Socket& socket) {
  if (!socket.Valid()) return;
  const linger now{1, 0};
  setsockopt(static_cast<int>(socket.Handle()), SOL_SOCKET, SO_LINGER, &now, sizeof now);
  socket.Close();
}

std::optional<size_t> UnsentBytes(const Socket& socket) {
  int bytes = 0;
  if (ioctl(static_cast<int>(socket.Handle()), SIOCOUTQ, &bytes) != 0 || bytes < 0) {
    return std::nullopt;
  }
  return static_cast<size_t>(bytes);
}

}  // namespace kel::platform
