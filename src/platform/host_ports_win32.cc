#include <windows.h>
// windows.h first: SetupAPI's header needs its types.
#include <setupapi.h>

#include <cstdlib>
#include <string_view>

#include "platform/host_ports.h"

namespace kel::platform {
namespace {

// The setup class of COM and LPT ports ({4d36e978-e325-11ce-bfc1-08002be10318}).
constexpr GUID kPortsClass = {
    0x4d36e978, 0xe325, 0x11ce, {0xbf, 0xc1, 0x08, 0x00, 0x2b, 0xe1, 0x03, 0x18}};

constexpr DWORD kTextSize = 1024;

// The one owner of a device information set.
class DeviceSet {
 public:
  explicit DeviceSet(HDEVINFO set) : set_(set) {}
  ~DeviceSet() {
    if (Valid()) SetupDiDestroyDeviceInfoList(set_);
  }
  DeviceSet(const DeviceSet&) = delete;
  DeviceSet& operator=(const DeviceSet&) = delete;
  bool Valid() const { return set_ != INVALID_HANDLE_VALUE; }
  HDEVINFO Get() const { return set_; }

 private:
  HDEVINFO set_;
};

std::string Property(HDEVINFO set, SP_DEVINFO_DATA& info, DWORD property) {
  char text[kTextSize] = {};
  DWORD type = 0;
  if (!SetupDiGetDeviceRegistryPropertyA(set, &info, property, &type, reinterpret_cast<BYTE*>(text),
                                         sizeof text - 1, nullptr)) {
    return "";
  }
  return text;  // a multi-string's first string
}

DWORD NumberProperty(HDEVINFO set, SP_DEVINFO_DATA& info, DWORD property) {
  DWORD value = 0;
  DWORD type = 0;
  if (!SetupDiGetDeviceRegistryPropertyA(set, &info, property, &type,
                                         reinterpret_cast<BYTE*>(&value), sizeof value, nullptr)) {
    return 0;
  }
  return value;
}

std::string InstanceId(HDEVINFO set, SP_DEVINFO_DATA& info) {
  char text[kTextSize] = {};
  if (!SetupDiGetDeviceInstanceIdA(set, &info, text, sizeof text - 1, nullptr)) return "";
  return text;
}

// The "PortName" value of the device's key ("COM3").
std::string PortName(HDEVINFO set, SP_DEVINFO_DATA& info) {
  const HKEY key = SetupDiOpenDevRegKey(set, &info, DICS_FLAG_GLOBAL, 0, DIREG_DEV, KEY_READ);
  if (key == INVALID_HANDLE_VALUE) return "";
  char text[256] = {};
  DWORD size = sizeof text - 1;
  DWORD type = 0;
  const LONG status =
      RegQueryValueExA(key, "PortName", nullptr, &type, reinterpret_cast<BYTE*>(text), &size);
  RegCloseKey(key);
  return status == ERROR_SUCCESS && type == REG_SZ ? std::string(text) : std::string();
}

// The 4 hex digits after `tag` in `text` ("USB\VID_0403&PID_6001", "VID_") -> 0x0403.
bool HexAfter(std::string_view text, std::string_view tag, uint16_t& value) {
  const size_t at = text.find(tag);
  if (at == std::string_view::npos || text.size() < at + tag.size() + 4) return false;
  const std::string digits(text.substr(at + tag.size(), 4));
  char* end = nullptr;
  const unsigned long number = std::strtoul(digits.c_str(), &end, 16);
  if (end != digits.c_str() + 4) return false;
  value = static_cast<uint16_t>(number);
  return true;
}

// "USB\VID_0403&PID_6001\A50285BI" split at its backslashes.
std::vector<std::string> Parts(std::string_view id) {
  std::vector<std::string> parts;
  for (size_t from = 0;;) {
    const size_t at = id.find('\\', from);
    parts.emplace_back(id.substr(from, at - from));
    if (at == std::string_view::npos) break;
    from = at + 1;
  }
  return parts;
}

// The last part of a USB instance id is the device's serial number unless Windows made
// it up (then it holds "&").
std::string SerialOf(const std::vector<std::string>& parts) {
  if (parts.size() < 3 || parts[2].find('&') != std::string::npos) return "";
  return parts[2];
}

}  // namespace

std::string SysfsRoot() { return ""; }

std::vector<UsbDeviceInfo> ListUsbDevices(const std::string&) {
  std::vector<UsbDeviceInfo> devices;
  const DeviceSet set(
      SetupDiGetClassDevsA(nullptr, "USB", nullptr, DIGCF_ALLCLASSES | DIGCF_PRESENT));
  if (!set.Valid()) return devices;
  SP_DEVINFO_DATA info{};
  info.cbSize = sizeof info;
  for (DWORD i = 0; SetupDiEnumDeviceInfo(set.Get(), i, &info); ++i) {
    const std::string id = InstanceId(set.Get(), info);
    UsbDeviceInfo device;
    // Interfaces of composite devices ("&MI_") and hubs without ids are not devices.
    if (id.find("&MI_") != std::string::npos || !HexAfter(id, "VID_", device.vendor) ||
        !HexAfter(id, "PID_", device.product)) {
      continue;
    }
    // "Port_#0003.Hub_#0002": the hub stands for the bus.
    const std::string location = Property(set.Get(), info, SPDRP_LOCATION_INFORMATION);
    if (const size_t hub = location.find("Hub_#"); hub != std::string::npos) {
      device.bus = static_cast<unsigned>(std::strtoul(location.c_str() + hub + 5, nullptr, 10));
    }
    device.device = NumberProperty(set.Get(), info, SPDRP_ADDRESS);
    device.manufacturer = Property(set.Get(), info, SPDRP_MFG);
    device.product_text = Property(set.Get(), info, SPDRP_DEVICEDESC);
    device.serial = SerialOf(Parts(id));
    devices.push_back(std::move(device));
  }
  SortUsbDevices(devices);
  return devices;
}

std::vector<SerialPortInfo> ListSerialPorts(const std::string&) {
  std::vector<SerialPortInfo> ports;
  const DeviceSet set(SetupDiGetClassDevsA(&kPortsClass, nullptr, nullptr, DIGCF_PRESENT));
  if (!set.Valid()) return ports;
  SP_DEVINFO_DATA info{};
  info.cbSize = sizeof info;
  for (DWORD i = 0; SetupDiEnumDeviceInfo(set.Get(), i, &info); ++i) {
    SerialPortInfo port;
    port.name = PortName(set.Get(), info);
    if (port.name.size() < 4 || port.name.compare(0, 3, "COM") != 0) continue;  // LPT ports
    const std::vector<std::string> parts = Parts(InstanceId(set.Get(), info));
    port.enumerator = parts[0];
    const std::string hardware = Property(set.Get(), info, SPDRP_HARDWAREID);
    if (HexAfter(hardware, "VID_", port.vendor) && HexAfter(hardware, "PID_", port.product)) {
      port.manufacturer = Property(set.Get(), info, SPDRP_MFG);
      port.product_text = Property(set.Get(), info, SPDRP_DEVICEDESC);
      port.serial = SerialOf(parts);
    } else if (parts.size() > 1 && parts[1].size() == 7 && parts[1].compare(0, 3, "PNP") == 0) {
      port.id_text = parts[1];
      port.product = static_cast<uint16_t>(std::strtoul(parts[1].c_str() + 3, nullptr, 16));
      // COM1 is the first port, as ttyS0 is.
      const unsigned long com = std::strtoul(port.name.c_str() + 3, nullptr, 10);
      port.description = "serial port " + std::to_string(com > 0 ? com - 1 : 0);
    } else {
      port.description = Property(set.Get(), info, SPDRP_FRIENDLYNAME);
    }
    ports.push_back(std::move(port));
  }
  SortSerialPorts(ports);
  return ports;
}

}  // namespace kel::platform
