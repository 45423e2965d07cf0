#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "device/background_closer.h"
#include "device/frame.h"
#include "device/frame_buffer.h"
#include "platform/socket.h"

namespace kel {

/// The shell's one TCP connection to the board. Opened on demand by the executor before
/// the first device command of a line and closed after the line.
///
/// Once the board closes the connection or the socket fails, the link is broken: every
/// receive fails at once from then on, so no wait built on receives runs into its time
/// limit for nothing.
///
/// A send that finds no room reads meanwhile: a board (or a virtual one) that stops
/// reading until its clients read would otherwise wait on the sender forever. Frames
/// read then are kept up to the size of the receive buffer; older ones are dropped, as
/// nobody asked for them. Disconnect closes gracefully, so that every frame sent reaches
/// the board before the connection ends: it ends the sending direction at once, and the
/// wait for the board's end goes on in the background while the shell does other work
/// (BackgroundCloser); FinishClosing, or the link's end, waits for what is left of it.
class DeviceLink {
 public:
  DeviceLink();
  DeviceLink(const DeviceLink&) = delete;
  DeviceLink& operator=(const DeviceLink&) = delete;

  /// Opens the connection to `address` at `tcp_port`; an open connection is reused
  /// without a check. Blocking connect, then non-blocking. False on failure.
  bool Connect(const std::string& address, int tcp_port);
  /// Ends the sending direction; the connection closes in the background once the board
  /// has closed its end, within the limits of platform::CloseGracefully.
  void Disconnect();
  /// Waits until every connection ended by Disconnect has closed: before the program ends.
  void FinishClosing() { closer_.Finish(); }
  bool Connected() const { return socket_.Valid(); }
  /// True once the board closed the connection or the socket failed.
  bool Broken() const { return broken_; }

  /// Sends a command frame with bit 31 of `command` forced on. True when all 16 bytes
  /// were written.
  bool SendCommand(uint32_t command, uint32_t value1, uint32_t value2, uint32_t value3);
  /// Sends a CAN data frame: `data` (at most 16 bytes, the rest zero) as one frame.
  bool SendCanData(const uint8_t* data, size_t length);

  /// Fills `frame` with the next whole frame. Fails when no byte arrives for `timeout_ms`
  /// (a partly received frame is then dropped whole) or when the link is broken.
  bool ReceiveFrame(uint8_t* frame, int timeout_ms) {
    // A frame already received is handed out here, inline: a fast stream costs a copy per
    // frame, not a call.
    if (HasBufferedFrame() && !*debug_socket_) {
      buffer_.TakeFrame(frame);
      return true;
    }
    return ReceiveFrameWaiting(frame, timeout_ms);
  }

  /// ReceiveFrame without the copy, for every frame at once: all whole frames received
  /// and not handed out yet, where they lie in the link's buffer, after waiting up to
  /// `timeout_ms` for the first when none is there. Valid until the next call that
  /// receives or sends on the link; empty where ReceiveFrame fails. With the socket debug
  /// flag on, one frame at a time, each printed as it is handed out.
  std::span<const uint8_t> NextFrames(int timeout_ms) {
    if (HasBufferedFrame() && !*debug_socket_) return buffer_.TakeFramesInPlace();
    return NextFramesWaiting(timeout_ms);
  }

  /// True when a whole frame has been received and not handed out yet: the next
  /// ReceiveFrame returns at once, without a system call.
  bool HasBufferedFrame() const { return buffer_.HasFrame(); }
  /// True when the start of a frame has been received and its rest has not: a receive
  /// that ran into its limit now would drop those bytes.
  bool HasPartialFrame() const { return buffer_.Size() > 0 && !buffer_.HasFrame(); }

  /// Sends a command, then waits for the frame whose first word equals `answer_code`,
  /// left in `answer`. Other frames are dropped; a "." is printed for every second
  /// without a frame. `timeout_ms` of 0 or less means 5000 ms.
  bool Transact(uint8_t* answer, int timeout_ms, uint32_t command, uint32_t answer_code,
                uint32_t value1, uint32_t value2, uint32_t value3);

 private:
  bool SendFrame(const uint8_t* frame);
  // Waits for room to send, reading what arrives meanwhile; false at the send limit or
  // when the link breaks.
  bool WaitForRoom();
  // Receives what is there into the buffer, making room by dropping old whole frames.
  void TakeWaitingInput();
  bool ReceiveFrameWaiting(uint8_t* frame, int timeout_ms);
  // Receives until a whole frame is held, waiting up to `timeout_ms` for each receive;
  // false on the limit or a broken link.
  bool FillToFrame(int timeout_ms);
  std::span<const uint8_t> NextFramesWaiting(int timeout_ms);
  void MarkBroken();

  const bool* debug_socket_;  // the socket debug flag of the settings

  platform::Socket socket_;
  bool broken_ = false;
  FrameBuffer buffer_;       // received bytes not yet handed out
  BackgroundCloser closer_;  // its end waits for the connections it closes
};

/// The process-wide link used by the device commands.
DeviceLink& Device();

}  // namespace kel
