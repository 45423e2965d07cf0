#include "platform/host_ports.h"

#include <algorithm>
#include <string_view>

namespace kel::platform {
namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// "ttyS2" < "ttyS10": runs of digits compare by value, everything else by character.
bool NaturalLess(std::string_view a, std::string_view b) {
  size_t i = 0;
  size_t j = 0;
  while (i < a.size() && j < b.size()) {
    if (IsDigit(a[i]) && IsDigit(b[j])) {
      size_t ei = i;
      size_t ej = j;
      while (ei < a.size() && IsDigit(a[ei])) ++ei;
      while (ej < b.size() && IsDigit(b[ej])) ++ej;
      std::string_view da = a.substr(i, ei - i);
      std::string_view db = b.substr(j, ej - j);
      while (da.size() > 1 && da.front() == '0') da.remove_prefix(1);
      while (db.size() > 1 && db.front() == '0') db.remove_prefix(1);
      if (da.size() != db.size()) return da.size() < db.size();
      if (da != db) return da < db;
      i = ei;
      j = ej;
    } else {
      if (a[i] != b[j]) return a[i] < b[j];
      ++i;
      ++j;
    }
  }
  return a.size() - i < b.size() - j;
}

}  // namespace

void SortSerialPorts(std::vector<SerialPortInfo>& ports) {
  std::stable_sort(
      ports.begin(), ports.end(),
      [](const SerialPortInfo& a, const SerialPortInfo& b) { return NaturalLess(a.name, b.name); });
}

void SortUsbDevices(std::vector<UsbDeviceInfo>& devices) {
  std::stable_sort(devices.begin(), devices.end(),
                   [](const UsbDeviceInfo& a, const UsbDeviceInfo& b) {
                     return a.bus != b.bus ? a.bus < b.bus : a.device < b.device;
                   });
}

}  // namespace kel::platform
