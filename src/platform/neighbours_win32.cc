#include <winsock2.h>
#include <ws2tcpip.h>
// The socket headers first: the IP Helper headers declare the neighbour table only when
// ws2ipdef.h came before them.
#include <iphlpapi.h>

#include <algorithm>
#include <atomic>
#include <system_error>
#include <thread>

#include "platform/neighbours.h"

namespace kel::platform {
namespace {

constexpr size_t kAskers = 32;

uint32_t MaskOfPrefix(unsigned length) {
  const uint32_t host_order = length == 0 ? 0 : ~uint32_t{0} << (32 - std::min(length, 32U));
  return htonl(host_order);
}

}  // namespace

struct NeighbourProbe::Impl {
  std::vector<uint32_t> hosts;
  std::atomic<size_t> next{0};
  std::atomic<bool> stop{false};
  std::vector<std::thread> askers;
};

std::vector<Ipv4Interface> ListIpv4Interfaces() {
  std::vector<Ipv4Interface> interfaces;
  ULONG size = 16 * 1024;
  std::vector<unsigned char> buffer;
  ULONG status = ERROR_BUFFER_OVERFLOW;
  for (int attempt = 0; attempt < 3 && status == ERROR_BUFFER_OVERFLOW; ++attempt) {
    buffer.resize(size);
    status = GetAdaptersAddresses(
        AF_INET, GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST | GAA_FLAG_SKIP_DNS_SERVER,
        nullptr, reinterpret_cast<IP_ADAPTER_ADDRESSES*>(buffer.data()), &size);
  }
  if (status != NO_ERROR) return interfaces;
  for (auto* adapter = reinterpret_cast<IP_ADAPTER_ADDRESSES*>(buffer.data()); adapter != nullptr;
       adapter = adapter->Next) {
    for (auto* unicast = adapter->FirstUnicastAddress; unicast != nullptr;
         unicast = unicast->Next) {
      const sockaddr* address = unicast->Address.lpSockaddr;
      if (address == nullptr || address->sa_family != AF_INET) continue;
      // ("interface" is a word the Windows headers take for themselves.)
      Ipv4Interface found;
      found.name = adapter->AdapterName != nullptr ? adapter->AdapterName : "";
      found.address = reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr;
      found.netmask = MaskOfPrefix(unicast->OnLinkPrefixLength);
      found.up = adapter->OperStatus == IfOperStatusUp;
      found.loopback = adapter->IfType == IF_TYPE_SOFTWARE_LOOPBACK;
      found.point_to_point = adapter->IfType == IF_TYPE_PPP;
      interfaces.push_back(std::move(found));
    }
  }
  return interfaces;
}

std::vector<Neighbour> ReadNeighbours() {
  std::vector<Neighbour> neighbours;
  MIB_IPNET_TABLE2* table = nullptr;
  if (GetIpNetTable2(AF_INET, &table) != NO_ERROR || table == nullptr) return neighbours;
  for (ULONG i = 0; i < table->NumEntries; ++i) {
    const MIB_IPNET_ROW2& row = table->Table[i];
    if (row.Address.si_family != AF_INET || row.PhysicalAddressLength != 6) continue;
    Neighbour entry;
    entry.ip = row.Address.Ipv4.sin_addr.s_addr;
    for (size_t b = 0; b < 6; ++b) entry.mac[b] = row.PhysicalAddress[b];
    entry.complete = row.State >= NlnsReachable;  // reachable, stale, delay, probe, permanent
    neighbours.push_back(entry);
  }
  FreeMibTable(table);
  return neighbours;
}

NeighbourProbe::NeighbourProbe(std::vector<uint32_t> hosts) : impl_(std::make_unique<Impl>()) {
  impl_->hosts = std::move(hosts);
  Impl& impl = *impl_;
  for (size_t i = 0; i < kAskers && i < impl.hosts.size(); ++i) {
    try {
      impl.askers.emplace_back([&impl] {
        for (size_t at = impl.next++; !impl.stop && at < impl.hosts.size(); at = impl.next++) {
          ULONG mac[2] = {};
          ULONG length = 6;
          SendARP(impl.hosts[at], 0, mac, &length);  // the answer lands in the table
        }
      });
    } catch (const std::system_error&) {
      break;  // fewer askers then
    }
  }
}

NeighbourProbe::~NeighbourProbe() {
  impl_->stop = true;
  for (std::thread& asker : impl_->askers) asker.join();
}

}  // namespace kel::platform
