#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

namespace kel::platform {

/// How a read or write on a serial line ended.
enum class SerialStatus {
  kOk,       ///< some bytes moved
  kTimeout,  ///< nothing moved within the time limit (or, without one, nothing now)
  kGone,     ///< the port vanished (unplugged, its other end closed) or failed
};

struct SerialResult {
  SerialStatus status = SerialStatus::kGone;
  size_t bytes = 0;
};

/// The one owner of an open serial port: 115200 baud, 8 data bits, no parity, one stop bit,
/// no flow control, raw (every byte passes as it is, nothing is echoed or translated). The
/// port is not inherited by child processes and closing it leaves the modem lines alone.
///
///   SerialPort port;
///   if (!port.Open("/dev/ttyUSB0")) Fail(port.Error());   // "COM3" on Windows
///   port.DiscardInput();                                    // before a request
///   port.Write("$VER\r\n", 6, 1000);
///   char buffer[256];
///   SerialResult r = port.Read(buffer, sizeof buffer, 1000);
class SerialPort {
 public:
  SerialPort() = default;
  ~SerialPort() { Close(); }
  SerialPort(SerialPort&& other) noexcept
      : handle_(other.handle_), error_(std::move(other.error_)) {
    other.handle_ = kNone;
  }
  SerialPort& operator=(SerialPort&& other) noexcept {
    if (this != &other) {
      Close();
      handle_ = other.handle_;
      error_ = std::move(other.error_);
      other.handle_ = kNone;
    }
    return *this;
  }
  SerialPort(const SerialPort&) = delete;
  SerialPort& operator=(const SerialPort&) = delete;

  /// Opens the port `name` ("/dev/ttyUSB0"; "COM3" or "\\.\COM12" on Windows) and sets the
  /// line up. False, with Error() saying why, when the name is empty, nothing of that name
  /// exists, it is not a terminal (a serial port), or it refuses the settings. A port
  /// already open is closed first.
  bool Open(const std::string& name);
  bool IsOpen() const { return handle_ != kNone; }
  void Close();
  /// Why the last Open failed, in a few words ("not a terminal").
  const std::string& Error() const { return error_; }

  /// Throws away every byte received and not read yet.
  void DiscardInput();
  /// Writes all `size` bytes within `timeout_ms`: kOk when all went, kTimeout when the line
  /// took only `bytes` of them in time.
  SerialResult Write(const void* data, size_t size, int timeout_ms);
  /// Waits up to `timeout_ms` (0: not at all) for received bytes and reads what is there,
  /// at most `size`.
  SerialResult Read(void* data, size_t size, int timeout_ms);

 private:
  static constexpr intptr_t kNone = -1;
  intptr_t handle_ = kNone;
  std::string error_;
};

}  // namespace kel::platform
