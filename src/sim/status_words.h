#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace kel::sim {

/// Versions as the board reports them: major << 24 | minor << 16 | patch.
inline constexpr uint32_t kDefaultFirmwareVersion = 0x01000000;  ///< 1.0.0
inline constexpr uint32_t kServiceVersion = 0x01000000;          ///< 1.0.0

/// Reads "X.Y.Z" (major and minor 0-255, patch 0-65535) as a packed version:
///   "1.0.0" -> 0x01000000, "2.10.300" -> 0x020A012C; "1.0", "1.0.x", "256.0.0" -> nothing.
std::optional<uint32_t> ParseVersion(std::string_view text);

/// NSR's status bits from a channel's transmit-error count, with the CAN thresholds:
/// bit 0 error warning (>= 96), bit 1 error passive (>= 128), bit 2 bus off (>= 256);
/// 0 is bus on. The bits add up: 300 errors give 0b111.
uint32_t PortStatusBits(uint32_t transmit_errors);

/// What a pin that is on draws with the over-current fault on it, in mA.
inline constexpr uint32_t kOverCurrentMa = 2500;

}  // namespace kel::sim
