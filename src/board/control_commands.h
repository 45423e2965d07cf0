#pragma once

#include <cstdint>
#include <string_view>

#include "core/command.h"

namespace kel {

/// The bit-rate index 1-5 that a `baud` argument selects, or 0 when it selects none:
///   "3" -> 3, "250000" -> 3, "250k" -> 3, "0.25M" -> 3, "1000000" -> 5, "6" -> 0.
int ParseBitRate(std::string_view text);

/// "100 kbaud" ... "1 Mbaud" for indexes 1-5, "???" for any other.
const char* BitRateName(uint32_t index);

ResultCode HandleBaud(const CommandEntry& entry, std::string_view& rest, Output& out);
ResultCode HandleReset(const CommandEntry& entry, std::string_view& rest, Output& out);
ResultCode HandleInternal(const CommandEntry& entry, std::string_view& rest, Output& out);

}  // namespace kel
