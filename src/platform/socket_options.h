#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "platform/socket.h"

namespace kel::platform {

/// Switches Nagle's algorithm off (TCP_NODELAY) on a connected socket, so that every
/// send leaves at once. Sockets from NewTcpSocket have it already; accepted ones need it.
bool SetNoDelay(const Socket& socket);

/// Ends the sending direction only (the peer reads the end) and keeps receiving.
void ShutdownSend(const Socket& socket);

/// Closes a connection at once with a reset instead of the orderly end, as a process that
/// dies does (SO_LINGER with a zero time, then close).
void AbortConnection(Socket& socket);

/// Bytes sent on `socket` that the peer has not acknowledged yet, the end of the sending
/// direction included; nothing where the system does not tell (Windows).
std::optional<size_t> UnsentBytes(const Socket& socket);

/// How long a closing end waits for its peer to close after ShutdownSend: at least
/// kCloseWaitMs, and up to kCloseHoldMs while the system still holds bytes the peer has not
/// acknowledged. A reset in their place would throw those bytes away.
inline constexpr uint64_t kCloseWaitMs = 300;
inline constexpr uint64_t kCloseHoldMs = 5000;

/// True when a closing end that has waited `waited_ms` for its peer's close should wait
/// no longer (see kCloseWaitMs).
bool CloseWaitOver(const Socket& socket, uint64_t waited_ms);

/// Closes a connection without losing what was sent on it: ends the sending direction, so
/// that the peer reads everything sent and then the end, reads and drops what still comes
/// until the peer closes (or CloseWaitOver), then closes. Closing with unread input instead
/// would reset the connection, and the peer would lose the bytes still on their way.
/// Blocking and non-blocking sockets alike.
void CloseGracefully(Socket& socket);

/// CloseGracefully in two parts, for a caller with other work meanwhile: after
/// ShutdownSend at `since_ms` (MonotonicMs), CloseIfPeerEnded makes one receive on a
/// non-blocking socket, drops what it got and closes once the peer has closed, the socket
/// failed or CloseWaitOver; true when it closed. FinishGracefulClose waits for that.
bool CloseIfPeerEnded(Socket& socket, uint64_t since_ms);
void FinishGracefulClose(Socket& socket, uint64_t since_ms);

}  // namespace kel::platform
