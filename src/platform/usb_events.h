#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/socket.h"

namespace kel::platform {

/// A USB device that came or went.
struct UsbEvent {
  bool added = false;  ///< else removed
  std::string port;    ///< where it is: "1-1.2" (Linux), the instance id (Windows)
  uint16_t vendor = 0;
  uint16_t product = 0;
};

/// Reads one kernel uevent message: a heading and NUL-separated KEY=value lines,
///   "add@/devices/.../1-1.2\0ACTION=add\0DEVPATH=/devices/.../1-1.2\0SUBSYSTEM=usb\0
///    DEVTYPE=usb_device\0PRODUCT=403/6001/600\0..."
/// An event only for a whole USB device (not one of its interfaces) added or removed
/// whose ids can be read; nothing for every other message. The port is the last part of
/// DEVPATH, each character that is not a letter, digit, "-", "." or ":" made "?".
std::optional<UsbEvent> ParseUevent(std::string_view message);

/// Reads the name Windows gives a USB device interface that came (`added`) or went,
///   "\\?\USB#VID_0403&PID_6001#A50285BI#{a5dcbf10-6530-11d2-901f-00c04fb951ed}"
/// The port is the instance part ("A50285BI"); nothing when the ids cannot be read.
std::optional<UsbEvent> ParseDeviceInterfaceName(std::string_view name, bool added);

/// Where USB device notices come from. Opened on the system's own notices, or made from
/// a datagram socket that carries messages in the kernel's uevent form (a test's seam).
class UsbEventSource {
 public:
  UsbEventSource();
  /// Reads uevent messages from `socket` (one end of a DatagramPair).
  explicit UsbEventSource(Socket socket);
  ~UsbEventSource();
  UsbEventSource(const UsbEventSource&) = delete;
  UsbEventSource& operator=(const UsbEventSource&) = delete;

  /// Opens the system's notices: Linux the kernel's uevent netlink group (no udev daemon
  /// needed), Windows a message-only window registered for USB device interfaces. False
  /// when the system refused (some containers refuse netlink).
  bool Open();
  /// Waits up to `timeout_ms` for one message and reads it. False on time-out, when
  /// nothing is open, or when the message was no USB device event (the caller asks again).
  bool Receive(UsbEvent& event, int timeout_ms);
  /// True once the source has failed for good (or is not open): no event comes any more
  /// and Receive returns at once. Notices lost to a full buffer do not count.
  bool Failed() const;
  /// Closes the source (Windows: destroys its window and ends the window's thread).
  void Close();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

/// Two datagram sockets connected to each other: a socket pair on Linux, two loopback
/// UDP sockets on Windows. False when the system refused.
bool DatagramPair(Socket& first, Socket& second);

}  // namespace kel::platform
