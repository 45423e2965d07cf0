#include "sim/config.h"

#include <array>
#include <cstring>

namespace kel::sim {

std::optional<uint32_t> ParseIpv4(std::string_view text) {
  if (text == "localhost") text = "127.0.0.1";
  std::array<uint8_t, 4> parts{};
  size_t pos = 0;
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) {
      if (pos >= text.size() || text[pos] != '.') return std::nullopt;
      ++pos;
    }
    uint32_t value = 0;
    size_t digits = 0;
    while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9' && digits < 4) {
      value = value * 10 + static_cast<uint32_t>(text[pos] - '0');
      ++pos;
      ++digits;
    }
    if (digits == 0 || digits > 3 || value > 255) return std::nullopt;
    parts[i] = static_cast<uint8_t>(value);
  }
  if (pos != text.size()) return std::nullopt;
  uint32_t ip = 0;
  std::memcpy(&ip, parts.data(), sizeof ip);
  return ip;
}

std::optional<Wiring> ParseWiring(std::string_view text) {
  Wiring wiring{0, 1, 2, 3};
  if (text.empty() || text == "none") return wiring;
  std::array<bool, kChannelCount> named{};
  int group_bus = -1;  // the first channel of the current group
  bool expect_channel = true;
  for (const char c : text) {
    if (expect_channel) {
      if (c < '0' || c >= '0' + kChannelCount) return std::nullopt;
      const int channel = c - '0';
      if (named[static_cast<size_t>(channel)]) return std::nullopt;
      named[static_cast<size_t>(channel)] = true;
      if (group_bus < 0) group_bus = channel;
      wiring[static_cast<size_t>(channel)] = group_bus;
      expect_channel = false;
    } else if (c == '-') {
      expect_channel = true;
    } else if (c == ',') {
      expect_channel = true;
      group_bus = -1;
    } else {
      return std::nullopt;
    }
  }
  if (expect_channel) return std::nullopt;
  return wiring;
}

std::string WiringText(const Wiring& wiring) {
  std::string text;
  std::array<bool, kChannelCount> done{};
  for (int ch = 0; ch < kChannelCount; ++ch) {
    if (done[static_cast<size_t>(ch)]) continue;
    std::string group(1, static_cast<char>('0' + ch));
    for (int other = ch + 1; other < kChannelCount; ++other) {
      if (wiring[static_cast<size_t>(other)] == wiring[static_cast<size_t>(ch)]) {
        done[static_cast<size_t>(other)] = true;
        group += '-';
        group += static_cast<char>('0' + other);
      }
    }
    if (group.size() == 1) continue;
    if (!text.empty()) text += ',';
    text += group;
  }
  return text.empty() ? "none" : text;
}

}  // namespace kel::sim
