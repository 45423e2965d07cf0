#include <errno.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <iterator>

#include "platform/neighbours.h"

namespace kel::platform {
namespace {

constexpr uint16_t kDiscardPort = 9;
constexpr int kSendBuffer = 1 << 20;
// Datagrams waiting for ARP hold their socket's send buffer: when it is full, the rest go
// through a new socket, up to this many.
constexpr int kMaxSockets = 16;

// One UDP socket, closed with the object.
class UdpSocket {
 public:
  UdpSocket() : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    if (fd_ >= 0) setsockopt(fd_, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
  }
  ~UdpSocket() {
    if (fd_ >= 0) close(fd_);
  }
  UdpSocket(const UdpSocket&) = delete;
  UdpSocket& operator=(const UdpSocket&) = delete;
  bool Valid() const { return fd_ >= 0; }
  // False only when the send buffer is full.
  bool SendOneByte(uint32_t ip) const {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(kDiscardPort);
    to.sin_addr.s_addr = ip;
    const char byte = 0;
    const ssize_t sent =
        sendto(fd_, &byte, 1, MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    return sent >= 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != ENOBUFS);
  }

 private:
  int fd_;
};

uint32_t AddressOf(const sockaddr* address) {
  if (address == nullptr || address->sa_family != AF_INET) return 0;
  return reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr;
}

}  // namespace

struct NeighbourProbe::Impl {};

std::vector<Ipv4Interface> ListIpv4Interfaces() {
  std::vector<Ipv4Interface> interfaces;
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return interfaces;
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) continue;
    Ipv4Interface found;
    found.name = entry->ifa_name != nullptr ? entry->ifa_name : "";
    found.address = AddressOf(entry->ifa_addr);
    found.netmask = AddressOf(entry->ifa_netmask);
    found.up = (entry->ifa_flags & IFF_UP) != 0;
    found.loopback = (entry->ifa_flags & IFF_LOOPBACK) != 0;
    found.point_to_point = (entry->ifa_flags & IFF_POINTOPOINT) != 0;
    interfaces.push_back(std::move(found));
  }
  freeifaddrs(list);
  return interfaces;
}

std::vector<Neighbour> ReadNeighbours() {
  std::ifstream in("/proc/net/arp", std::ios::binary);
  if (!in) return {};
  const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  return ParseArpTable(text);
}

NeighbourProbe::NeighbourProbe(std::vector<uint32_t> hosts) {
  auto socket = std::make_unique<UdpSocket>();
  int sockets = 1;
  std::vector<std::unique_ptr<UdpSocket>> full;  // kept open until all are sent
  for (const uint32_t host : hosts) {
    while (socket->Valid() && !socket->SendOneByte(host) && sockets < kMaxSockets) {
      full.push_back(std::move(socket));
      socket = std::make_unique<UdpSocket>();
      ++sockets;
    }
  }
}

NeighbourProbe::~NeighbourProbe() = default;

}  // namespace kel::platform
