#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "config/usb_ids.h"
#include "platform/host_ports.h"

namespace kel {

/// An id pair a port lookup asks for; a half of kAnyId matches every port.
inline constexpr uint16_t kAnyId = 0xFFFF;
struct PortIds {
  uint16_t vendor = kAnyId;
  uint16_t product = kAnyId;
};

/// What lscom shows behind a port's name, and what a lookup's description pattern is
/// matched against: the bus, its id, the names and the serial number as far as known.
///   "ACPI PNP0501 serial port 0"
///   "USB 0403:6001 Future Technology Devices International, Ltd FT232 Serial (UART) IC
///    serial 'A50285BI'" (one line)
std::string SerialPortText(const platform::SerialPortInfo& port, const UsbIdTable& names);

/// The name of the first of `ports` that matches every part of the lookup, "" when none
/// does:
///   `enumerator_pattern` - a wildcard pattern over the port's bus ("ACPI", "USB"); empty
///                          matches every bus
///   `first`, `second`    - id pairs the port's ids must both match. ACPI ports carry no
///                          vendor number, so only their product half (PNP0501 -> 0x0501)
///                          is compared
///   `description_pattern`- a wildcard pattern over SerialPortText ("*serial port 0*");
///                          empty matches every port
/// Patterns ignore letter case.
std::string FindSerialPort(std::span<const platform::SerialPortInfo> ports,
                           std::string_view enumerator_pattern, PortIds first, PortIds second,
                           std::string_view description_pattern, const UsbIdTable& names);

/// The serial port start-up takes when none was given: the first port of the host
/// (platform::ListSerialPorts under platform::SysfsRoot(), so KELCMD_SYSFS applies) on the
/// ACPI bus with id 0x0501 whose description holds "serial port 0" - the PC's first UART,
/// /dev/ttyS0 or COM1. "" when the host has none, as in most containers.
std::string LookupStartupSerialPort();

}  // namespace kel
