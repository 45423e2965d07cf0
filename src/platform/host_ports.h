#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kel::platform {

/// One USB device of the host, as the system describes it.
struct UsbDeviceInfo {
  unsigned bus = 0;
  unsigned device = 0;  ///< the device's number on its bus
  uint16_t vendor = 0;
  uint16_t product = 0;
  std::string manufacturer;  ///< what the device tells of itself; may be empty
  std::string product_text;
  std::string serial;
};

/// One serial port of the host.
struct SerialPortInfo {
  std::string name;          ///< what opens it: "/dev/ttyS0", "COM3"
  std::string enumerator;    ///< the bus it was found on: "ACPI", "USB", "PCI", or ""
  std::string id_text;       ///< the bus's own id when it is not vendor:product ("PNP0501")
  uint16_t vendor = 0;       ///< USB and PCI ports; 0 for ACPI ports
  uint16_t product = 0;      ///< USB and PCI ports; the id's number for ACPI (PNP0501 -> 0x0501)
  std::string manufacturer;  ///< USB ports: what the device tells of itself
  std::string product_text;
  std::string serial;
  std::string description;  ///< ACPI ports: "serial port N", N counting from 0 (ttyS0, COM1)
};

/// Where the system's device tree is read from: the environment variable KELCMD_SYSFS
/// when set and not empty, else "/sys", so that a tree captured from another machine (or
/// built by a test) can be listed. Windows asks SetupAPI and reads no tree: "".
std::string SysfsRoot();

/// The USB devices under `sysfs_root` (Windows: SetupAPI; the root is not used), in
/// order of bus and device number. A device whose numbers or ids cannot be read is left
/// out; one whose strings cannot be read is listed without them.
std::vector<UsbDeviceInfo> ListUsbDevices(const std::string& sysfs_root);

/// The serial ports under `sysfs_root` (Windows: the COM ports SetupAPI knows), in order
/// of name, numbers by value ("ttyS2" before "ttyS10"). On Linux: ttyS* that have a UART
/// behind them (their `type` is not 0), ttyUSB*, ttyACM* and ttyAMA*.
std::vector<SerialPortInfo> ListSerialPorts(const std::string& sysfs_root);

/// Orders ports by name, a run of digits compared by value.
void SortSerialPorts(std::vector<SerialPortInfo>& ports);
/// Orders devices by bus, then device number.
void SortUsbDevices(std::vector<UsbDeviceInfo>& devices);

}  // namespace kel::platform
