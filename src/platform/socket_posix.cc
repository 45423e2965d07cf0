#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/socket.h"

namespace kel::platform {
namespace {

sockaddr_in ToSockaddr(const SocketAddress& address) {
  sockaddr_in sa{};
  sa.sin_family = AF_INET;
  sa.sin_port = htons(address.port);
  sa.sin_addr.s_addr = address.ip;
  return sa;
}

SocketAddress FromSockaddr(const sockaddr_in& sa) {
  return SocketAddress{sa.sin_addr.s_addr, ntohs(sa.sin_port)};
}

int Fd(const Socket& socket) { return static_cast<int>(socket.Handle()); }

bool WouldBlock(int error) { return error == EAGAIN || error == EWOULDBLOCK || error == EINTR; }

}  // namespace

SocketLibrary::SocketLibrary() = default;
SocketLibrary::~SocketLibrary() = default;

void Socket::Close() {
  if (handle_ != kInvalidSocket) close(static_cast<int>(handle_));
  handle_ = kInvalidSocket;
}

void Socket::Shutdown() const {
  if (handle_ != kInvalidSocket) shutdown(static_cast<int>(handle_), SHUT_RDWR);
}

Socket NewTcpSocket() {
  Socket socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!socket.Valid()) return socket;
  const int one = 1;
  setsockopt(Fd(socket), IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  return socket;
}

bool ConnectBlocking(const Socket& socket, const SocketAddress& to) {
  const sockaddr_in sa = ToSockaddr(to);
  int rc = 0;
  do {
    rc = connect(Fd(socket), reinterpret_cast<const sockaddr*>(&sa), sizeof sa);
  } while (rc != 0 && errno == EINTR);
  return rc == 0;
}

bool SetNonBlocking(const Socket& socket, bool on) {
  int mode = on ? 1 : 0;  // one call, where fcntl takes two
  return ioctl(Fd(socket), FIONBIO, &mode) == 0;
}

Socket ListenTcp(const SocketAddress& at, int backlog) {
  Socket socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!socket.Valid()) return socket;
  const int one = 1;
  setsockopt(Fd(socket), SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  const sockaddr_in sa = ToSockaddr(at);
  if (bind(Fd(socket), reinterpret_cast<const sockaddr*>(&sa), sizeof sa) != 0 ||
      listen(Fd(socket), backlog) != 0) {
    socket.Close();
  }
  return socket;
}

Socket Accept(const Socket& listener, SocketAddress* peer) {
  sockaddr_in sa{};
  socklen_t length = sizeof sa;
  int fd = -1;
  do {
    fd = accept4(Fd(listener), reinterpret_cast<sockaddr*>(&sa), &length, SOCK_CLOEXEC);
  } while (fd < 0 && errno == EINTR);
  if (fd >= 0 && peer != nullptr) *peer = FromSockaddr(sa);
  return Socket(fd);
}

SocketAddress LocalAddress(const Socket& socket) {
  sockaddr_in sa{};
  socklen_t length = sizeof sa;
  getsockname(Fd(socket), reinterpret_cast<sockaddr*>(&sa), &length);
  return FromSockaddr(sa);
}

SocketAddress PeerAddress(const Socket& socket) {
  sockaddr_in sa{};
  socklen_t length = sizeof sa;
  getpeername(Fd(socket), reinterpret_cast<sockaddr*>(&sa), &length);
  return FromSockaddr(sa);
}

IoResult Send(const Socket& socket, const void* data, size_t size) {
  const ssize_t n = send(Fd(socket), data, size, MSG_NOSIGNAL);
  if (n >= 0) return IoResult{IoStatus::kOk, static_cast<size_t>(n)};
  return IoResult{WouldBlock(errno) ? IoStatus::kWouldBlock : IoStatus::kError, 0};
}

IoResult Receive(const Socket& socket, void* data, size_t size) {
  const ssize_t n = recv(Fd(socket), data, size, 0);
  if (n > 0) return IoResult{IoStatus::kOk, static_cast<size_t>(n)};
  if (n == 0) return IoResult{size == 0 ? IoStatus::kOk : IoStatus::kClosed, 0};
  return IoResult{WouldBlock(errno) ? IoStatus::kWouldBlock : IoStatus::kError, 0};
}

// poll serves where the board's tools use select: same readiness, no descriptor limit.
WaitStatus WaitReadable(const Socket& socket, int timeout_ms) {
  pollfd p{Fd(socket), POLLIN | POLLPRI, 0};
  const int rc = poll(&p, 1, timeout_ms);
  if (rc < 0) return errno == EINTR ? WaitStatus::kTimeout : WaitStatus::kError;
  if (rc == 0) return WaitStatus::kTimeout;
  if ((p.revents & (POLLIN | POLLHUP)) != 0) return WaitStatus::kReadable;
  if ((p.revents & POLLNVAL) != 0) return WaitStatus::kError;
  return WaitStatus::kException;
}

bool WaitWritable(const Socket& socket, int timeout_ms) {
  pollfd p{Fd(socket), POLLOUT, 0};
  return poll(&p, 1, timeout_ms) > 0 && (p.revents & POLLOUT) != 0;
}

SendWaitStatus WaitWritableOrReadable(const Socket& socket, int timeout_ms) {
  pollfd p{Fd(socket), POLLIN | POLLOUT, 0};
  const int rc = poll(&p, 1, timeout_ms);
  if (rc < 0) return errno == EINTR ? SendWaitStatus::kTimeout : SendWaitStatus::kError;
  if (rc == 0) return SendWaitStatus::kTimeout;
  if ((p.revents & POLLOUT) != 0) return SendWaitStatus::kWritable;
  if ((p.revents & (POLLIN | POLLHUP)) != 0) return SendWaitStatus::kReadable;
  return SendWaitStatus::kError;
}

}  // namespace kel::platform
