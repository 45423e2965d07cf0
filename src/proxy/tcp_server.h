#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include "platform/socket.h"
#include "proxy/message_sink.h"

namespace kel {

/// A relay that received fewer bytes than this lets the other ready threads run before it
/// receives again. Under a flood of small sends (one frame each) the next receive then
/// takes what came meanwhile in one go, so the relay costs a receive and a send per block
/// rather than per frame, and leaves the processor to the senders; on a quiet machine the
/// yield returns at once and a lone frame is not held back.
inline constexpr size_t kSmallReceive = 1024;

/// One accepted client of a TcpServer. Its thread, and threads its callbacks start, share
/// it; the socket closes when the last of them lets it go.
class TcpClient {
 public:
  TcpClient(uint32_t id, platform::Socket socket, platform::SocketAddress peer,
            platform::SocketAddress local, MessageSink& sink);

  /// Numbers clients in the order they were accepted, from 1.
  uint32_t Id() const { return id_; }
  const platform::Socket& Socket() const { return socket_; }
  platform::SocketAddress Peer() const { return peer_; }
  /// The server's address and port at which the client was accepted.
  platform::SocketAddress Local() const { return local_; }

  /// Sends `size` bytes to the client; true when all of them went. Any thread may send
  /// while the client's own thread receives.
  bool Send(const void* data, size_t size);

  /// Shuts the connection down in both directions: the client's thread wakes and ends.
  void Shutdown() const { socket_.Shutdown(); }
  /// Ends the direction towards the client only: it reads the end of the stream, and may
  /// still send.
  void ShutdownSend() const;

  /// The connect callback's own per-client state; used only on the client's own thread
  /// (connect, data and disconnect callbacks).
  std::shared_ptr<void> state;

 private:
  uint32_t id_;
  platform::Socket socket_;
  platform::SocketAddress peer_;
  platform::SocketAddress local_;
  MessageSink& sink_;
};

/// A small TCP server: listening slots on consecutive ports, an accept thread per port and
/// a thread per client, which calls the connect callback, then the data callback for every
/// block received, then the disconnect callback. Messages go to a MessageSink.
///
///   TcpServer server(ConsoleMessageSink());
///   server.Configure("", 27015, 27019, OnData, OnConnect, OnDisconnect);
///   if (!server.Start()) server.Stop();
///   ...
///   server.Stop();
class TcpServer {
 public:
  /// Called on the client's thread before anything is received: 0 accepts the client,
  /// -1 refuses it (the connection is closed; no disconnect callback follows).
  using ConnectCallback = std::function<int(const std::shared_ptr<TcpClient>& client)>;
  /// Called on the client's thread with each block received (at most 8192 bytes).
  using DataCallback = std::function<int(TcpClient& client, const uint8_t* data, size_t size)>;
  /// Called on the client's thread once the client has ended its sending direction or
  /// gone, before the server shuts the client's socket down: it may still send to the
  /// client.
  using DisconnectCallback = std::function<void(TcpClient& client)>;

  /// `sink` must outlive the server.
  explicit TcpServer(MessageSink& sink);
  /// Stops the server.
  ~TcpServer();
  TcpServer(const TcpServer&) = delete;
  TcpServer& operator=(const TcpServer&) = delete;

  /// Adds one listening slot for each port from `first_port` to `last_port`, bound to
  /// `bind_address` (empty: any address), all with `on_data`; sets the connect (null:
  /// accept every client) and disconnect callbacks. With `first_port` > `last_port` only
  /// the callbacks are set. Call while the server is stopped.
  void Configure(std::string_view bind_address, int first_port, int last_port, DataCallback on_data,
                 ConnectCallback on_connect, DisconnectCallback on_disconnect);

  /// Starts listening on every slot in order; stops at the first slot that fails and
  /// returns false (the slots started stay open until Stop).
  bool Start();

  /// Sends `size` bytes to `client`; true when all of them went.
  bool Send(TcpClient& client, const void* data, size_t size) { return client.Send(data, size); }

  /// Closes every listening slot and every client, and joins their threads (each with
  /// platform::kThreadJoinLimitMs; one still running then is detached with a note). The
  /// slots are gone afterwards. A callback that waits on anything but the client's socket
  /// must be woken by its owner first.
  void Stop();

  /// How many clients are connected now.
  size_t ClientCount() const;

 private:
  struct Core;
  struct Slot;
  std::shared_ptr<Core> core_;
};

/// Sends all of `size` bytes on a blocking socket, going on after a partial send or an
/// interrupted call. False when the connection failed or was shut down.
bool SendAll(const platform::Socket& socket, const void* data, size_t size);

}  // namespace kel
