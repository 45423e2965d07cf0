#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace kel::platform {

/// Starts the sockets library for the lifetime of the object (Windows); nothing to do on
/// POSIX systems. One instance lives in each program's main.
class SocketLibrary {
 public:
  SocketLibrary();
  ~SocketLibrary();
  SocketLibrary(const SocketLibrary&) = delete;
  SocketLibrary& operator=(const SocketLibrary&) = delete;
};

using SocketHandle = intptr_t;
inline constexpr SocketHandle kInvalidSocket = -1;

/// The one owner of a TCP socket. Sockets are created close-on-exec, so child
/// processes never inherit them.
class Socket {
 public:
  Socket() = default;
  explicit Socket(SocketHandle handle) : handle_(handle) {}
  ~Socket() { Close(); }
  Socket(Socket&& other) noexcept : handle_(other.Release()) {}
  Socket& operator=(Socket&& other) noexcept;
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  bool Valid() const { return handle_ != kInvalidSocket; }
  SocketHandle Handle() const { return handle_; }
  SocketHandle Release();
  void Close();
  /// Shuts both directions down without closing: a thread blocked in a receive, send or
  /// connect on the socket wakes. A thread blocked in Accept may not (Windows): accept
  /// loops wait for a client in bounded slices and check their stop flag between them.
  void Shutdown() const;

 private:
  SocketHandle handle_ = kInvalidSocket;
};

/// An IPv4 address (network byte order as it lies in memory) and a port (host order).
struct SocketAddress {
  uint32_t ip = 0;
  uint16_t port = 0;
};

/// The dotted text of an address ("127.0.0.1").
std::string DottedAddress(uint32_t ip);

/// Creates a TCP socket with TCP_NODELAY on; SO_LINGER is off, as on every new socket.
Socket NewTcpSocket();

/// Connects `socket`, blocking, with no limit of its own. False on failure.
bool ConnectBlocking(const Socket& socket, const SocketAddress& to);

/// Switches non-blocking mode on or off.
bool SetNonBlocking(const Socket& socket, bool on);

/// A listening TCP socket bound to `at` (ip 0 = any address) with SO_REUSEADDR (or the
/// platform's exclusive-use option), or an invalid socket on failure.
Socket ListenTcp(const SocketAddress& at, int backlog);

/// Accepts one client, blocking unless the listener is non-blocking; invalid on failure.
Socket Accept(const Socket& listener, SocketAddress* peer = nullptr);

SocketAddress LocalAddress(const Socket& socket);
SocketAddress PeerAddress(const Socket& socket);

enum class IoStatus {
  kOk,          ///< some bytes moved
  kWouldBlock,  ///< nothing now, try again (EAGAIN, EWOULDBLOCK, EINTR)
  kClosed,      ///< the peer closed the connection (a receive of 0)
  kError,
};

struct IoResult {
  IoStatus status = IoStatus::kError;
  size_t bytes = 0;
};

/// One send call; never raises SIGPIPE.
IoResult Send(const Socket& socket, const void* data, size_t size);
/// One receive call.
IoResult Receive(const Socket& socket, void* data, size_t size);

enum class WaitStatus {
  kReadable,   ///< data (or the peer's close) is waiting
  kException,  ///< the socket is in the exception set and not readable
  kTimeout,
  kError,
};

/// Waits with select, for reading and for exceptions, up to `timeout_ms`.
WaitStatus WaitReadable(const Socket& socket, int timeout_ms);

/// Waits with select until the socket can take more data, up to `timeout_ms`.
bool WaitWritable(const Socket& socket, int timeout_ms);

enum class SendWaitStatus {
  kWritable,  ///< the socket takes more data
  kReadable,  ///< it does not yet, but data (or the peer's end) waits to be read
  kTimeout,
  kError,
};

/// Waits up to `timeout_ms` until the socket can take more data or has data to read: what
/// a sender waits for when its peer may stop reading until it reads in turn.
SendWaitStatus WaitWritableOrReadable(const Socket& socket, int timeout_ms);

}  // namespace kel::platform
