#include "sim/config.h"

#include <gtest/gtest.h>

#include <cstring>

namespace kel::sim {
namespace {

TEST(ParseIpv4Test, ReadsFourDecimalPartsOnly) {
  const std::optional<uint32_t> ip = ParseIpv4("255.254.010.9");
  ASSERT_TRUE(ip);
  EXPECT_EQ(0, std::memcmp("\xFF\xFE\x0A\x09", &*ip, 4)) << "in memory as written";
  EXPECT_TRUE(ParseIpv4("127.0.0.1") && ParseIpv4("localhost") == ParseIpv4("127.0.0.1"));
  for (const char* bad : {"", "1.2.3", "1.2.3.4.5", "256.1.1.1", " 1.2.3.4", "1..2.3", "0x7f.0.0.1",
                          "a.b.c.d", "1.2.3.4."}) {
    EXPECT_FALSE(ParseIpv4(bad)) << "'" << bad << "'";
  }
}

TEST(ParseWiringTest, GroupsShareABusAndTheRestStandAlone) {
  const std::vector<std::pair<const char*, const char*>> good = {
      {"3-1,2-0", "0-2,1-3"}, {"0-1-2-3", "0-1-2-3"}, {"0-2", "0-2"},        {"none", "none"},
      {"", "none"},           {"0,1,2,3", "none"},    {"1-2,0-3", "0-3,1-2"}};
  for (const auto& [text, groups] : good) {
    const std::optional<Wiring> wiring = ParseWiring(text);
    EXPECT_EQ(groups, wiring ? WiringText(*wiring) : "no wiring") << text;
  }
  for (const char* bad : {"0-4", "0-0", "0-2,2-3", "0-", "0--2", "0-2,", "a", "0 2", "02"}) {
    EXPECT_FALSE(ParseWiring(bad)) << "'" << bad << "'";
  }
}

}  // namespace
}  // namespace kel::sim
