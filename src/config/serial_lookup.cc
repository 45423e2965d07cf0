#include "config/serial_lookup.h"

#include <cstdio>

#include "core/wildcard.h"

namespace kel {
namespace {

void AddWord(std::string& text, std::string_view word) {
  if (word.empty()) return;
  if (!text.empty()) text += ' ';
  text += word;
}

bool IdsMatch(const platform::SerialPortInfo& port, PortIds ids) {
  const bool vendor_compared = ids.vendor != kAnyId && port.enumerator != "ACPI";
  if (vendor_compared && port.vendor != ids.vendor) return false;
  return ids.product == kAnyId || port.product == ids.product;
}

bool PatternMatches(std::string_view text, std::string_view pattern) {
  return pattern.empty() || MatchWildcard(text, pattern);
}

}  // namespace

std::string SerialPortText(const platform::SerialPortInfo& port, const UsbIdTable& names) {
  std::string text;
  AddWord(text, port.enumerator);
  if (!port.id_text.empty()) {
    AddWord(text, port.id_text);
  } else if (port.vendor != 0 || port.product != 0) {
    char ids[16];
    std::snprintf(ids, sizeof ids, "%04x:%04x", port.vendor, port.product);
    AddWord(text, ids);
  }
  if (port.enumerator == "USB") {
    AddWord(text,
            UsbDeviceName(names, port.vendor, port.product, port.manufacturer, port.product_text));
  }
  AddWord(text, port.description);
  if (!port.serial.empty()) AddWord(text, "serial '" + port.serial + "'");
  return text;
}

std::string FindSerialPort(std::span<const platform::SerialPortInfo> ports,
                           std::string_view enumerator_pattern, PortIds first, PortIds second,
                           std::string_view description_pattern, const UsbIdTable& names) {
  for (const platform::SerialPortInfo& port : ports) {
    if (PatternMatches(port.enumerator, enumerator_pattern) && IdsMatch(port, first) &&
        IdsMatch(port, second) &&
        PatternMatches(SerialPortText(port, names), description_pattern)) {
      return port.name;
    }
  }
  return "";
}

std::string LookupStartupSerialPort() {
  return FindSerialPort(platform::ListSerialPorts(platform::SysfsRoot()), "ACPI", {12, 0x0501},
                        {kAnyId, kAnyId}, "*serial port 0*", UsbIds());
}

}  // namespace kel
