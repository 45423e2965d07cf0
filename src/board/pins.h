#pragma once

#include <cstdint>
#include <string_view>

namespace kel {

/// The board's switchable outputs are pins 1 to 14.
inline constexpr int kPinCount = 14;

/// One of the four names of pin `index`: (false, false) friendly name, (false, true)
/// short id, (true, false) MCU pin, (true, true) message bit. Any index outside 1 to 14
/// yields "???".
std::string_view PinName(int index, bool mcu_table, bool short_form);

}  // namespace kel
