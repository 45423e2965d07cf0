#include "ports/port_listing.h"

#include <algorithm>
#include <cstdio>

#include "config/serial_lookup.h"
#include "core/parse.h"
#include "core/wildcard.h"

namespace kel {
namespace {

constexpr char kUsbLineFormat[] = "Bus %03u Device %03u: ID %04x:%04x %s\n";
constexpr char kSerialLineFormat[] = "%-15s %s\n";
constexpr char kNoUsbDevices[] = "no USB devices found\n";
constexpr char kNoSerialPorts[] = "no serial ports found\n";
constexpr char kUsbHeading[] = "USB devices:\n";
constexpr char kSerialHeading[] = "Serial ports:\n";
constexpr size_t kFilterSize = 256;

// One half of a filter: up to four hex digits, or nothing for any.
bool ParseHalf(std::string_view text, int& value) {
  if (text.empty()) return true;
  const std::optional<uint32_t> digits = ParseHexDigits(text, 4);
  if (digits) value = static_cast<int>(*digits);
  return digits.has_value();
}

std::string Printed(const char* format, auto... args) {
  char line[1024];
  const int length = std::snprintf(line, sizeof line, format, args...);
  return std::string(line, static_cast<size_t>(std::clamp(length, 0, int{sizeof line} - 1)));
}

std::vector<std::string> UsbLines(std::span<const platform::UsbDeviceInfo> devices,
                                  const UsbFilter& filter, const UsbIdTable& names) {
  std::vector<std::string> lines;
  for (const platform::UsbDeviceInfo& d : devices) {
    if ((filter.vendor >= 0 && d.vendor != filter.vendor) ||
        (filter.product >= 0 && d.product != filter.product)) {
      continue;
    }
    const std::string name =
        UsbDeviceName(names, d.vendor, d.product, d.manufacturer, d.product_text);
    lines.push_back(Printed(kUsbLineFormat, d.bus, d.device, unsigned{d.vendor},
                            unsigned{d.product}, name.c_str()));
  }
  return lines;
}

std::vector<std::string> SerialLines(std::span<const platform::SerialPortInfo> ports,
                                     const UsbIdTable& names) {
  std::vector<std::string> lines;
  for (const platform::SerialPortInfo& port : ports) {
    lines.push_back(
        Printed(kSerialLineFormat, port.name.c_str(), SerialPortText(port, names).c_str()));
  }
  return lines;
}

// The lines a wildcard pattern lets through, matched against the line without its end
// (or, for ports, against the name alone).
std::string Joined(const std::vector<std::string>& lines, std::string_view pattern,
                   const char* none) {
  std::string text;
  for (const std::string& line : lines) {
    const std::string_view bare = std::string_view(line).substr(0, line.size() - 1);
    const std::string_view first = bare.substr(0, bare.find(' '));
    if (pattern.empty() || MatchWildcard(bare, pattern) || MatchWildcard(first, pattern)) {
      text += line;
    }
  }
  return text.empty() ? none : text;
}

// Text from the host goes out through the printf-like renderer: "%" doubled.
ResultCode Emit(std::string_view text, Output& out) {
  std::string escaped;
  escaped.reserve(text.size());
  for (const char c : text) {
    escaped += c;
    if (c == '%') escaped += '%';
  }
  return static_cast<ResultCode>(out.Append(escaped));
}

}  // namespace

bool ParseUsbFilter(std::string_view text, UsbFilter& filter) {
  filter = UsbFilter{};
  if (text.empty()) return true;
  const size_t colon = text.find(':');
  if (colon == std::string_view::npos) return false;
  return ParseHalf(text.substr(0, colon), filter.vendor) &&
         ParseHalf(text.substr(colon + 1), filter.product);
}

std::string UsbListing(std::span<const platform::UsbDeviceInfo> devices, const UsbFilter& filter,
                       const UsbIdTable& names) {
  return Joined(UsbLines(devices, filter, names), "", kNoUsbDevices);
}

std::string SerialListing(std::span<const platform::SerialPortInfo> ports, std::string_view pattern,
                          const UsbIdTable& names) {
  return Joined(SerialLines(ports, names), pattern, kNoSerialPorts);
}

ResultCode HandleListPorts(const CommandEntry& entry, std::string_view& rest, Output& out) {
  const std::string argument = SplitWord(rest, kWordSeparators, kFilterSize);
  const std::string root = platform::SysfsRoot();
  const UsbIdTable names = UsbIds();
  if (EqualsNoCase(entry.Name(), "lsusb")) {
    UsbFilter filter;
    if (!ParseUsbFilter(argument, filter)) return FormatResult(&entry, kErrBadArgs, out);
    return Emit(UsbListing(platform::ListUsbDevices(root), filter, names), out);
  }
  const std::string pattern(Unquote(argument));
  if (EqualsNoCase(entry.Name(), "lscom")) {
    return Emit(SerialListing(platform::ListSerialPorts(root), pattern, names), out);
  }
  const std::string usb =
      Joined(UsbLines(platform::ListUsbDevices(root), {}, names), pattern, kNoUsbDevices);
  const std::string serial =
      Joined(SerialLines(platform::ListSerialPorts(root), names), pattern, kNoSerialPorts);
  return Emit(kUsbHeading + usb + kSerialHeading + serial, out);
}

}  // namespace kel
