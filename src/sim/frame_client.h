#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "device/frame.h"
#include "platform/socket.h"

namespace kel::sim {

/// A plain client of one board channel that moves whole frames: what tests, benchmarks and
/// tools use to talk to a board without the shell's command layer. Blocking sends; receives
/// with a time limit.
class FrameClient {
 public:
  /// Connects to `to`. False when nothing accepts there.
  bool Connect(const platform::SocketAddress& to);
  bool Connected() const { return socket_.Valid(); }

  /// Sends all of `size` bytes (whole frames or not). False when the connection failed.
  bool SendBytes(const void* data, size_t size);
  bool Send(const FrameBytes& frame) { return SendBytes(frame.data(), frame.size()); }
  bool SendCommand(uint32_t command, uint32_t value1 = 0, uint32_t value2 = 0,
                   uint32_t value3 = 0) {
    return Send(EncodeCommand(CommandFrame{command, value1, value2, value3}));
  }

  /// The next whole frame, waiting up to `timeout_ms` for it; nothing at the limit or when
  /// the connection ends first.
  std::optional<FrameBytes> Receive(int timeout_ms);
  /// Receives until a frame whose first word is `code` arrives, dropping the others.
  std::optional<FrameBytes> ReceiveAnswer(uint32_t code, int timeout_ms);
  /// Every byte that arrives within `timeout_ms` (whole frames or not): what the client was
  /// sent, up to the end of the connection or the limit.
  std::vector<uint8_t> ReceiveAll(int timeout_ms);

  /// True once the board has ended the connection (a receive returned its end).
  bool PeerClosed() const { return peer_closed_; }

  /// Stops sending (the board reads the end) but keeps receiving.
  void ShutdownSend();
  void Close() { socket_.Close(); }
  /// Ends the connection with a reset, as a client that crashes does.
  void Abort();
  const platform::Socket& socket() const { return socket_; }

 private:
  // Reads what is there into pending_, waiting up to `timeout_ms`; false when nothing came.
  bool Fill(int timeout_ms);

  size_t Pending() const { return pending_.size() - head_; }

  platform::Socket socket_;
  std::vector<uint8_t> pending_;  // received, not yet taken: from head_ on
  size_t head_ = 0;
  bool peer_closed_ = false;
};

}  // namespace kel::sim
