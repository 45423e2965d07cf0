#pragma once

#include <string>
#include <string_view>

#include "support/temp_dir.h"

namespace kel::testing {

/// A device tree in the form of Linux's sysfs, built in a temporary directory, for the
/// port listings to read instead of /sys.
class FakeSysfs {
 public:
  /// The root, as KELCMD_SYSFS names it.
  std::string Root() const { return dir_.Path().string(); }

  /// Writes the attribute `path` (relative to the root) as sysfs shows it: the text and
  /// a line end.
  void Attribute(std::string_view path, std::string_view text) const;
  /// Makes `path` a symbolic link to `target` (relative to the link's directory, as sysfs
  /// links are).
  void Link(std::string_view path, std::string_view target) const;
  /// Makes an empty directory.
  void Directory(std::string_view path) const;

  /// A USB device at devices/<parent>/<port> with its attributes and the link to it from
  /// bus/usb/devices.
  void UsbDevice(std::string_view parent, std::string_view port, unsigned bus, unsigned device,
                 std::string_view vendor, std::string_view product,
                 std::string_view manufacturer = {}, std::string_view product_text = {},
                 std::string_view serial = {}) const;

  /// A tty in class/tty, its `device` link pointing at `device` (relative to the root;
  /// empty: no link) and its `type` (empty: none).
  void Tty(std::string_view name, std::string_view device, std::string_view type = {}) const;

  /// A PC's first UART (ttyS0 on PNP0501), the ttyS1 the kernel makes without a UART,
  /// an FTDI adapter as ttyUSB0 on bus 1 and a CDC-ACM board as ttyACM0.
  void TypicalPc() const;

 private:
  TempDir dir_;
};

/// Sets an environment variable for the lifetime of the object, then puts back the value
/// it had (none: removed).
class ScopedEnvironment {
 public:
  ScopedEnvironment(std::string name, const std::string& value);
  ~ScopedEnvironment();
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

 private:
  std::string name_;
  std::string saved_;
};

}  // namespace kel::testing
