#pragma once

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

}  // namespace kel::platform
