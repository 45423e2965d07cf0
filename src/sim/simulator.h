#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "device/frame.h"
#include "platform/socket.h"
#include "sim/board.h"
#include "sim/config.h"

namespace kel::sim {

/// The virtual board: a TCP service at base port + channel for channels 0 to 3 that speaks
/// the board's frame protocol (docs/protocol.md), keeps its state and wires its CAN channels
/// to simulated buses. One thread serves every connection; the object owns it, and its
/// methods may be called from any thread.
///
///   Config config;
///   config.base_port = 0;         // pick free ports
///   config.record_frames = true;  // keep what the board sees
///   Simulator board(config);
///   if (!board.Start()) Fail(board.Error());
///   ... connect to 127.0.0.1:board.Port(0) ...
///   board.WaitForReceivedFrames(0, 1, 5000);
class Simulator {
 public:
  explicit Simulator(Config config = Config());
  /// Stops the board if it still runs.
  ~Simulator();
  Simulator(const Simulator&) = delete;
  Simulator& operator=(const Simulator&) = delete;

  /// Binds the four ports and starts serving. False, with Error() saying why, when the
  /// address is not one, a port cannot be bound or the system refuses resources. A board
  /// starts only once.
  bool Start();
  /// Closes every connection and the listening ports and ends the serving thread. Safe to
  /// call more than once; the state stays readable.
  void Stop();

  /// Opens the board controller's serial line on a new pseudo-terminal, served by the
  /// board's thread (docs/protocol.md). When `link` is not empty, a symbolic link at that
  /// path leads to the terminal, as socat's link= makes one. Returns the path programs open
  /// ("/dev/pts/5"), or empty with Error() saying why (on Windows it is not supported). Once
  /// per board, after Start; Stop closes it.
  std::string StartSerial(const std::string& link = "");

  /// Why Start or StartSerial failed.
  const std::string& Error() const;
  /// The first of the four ports (the one picked when the configured base port was 0).
  uint16_t BasePort() const;
  uint16_t Port(int channel) const { return static_cast<uint16_t>(BasePort() + channel); }
  /// The address and port a client of `channel` connects to.
  platform::SocketAddress Address(int channel) const;

  /// A copy of the board's state and counters.
  BoardState State() const;
  /// Waits up to `timeout_ms` until `done` holds for the state; false at the limit. `done`
  /// runs with the board locked and must not call this object.
  bool WaitForState(const std::function<bool(const BoardState&)>& done, int timeout_ms) const;

  /// Every frame that clients of `channel` sent, in the order the board took them (only
  /// with Config::record_frames).
  std::vector<FrameBytes> ReceivedFrames(int channel) const;
  /// Waits up to `timeout_ms` until `channel` has recorded at least `count` frames.
  bool WaitForReceivedFrames(int channel, size_t count, int timeout_ms) const;
  /// Forgets the recorded frames of every channel.
  void ClearReceivedFrames();

  /// Changes the faults; they apply from the next frame the board handles.
  void SetFaults(const Faults& faults);
  Faults CurrentFaults() const;

 private:
  class Loop;
  std::unique_ptr<Loop> loop_;
};

}  // namespace kel::sim
