#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/neighbours.h"

namespace kel {

/// Reads a MAC filter as -m takes it: hex digits of the address's start or of all of it,
/// the separators ":" "-" "." left out, letter case ignored, "*" and "?" as wildcards.
/// The result is the pattern over the address's 12 lower-case hex digits:
///   "00:50:C2" -> "0050c2", "00-11-22-33-44-55" -> "001122334455", "0050c2*" -> "0050c2*"
/// False for any other character, or when nothing is left.
bool ParseMacFilter(std::string_view text, std::string& pattern);

/// True when `mac` matches a pattern of ParseMacFilter: from its first digit on, and a
/// pattern without "*" as a prefix.
bool MacMatches(std::string_view pattern, const platform::MacAddress& mac);

/// "00:11:22:33:44:55".
std::string MacText(const platform::MacAddress& mac);

/// The first complete entry of `table` whose address is not all zero and matches.
std::optional<platform::Neighbour> FindNeighbour(std::span<const platform::Neighbour> table,
                                                 std::string_view pattern);

/// The addresses a scan asks for: every host address of each interface that is up, not
/// the loopback, not point-to-point, with a prefix of /22 or longer (1022 hosts at most),
/// the interface's own address left out; once each, in order.
std::vector<uint32_t> ScanTargets(std::span<const platform::Ipv4Interface> interfaces);

/// What discovery found.
struct FoundDevice {
  std::string mac;      ///< MacText of the address
  std::string address;  ///< the dotted IPv4 address
};

/// Finds the device whose MAC address matches `filter` (ParseMacFilter): first in the
/// neighbour table as it stands; else after asking every host of the scanned interfaces
/// (ScanTargets), reading the table again every 250 ms for up to 2 s. Nothing for a
/// filter that cannot be read.
std::optional<FoundDevice> DiscoverDevice(std::string_view filter);

}  // namespace kel
