#include "platform/neighbours.h"

#include <cstdlib>
#include <sstream>

namespace kel::platform {
namespace {

constexpr unsigned long kCompleteFlag = 0x2;  // ATF_COM

// "10.9.0.7" in network byte order as it lies in memory; false unless four parts 0-255.
bool ParseDotted(const std::string& text, uint32_t& ip) {
  uint8_t bytes[4];
  size_t at = 0;
  for (int part = 0; part < 4; ++part) {
    if (at >= text.size() || text[at] < '0' || text[at] > '9') return false;
    unsigned value = 0;
    for (int digits = 0; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++digits, ++at) {
      if (digits == 3) return false;
      value = value * 10 + static_cast<unsigned>(text[at] - '0');
    }
    if (value > 255) return false;
    bytes[part] = static_cast<uint8_t>(value);
    if (part < 3 && (at >= text.size() || text[at++] != '.')) return false;
  }
  if (at != text.size()) return false;
  ip = uint32_t{bytes[0]} | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 |
       uint32_t{bytes[3]} << 24;
  return true;
}

int Hex(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// "00:11:22:33:44:55"; false unless six pairs of hex digits separated by ":".
bool ParseMac(const std::string& text, MacAddress& mac) {
  if (text.size() != 17) return false;
  for (size_t i = 0; i < 6; ++i) {
    const int high = Hex(text[i * 3]);
    const int low = Hex(text[i * 3 + 1]);
    if (high < 0 || low < 0 || (i < 5 && text[i * 3 + 2] != ':')) return false;
    mac[i] = static_cast<uint8_t>(high << 4 | low);
  }
  return true;
}

}  // namespace

std::vector<Neighbour> ParseArpTable(std::string_view text) {
  std::vector<Neighbour> table;
  std::istringstream lines{std::string(text)};
  std::string line;
  while (std::getline(lines, line)) {
    std::istringstream fields(line);
    std::string address, type, flags, mac;
    if (!(fields >> address >> type >> flags >> mac)) continue;
    Neighbour entry;
    char* end = nullptr;
    const unsigned long flag_bits = std::strtoul(flags.c_str(), &end, 16);
    if (end == flags.c_str() || *end != '\0') continue;  // the heading line among others
    if (!ParseDotted(address, entry.ip) || !ParseMac(mac, entry.mac)) continue;
    entry.complete = (flag_bits & kCompleteFlag) != 0;
    table.push_back(entry);
  }
  return table;
}

}  // namespace kel::platform
