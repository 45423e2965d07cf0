#include <winsock2.h>
#include <ws2tcpip.h>

#include <mutex>

#include "platform/socket.h"

namespace kel::platform {
namespace {

// Winsock must be started before the first socket; test programs have no main of their
// own that would do it, so the first socket starts it too (the count is kept by Winsock).
void EnsureStarted() {
  static std::once_flag once;
  std::call_once(once, [] {
    WSADATA data;
    WSAStartup(MAKEWORD(2, 2), &data);
  });
}

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

SOCKET S(const Socket& socket) { return static_cast<SOCKET>(socket.Handle()); }

bool WouldBlock(int error) { return error == WSAEWOULDBLOCK || error == WSAEINTR; }

// Sockets are never inherited by child processes.
SOCKET NewSocket() {
  EnsureStarted();
  return WSASocketW(AF_INET, SOCK_STREAM, IPPROTO_TCP, nullptr, 0, WSA_FLAG_NO_HANDLE_INHERIT);
}

SocketHandle AsHandle(SOCKET s) {
  return s == INVALID_SOCKET ? kInvalidSocket : static_cast<SocketHandle>(s);
}

}  // namespace

SocketLibrary::SocketLibrary() {
  WSADATA data;
  WSAStartup(MAKEWORD(2, 2), &data);
}

SocketLibrary::~SocketLibrary() { WSACleanup(); }

void Socket::Close() {
  if (handle_ != kInvalidSocket) closesocket(static_cast<SOCKET>(handle_));
  handle_ = kInvalidSocket;
}

void Socket::Shutdown() const {
  if (handle_ == kInvalidSocket) return;
  shutdown(static_cast<SOCKET>(handle_), SD_BOTH);
  // Winsock's shutdown does not wake a thread blocked in accept, recv or connect on the
  // socket; cancelling the socket's pending I/O does.
  CancelIoEx(reinterpret_cast<HANDLE>(handle_), nullptr);
}

Socket NewTcpSocket() {
  Socket socket(AsHandle(NewSocket()));
  if (!socket.Valid()) return socket;
  const BOOL one = TRUE;
  setsockopt(S(socket), IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&one), sizeof one);
  return socket;
}

bool ConnectBlocking(const Socket& socket, const SocketAddress& to) {
  const sockaddr_in sa = ToSockaddr(to);
  return connect(S(socket), reinterpret_cast<const sockaddr*>(&sa), sizeof sa) == 0;
}

bool SetNonBlocking(const Socket& socket, bool on) {
  u_long mode = on ? 1 : 0;
  return ioctlsocket(S(socket), FIONBIO, &mode) == 0;
}

Socket ListenTcp(const SocketAddress& at, int backlog) {
  Socket socket(AsHandle(NewSocket()));
  if (!socket.Valid()) return socket;
  // Where POSIX sets SO_REUSEADDR, Windows takes the port exclusively: its SO_REUSEADDR
  // would let a second listener share a port that is in use.
  const BOOL one = TRUE;
  setsockopt(S(socket), SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<const char*>(&one),
             sizeof one);
  const sockaddr_in sa = ToSockaddr(at);
  if (bind(S(socket), reinterpret_cast<const sockaddr*>(&sa), sizeof sa) != 0 ||
      listen(S(socket), backlog) != 0) {
    socket.Close();
  }
  return socket;
}

Socket Accept(const Socket& listener, SocketAddress* peer) {
  sockaddr_in sa{};
  int length = sizeof sa;
  const SOCKET s = accept(S(listener), reinterpret_cast<sockaddr*>(&sa), &length);
  if (s != INVALID_SOCKET && peer != nullptr) *peer = FromSockaddr(sa);
  return Socket(AsHandle(s));
}

SocketAddress LocalAddress(const Socket& socket) {
  sockaddr_in sa{};
  int length = sizeof sa;
  getsockname(S(socket), reinterpret_cast<sockaddr*>(&sa), &length);
  return FromSockaddr(sa);
}

SocketAddress PeerAddress(const Socket& socket) {
  sockaddr_in sa{};
  int length = sizeof sa;
  getpeername(S(socket), reinterpret_cast<sockaddr*>(&sa), &length);
  return FromSockaddr(sa);
}

IoResult Send(const Socket& socket, const void* data, size_t size) {
  const int n = send(S(socket), static_cast<const char*>(data), static_cast<int>(size), 0);
  if (n >= 0) return IoResult{IoStatus::kOk, static_cast<size_t>(n)};
  return IoResult{WouldBlock(WSAGetLastError()) ? IoStatus::kWouldBlock : IoStatus::kError, 0};
}

IoResult Receive(const Socket& socket, void* data, size_t size) {
  const int n = recv(S(socket), static_cast<char*>(data), static_cast<int>(size), 0);
  if (n > 0) return IoResult{IoStatus::kOk, static_cast<size_t>(n)};
  if (n == 0) return IoResult{size == 0 ? IoStatus::kOk : IoStatus::kClosed, 0};
  return IoResult{WouldBlock(WSAGetLastError()) ? IoStatus::kWouldBlock : IoStatus::kError, 0};
}

namespace {

// One socket's readiness by select: the sets asked for (true) that hold it afterwards.
struct Readiness {
  int count = 0;  // select's result: SOCKET_ERROR, 0 at the limit, or 1
  bool read = false;
  bool write = false;
};

Readiness SelectOne(const Socket& socket, bool read, bool write, bool except, int timeout_ms) {
  fd_set sets[3];
  for (fd_set& set : sets) FD_ZERO(&set);
  if (read) FD_SET(S(socket), &sets[0]);
  if (write) FD_SET(S(socket), &sets[1]);
  if (except) FD_SET(S(socket), &sets[2]);
  timeval limit{timeout_ms / 1000, (timeout_ms % 1000) * 1000};
  Readiness ready;
  ready.count = select(0, read ? &sets[0] : nullptr, write ? &sets[1] : nullptr,
                       except ? &sets[2] : nullptr, &limit);
  ready.read = read && FD_ISSET(S(socket), &sets[0]);
  ready.write = write && FD_ISSET(S(socket), &sets[1]);
  return ready;
}

}  // namespace

WaitStatus WaitReadable(const Socket& socket, int timeout_ms) {
  const Readiness ready = SelectOne(socket, true, false, true, timeout_ms);
  if (ready.count == SOCKET_ERROR) return WaitStatus::kError;
  if (ready.count == 0) return WaitStatus::kTimeout;
  return ready.read ? WaitStatus::kReadable : WaitStatus::kException;
}

bool WaitWritable(const Socket& socket, int timeout_ms) {
  return SelectOne(socket, false, true, false, timeout_ms).count > 0;
}

SendWaitStatus WaitWritableOrReadable(const Socket& socket, int timeout_ms) {
  const Readiness ready = SelectOne(socket, true, true, false, timeout_ms);
  if (ready.count == SOCKET_ERROR) return SendWaitStatus::kError;
  if (ready.count == 0) return SendWaitStatus::kTimeout;
  return ready.write ? SendWaitStatus::kWritable : SendWaitStatus::kReadable;
}

}  // namespace kel::platform
