#pragma once

#include <span>
#include <string>
#include <string_view>

#include "config/usb_ids.h"
#include "core/command.h"
#include "platform/host_ports.h"

namespace kel {

/// A device filter as lsusb takes it: "vendor:[product]", each half hexadecimal and
/// either half may be left empty ("0403:", "0403:6001", ":6001").
struct UsbFilter {
  int vendor = -1;  ///< -1: any
  int product = -1;
};

/// Reads a filter; false when the text is not of that form. "" is no filter.
bool ParseUsbFilter(std::string_view text, UsbFilter& filter);

/// The lsusb lines of the devices that pass `filter`, in the order given:
///   "Bus 001 Device 003: ID 0403:6001 <vendor> <product>\n"
/// or "no USB devices found\n" when none passes.
std::string UsbListing(std::span<const platform::UsbDeviceInfo> devices, const UsbFilter& filter,
                       const UsbIdTable& names);

/// The lscom lines of the ports whose line or name matches the wildcard `pattern`
/// (empty: every port), in the order given:
///   "/dev/ttyS0      ACPI PNP0501 serial port 0\n"
/// or "no serial ports found\n" when none does.
std::string SerialListing(std::span<const platform::SerialPortInfo> ports, std::string_view pattern,
                          const UsbIdTable& names);

/// `lsport`, `lscom` and `lsusb`: one handler for the three rows, which tells the listing
/// from the row's name. lsusb takes a "vendor:[product]" filter, lscom a wildcard pattern,
/// lsport a pattern over both lists' lines. The host's devices are read afresh each time
/// (under platform::SysfsRoot() on Linux).
ResultCode HandleListPorts(const CommandEntry& entry, std::string_view& rest, Output& out);

}  // namespace kel
