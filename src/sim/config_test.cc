#include "sim/config.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <vector>

namespace kel::sim {
namespace {

// The four bytes of an address as they lie in memory.
std::array<uint8_t, 4> Bytes(uint32_t ip) {
  std::array<uint8_t, 4> bytes;
  std::memcpy(bytes.data(), &ip, sizeof ip);
  return bytes;
}

TEST(ParseIpv4Test, ReadsFourDecimalPartsOnly) {
  using B = std::array<uint8_t, 4>;
  EXPECT_EQ((B{127, 0, 0, 1}), Bytes(ParseIpv4("127.0.0.1").value()));
  EXPECT_EQ((B{127, 0, 0, 1}), Bytes(ParseIpv4("localhost").value()));
  EXPECT_EQ((B{0, 0, 0, 0}), Bytes(ParseIpv4("0.0.0.0").value()));
  EXPECT_EQ((B{255, 254, 10, 9}), Bytes(ParseIpv4("255.254.10.9").value()));
  EXPECT_EQ((B{1, 2, 3, 4}), Bytes(ParseIpv4("001.2.3.4").value()));
  for (const char* bad : {"", "1.2.3", "1.2.3.4.5", "256.1.1.1", "1.2.3.4 ", " 1.2.3.4", "1..2.3",
                          "0x7f.0.0.1", "1.2.3.1000", "a.b.c.d", "1.2.3.4."}) {
    EXPECT_FALSE(ParseIpv4(bad)) << "'" << bad << "'";
  }
}

TEST(ParseWiringTest, GroupsShareABusAndTheRestStandAlone) {
  struct Case {
    const char* text;
    std::string groups;  // WiringText of the result
  };
  const std::vector<Case> cases = {
      {"0-2,1-3", "0-2,1-3"}, {"2-0,3-1", "0-2,1-3"}, {"0-1-2-3", "0-1-2-3"},
      {"0-2", "0-2"},         {"3-1", "1-3"},         {"none", "none"},
      {"", "none"},           {"0,1,2,3", "none"},    {"1-2,0-3", "0-3,1-2"},
  };
  for (const Case& c : cases) {
    const std::optional<Wiring> wiring = ParseWiring(c.text);
    ASSERT_TRUE(wiring) << c.text;
    EXPECT_EQ(c.groups, WiringText(*wiring)) << c.text;
  }
  EXPECT_EQ("0-2,1-3", WiringText(kDefaultWiring));
  for (const char* bad : {"0-4", "0-0", "0-2,2-3", "0-", "-1", "0--2", "0-2,", "a", "0 2", "02"}) {
    EXPECT_FALSE(ParseWiring(bad)) << "'" << bad << "'";
  }
}

}  // namespace
}  // namespace kel::sim
