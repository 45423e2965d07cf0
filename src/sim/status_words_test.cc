#include "sim/status_words.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace kel::sim {
namespace {

TEST(PortStatusBitsTest, TheCanErrorThresholdsAddUp) {
  const std::vector<std::pair<uint32_t, uint32_t>> cases = {
      {0, 0},       {95, 0},      {96, 0b001},  {127, 0b001},        {128, 0b011},
      {255, 0b011}, {256, 0b111}, {300, 0b111}, {0xFFFFFFFF, 0b111},
  };
  for (const auto& [errors, bits] : cases) EXPECT_EQ(bits, PortStatusBits(errors)) << errors;
}

TEST(ParseVersionTest, ThreePartsPackedIntoOneWord) {
  const std::vector<std::pair<const char*, std::optional<uint32_t>>> cases = {
      {"1.0.0", 0x01000000},
      {"2.10.300", 0x020A012C},
      {"255.255.65535", 0xFFFFFFFF},
      {"0.0.0", 0},
      {"1.0", std::nullopt},
      {"1.0.0.0", std::nullopt},
      {"256.0.0", std::nullopt},
      {"1.0.65536", std::nullopt},
      {"1..0", std::nullopt},
      {"1.0.x", std::nullopt},
      {"", std::nullopt},
      {"-1.0.0", std::nullopt},
  };
  for (const auto& [text, version] : cases) EXPECT_EQ(version, ParseVersion(text)) << text;
}

}  // namespace
}  // namespace kel::sim
