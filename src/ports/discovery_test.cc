// Device discovery's pure parts: the neighbour table as /proc/net/arp shows it, the MAC
// filter and which entry it selects, and the addresses a scan asks for.

#include "ports/discovery.h"

#include <gtest/gtest.h>

#include "core/parse.h"
#include "platform/socket.h"

namespace kel {
namespace {

constexpr std::string_view kArpTable =
    "IP address       HW type     Flags       HW address            Mask     Device\n"
    "192.168.1.20     0x1         0x0         00:50:c2:aa:bb:cc     *        eth0\n"
    "192.168.1.1      0x1         0x2         00:50:c2:12:34:56     *        eth0\n"
    "192.168.1.30     0x1         0x2         00:00:00:00:00:00     *        eth0\n"
    "10.9.0.7         0x1         0x6         00:11:22:33:44:55     *        v0\n"
    "192.168.1.40     0x1         0x2         AA:BB:CC:DD:EE:FF     *        eth0\n"
    "192.168.1.300    0x1         0x2         00:11:22:33:44:66     *        eth0\n"
    "192.168.1.41     0x1         0xZZ        00:11:22:33:44:77     *        eth0\n"
    "192.168.1.42     0x1         0x2         00:11:22:33:44        *        eth0\n"
    "192.168.1.43     0x1         0x2\n";

TEST(DiscoveryTest, NeighbourTableAndFilterSelectTheFirstCompleteMatchingEntry) {
  const std::vector<platform::Neighbour> table = platform::ParseArpTable(kArpTable);
  ASSERT_EQ(5U, table.size()) << "the heading and the four garbled lines are skipped";
  struct Case {
    std::string_view filter;
    std::string_view expected;  // "mac ip", "" when none matches, "bad" for a bad filter
  };
  const Case cases[] = {
      {"00:50:c2", "00:50:c2:12:34:56 192.168.1.1"},  // the incomplete one comes first
      {"0050C2AABBCC", ""},
      {"00-11-22-33-44-55", "00:11:22:33:44:55 10.9.0.7"},
      {"0011.2233.4455", "00:11:22:33:44:55 10.9.0.7"},
      {"00:11:22", "00:11:22:33:44:55 10.9.0.7"},
      {"0011223344556", ""},  // longer than an address
      {"*44:55", "00:11:22:33:44:55 10.9.0.7"},
      {"*44", ""},  // with a star the whole address must match
      {"00?122", "00:11:22:33:44:55 10.9.0.7"},
      {"aabbcc", "aa:bb:cc:dd:ee:ff 192.168.1.40"},
      {"000000", ""},  // an all-zero address is nobody's
      {"*", "00:50:c2:12:34:56 192.168.1.1"},
      {"66:77", ""},
      {"xyz", "bad"},
      {"", "bad"},
      {":-.", "bad"},
      {"00:11 22", "bad"},
  };
  for (const Case& c : cases) {
    std::string pattern;
    if (!ParseMacFilter(c.filter, pattern)) {
      EXPECT_EQ("bad", c.expected) << c.filter;
      continue;
    }
    const std::optional<platform::Neighbour> found = FindNeighbour(table, pattern);
    const std::string text =
        found ? MacText(found->mac) + " " + platform::DottedAddress(found->ip) : "";
    EXPECT_EQ(c.expected, text) << c.filter;
  }
}

platform::Ipv4Interface Interface(std::string_view address, std::string_view mask, bool up = true,
                                  bool loopback = false, bool point_to_point = false) {
  return platform::Ipv4Interface{"if", InetAddr(address), InetAddr(mask),
                                 up,   loopback,          point_to_point};
}

TEST(DiscoveryTest, ScanAsksEveryHostOfShortSubnetsOnlyOnce) {
  struct Case {
    std::vector<platform::Ipv4Interface> interfaces;
    size_t count;
    std::string_view first, last;
  };
  const Case cases[] = {
      {{Interface("192.168.1.10", "255.255.255.0")}, 253, "192.168.1.1", "192.168.1.254"},
      {{Interface("10.1.4.1", "255.255.252.0")}, 1021, "10.1.4.2", "10.1.7.254"},
      {{Interface("10.1.0.1", "255.255.248.0")}, 0, "", ""},  // /21: too wide
      {{Interface("10.1.0.1", "255.0.0.0")}, 0, "", ""},
      {{Interface("127.0.0.1", "255.255.255.0", true, true)}, 0, "", ""},
      {{Interface("192.168.1.10", "255.255.255.0", false)}, 0, "", ""},
      {{Interface("192.168.1.10", "255.255.255.0", true, false, true)}, 0, "", ""},
      {{Interface("10.0.0.4", "255.255.255.254")}, 1, "10.0.0.5", "10.0.0.5"},  // /31
      {{Interface("10.0.0.4", "255.255.255.255")}, 0, "", ""},
      {{Interface("10.0.0.4", "255.0.255.0")}, 0, "", ""},  // not a prefix
      {{Interface("10.9.0.1", "255.255.255.252"), Interface("10.9.0.2", "255.255.255.252")},
       2,
       "10.9.0.2",
       "10.9.0.1"},
  };
  for (const Case& c : cases) {
    const std::vector<uint32_t> targets = ScanTargets(c.interfaces);
    ASSERT_EQ(c.count, targets.size()) << platform::DottedAddress(c.interfaces[0].address);
    if (c.count == 0) continue;
    EXPECT_EQ(c.first, platform::DottedAddress(targets.front()));
    EXPECT_EQ(c.last, platform::DottedAddress(targets.back()));
  }
}

}  // namespace
}  // namespace kel
