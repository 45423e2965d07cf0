#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/serial_port.h"

namespace kel::platform {

/// A new pseudo-terminal: a serial line inside this machine. This object reads and writes
/// the master end; the slave end, at SlavePath(), is what other programs open as they would
/// a serial port. The object keeps a slave descriptor of its own open for its whole life, so
/// that programs may open and close the slave as often as they like without the master
/// ever seeing a hang-up. Both ends are raw and not inherited by child processes. POSIX
/// only: on Windows Open fails, saying so.
///
///   PseudoTerminal pty;
///   if (!pty.Open() || !pty.Link("/tmp/ttyKEL")) Fail(pty.Error());
///   poller.AddHandle(pty.Handle(), kPollRead, token);   // then Read and Write
class PseudoTerminal {
 public:
  PseudoTerminal() = default;
  /// Closes both ends and removes the link.
  ~PseudoTerminal() { Close(); }
  PseudoTerminal(const PseudoTerminal&) = delete;
  PseudoTerminal& operator=(const PseudoTerminal&) = delete;

  /// Makes the pair. False, with Error() saying why, when the system refuses one.
  bool Open();
  /// Makes `path` a symbolic link to the slave, as socat's link= does: an earlier symbolic
  /// link at `path` is replaced, any other file there is left alone and fails the call.
  /// Close removes the link again.
  bool Link(const std::string& path);
  void Close();

  bool IsOpen() const { return master_ != kNone; }
  /// The slave's path ("/dev/pts/5").
  const std::string& SlavePath() const { return slave_path_; }
  const std::string& Error() const { return error_; }
  /// The master's descriptor, for Poller::AddHandle.
  intptr_t Handle() const { return master_; }

  /// One read from the master without waiting: kTimeout when nothing is there, kGone when
  /// the terminal failed.
  SerialResult Read(void* data, size_t size);
  /// One write to the master without waiting: kTimeout when the slave's input is full.
  SerialResult Write(const void* data, size_t size);

 private:
  static constexpr intptr_t kNone = -1;
  intptr_t master_ = kNone;
  intptr_t slave_ = kNone;
  std::string slave_path_;
  std::string link_path_;
  std::string error_;
};

}  // namespace kel::platform
