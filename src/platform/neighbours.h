#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kel::platform {

/// A link-layer (MAC) address.
using MacAddress = std::array<uint8_t, 6>;

/// One entry of the system's neighbour (ARP) table.
struct Neighbour {
  uint32_t ip = 0;        ///< IPv4 address, network byte order as it lies in memory
  MacAddress mac{};       ///< all zero while unresolved
  bool complete = false;  ///< the address was resolved (or set by hand)
};

/// One IPv4 address of a network interface.
struct Ipv4Interface {
  std::string name;
  uint32_t address = 0;  ///< network byte order as it lies in memory
  uint32_t netmask = 0;  ///< network byte order as it lies in memory
  bool up = false;
  bool loopback = false;
  bool point_to_point = false;
};

/// The IPv4 addresses of this host's interfaces (of this network namespace on Linux).
std::vector<Ipv4Interface> ListIpv4Interfaces();

/// The neighbour table as it stands (Linux: /proc/net/arp of this network namespace;
/// Windows: GetIpNetTable2).
std::vector<Neighbour> ReadNeighbours();

/// Reads the text of /proc/net/arp: a heading line, then one line per entry
///   "10.9.0.7  0x1  0x6  00:11:22:33:44:55  *  v0"
/// (address, hardware type, flags, hardware address, mask, device). Flag 0x2 marks a
/// complete entry. Lines that are not of that form are skipped.
std::vector<Neighbour> ParseArpTable(std::string_view text);

/// Makes the system resolve the link addresses of `hosts`, so that those that answer
/// appear in the neighbour table. Linux sends each host one 1-byte UDP datagram to port 9
/// (discard), for which the kernel first asks by ARP, and is done when constructed;
/// Windows asks with SendARP from a pool of 32 threads, which the destructor stops and
/// waits for (each ask takes up to a few seconds when nobody answers).
class NeighbourProbe {
 public:
  explicit NeighbourProbe(std::vector<uint32_t> hosts);
  ~NeighbourProbe();
  NeighbourProbe(const NeighbourProbe&) = delete;
  NeighbourProbe& operator=(const NeighbourProbe&) = delete;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace kel::platform
