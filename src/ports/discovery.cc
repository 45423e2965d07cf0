#include "ports/discovery.h"

#include <cstdio>
#include <unordered_set>

#include "core/wildcard.h"
#include "platform/clock.h"
#include "platform/socket.h"

namespace kel {
namespace {

constexpr unsigned kLongestSweep = 22;  // prefix lengths below this are never scanned
constexpr uint32_t kRereadMs = 250;
constexpr uint64_t kScanWaitMs = 2000;

uint32_t HostOrder(uint32_t memory_order) {
  const auto* b = reinterpret_cast<const uint8_t*>(&memory_order);
  return uint32_t{b[0]} << 24 | uint32_t{b[1]} << 16 | uint32_t{b[2]} << 8 | b[3];
}

uint32_t MemoryOrder(uint32_t host_order) {
  uint32_t value = 0;
  auto* b = reinterpret_cast<uint8_t*>(&value);
  b[0] = static_cast<uint8_t>(host_order >> 24);
  b[1] = static_cast<uint8_t>(host_order >> 16);
  b[2] = static_cast<uint8_t>(host_order >> 8);
  b[3] = static_cast<uint8_t>(host_order);
  return value;
}

// The length of a contiguous mask ("255.255.252.0" -> 22), -1 for any other mask.
int PrefixLength(uint32_t mask) {
  int length = 0;
  while (length < 32 && (mask & (0x80000000U >> length)) != 0) ++length;
  const uint32_t expected = length == 0 ? 0 : ~uint32_t{0} << (32 - length);
  return mask == expected ? length : -1;
}

}  // namespace

bool ParseMacFilter(std::string_view text, std::string& pattern) {
  pattern.clear();
  for (const char c : text) {
    if (c == ':' || c == '-' || c == '.') continue;
    if (c == '*' || c == '?' || (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f')) {
      pattern += c;
    } else if (c >= 'A' && c <= 'F') {
      pattern += static_cast<char>(c - 'A' + 'a');
    } else {
      return false;
    }
  }
  return !pattern.empty();
}

bool MacMatches(std::string_view pattern, const platform::MacAddress& mac) {
  char digits[13];
  std::snprintf(digits, sizeof digits, "%02x%02x%02x%02x%02x%02x", mac[0], mac[1], mac[2], mac[3],
                mac[4], mac[5]);
  if (pattern.find('*') != std::string_view::npos) return MatchWildcard(digits, pattern);
  return MatchWildcard(digits, std::string(pattern) + "*");
}

std::string MacText(const platform::MacAddress& mac) {
  char text[18];
  std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
                mac[4], mac[5]);
  return text;
}

std::optional<platform::Neighbour> FindNeighbour(std::span<const platform::Neighbour> table,
                                                 std::string_view pattern) {
  for (const platform::Neighbour& entry : table) {
    if (entry.complete && entry.mac != platform::MacAddress{} && MacMatches(pattern, entry.mac)) {
      return entry;
    }
  }
  return std::nullopt;
}

std::vector<uint32_t> ScanTargets(std::span<const platform::Ipv4Interface> interfaces) {
  std::vector<uint32_t> targets;  // host order while collected
  for (const platform::Ipv4Interface& link : interfaces) {
    const int prefix = PrefixLength(HostOrder(link.netmask));
    if (!link.up || link.loopback || link.point_to_point ||
        prefix < static_cast<int>(kLongestSweep) || prefix == 32) {
      continue;
    }
    const uint32_t own = HostOrder(link.address);
    const uint32_t mask = HostOrder(link.netmask);
    uint32_t first = (own & mask) + 1;
    uint32_t last = (own | ~mask) - 1;  // the network and broadcast addresses are no hosts
    if (prefix == 31) {                 // a point-to-point link's two addresses
      --first;
      ++last;
    }
    for (uint32_t host = first; host <= last; ++host) {
      if (host != own) targets.push_back(host);
    }
  }
  std::vector<uint32_t> unique;
  std::unordered_set<uint32_t> seen;
  for (const uint32_t host : targets) {
    if (seen.insert(host).second) unique.push_back(MemoryOrder(host));
  }
  return unique;
}

std::optional<FoundDevice> DiscoverDevice(std::string_view filter) {
  std::string pattern;
  if (!ParseMacFilter(filter, pattern)) return std::nullopt;
  const auto found = [&pattern]() -> std::optional<FoundDevice> {
    const std::optional<platform::Neighbour> entry =
        FindNeighbour(platform::ReadNeighbours(), pattern);
    if (!entry) return std::nullopt;
    return FoundDevice{MacText(entry->mac), platform::DottedAddress(entry->ip)};
  };
  if (std::optional<FoundDevice> device = found()) return device;
  std::vector<uint32_t> targets = ScanTargets(platform::ListIpv4Interfaces());
  if (targets.empty()) return std::nullopt;
  const platform::NeighbourProbe probe(std::move(targets));
  for (const uint64_t start = platform::MonotonicMs();
       platform::MonotonicMs() - start < kScanWaitMs;) {
    platform::SleepMs(kRereadMs);
    if (std::optional<FoundDevice> device = found()) return device;
  }
  return std::nullopt;
}

}  // namespace kel
