#include "platform/usb_events.h"

#include <charconv>
#include <vector>

namespace kel::platform {
namespace {

bool PortCharacter(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '-' ||
         c == '.' || c == ':';
}

std::string CleanPort(std::string_view text) {
  std::string port(text.substr(0, 64));
  for (char& c : port) {
    if (!PortCharacter(c)) c = '?';
  }
  return port;
}

// A hex number of 1-4 digits, the whole of `text`.
bool ParseHex16(std::string_view text, uint16_t& value) {
  if (text.empty() || text.size() > 4) return false;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
  return error == std::errc() && end == text.data() + text.size();
}

}  // namespace

std::optional<UsbEvent> ParseUevent(std::string_view message) {
  std::string_view action, devpath, subsystem, devtype, product;
  size_t at = message.find('\0');  // the "action@devpath" heading
  while (at != std::string_view::npos && at < message.size()) {
    const size_t end = message.find('\0', at + 1);
    const std::string_view line =
        message.substr(at + 1, (end == std::string_view::npos ? message.size() : end) - at - 1);
    const size_t equals = line.find('=');
    if (equals != std::string_view::npos) {
      const std::string_view key = line.substr(0, equals);
      const std::string_view value = line.substr(equals + 1);
      if (key == "ACTION") action = value;
      if (key == "DEVPATH") devpath = value;
      if (key == "SUBSYSTEM") subsystem = value;
      if (key == "DEVTYPE") devtype = value;
      if (key == "PRODUCT") product = value;
    }
    at = end;
  }
  if (subsystem != "usb" || devtype != "usb_device" || (action != "add" && action != "remove")) {
    return std::nullopt;
  }
  // PRODUCT is "vendor/product/release", each in hex without leading zeros.
  const size_t first = product.find('/');
  const size_t second = product.find('/', first + 1);
  UsbEvent event;
  if (first == std::string_view::npos || second == std::string_view::npos ||
      !ParseHex16(product.substr(0, first), event.vendor) ||
      !ParseHex16(product.substr(first + 1, second - first - 1), event.product)) {
    return std::nullopt;
  }
  event.added = action == "add";
  event.port = CleanPort(devpath.substr(devpath.rfind('/') + 1));
  return event;
}

std::optional<UsbEvent> ParseDeviceInterfaceName(std::string_view name, bool added) {
  std::vector<std::string_view> parts;
  for (size_t from = 0;;) {
    const size_t at = name.find('#', from);
    parts.push_back(name.substr(from, at - from));
    if (at == std::string_view::npos) break;
    from = at + 1;
  }
  if (parts.size() < 3) return std::nullopt;
  std::string ids(parts[1]);  // "VID_0403&PID_6001", in any letter case
  for (char& c : ids) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 32 : c);
  const size_t vid = ids.find("VID_");
  const size_t pid = ids.find("PID_");
  UsbEvent event;
  if (vid == std::string_view::npos || pid == std::string_view::npos ||
      !ParseHex16(std::string_view(ids).substr(vid + 4, 4), event.vendor) ||
      !ParseHex16(std::string_view(ids).substr(pid + 4, 4), event.product)) {
    return std::nullopt;
  }
  event.added = added;
  event.port = CleanPort(parts[2]);
  return event;
}

}  // namespace kel::platform
