#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kel {

/// The board's switchable outputs are pins 1 to 14.
inline constexpr int kPinCount = 14;

/// One of the four names of pin `index`: (false, false) friendly name, (false, true)
/// short id, (true, false) MCU pin, (true, true) message bit. Any index outside 1 to 14
/// yields "???".
std::string_view PinName(int index, bool mcu_table, bool short_form);

/// Every pin's four names as a bad pin list offers them, pin after pin:
///   "'P0.13'/'b1'/'D9 12V power'/'D9', 'P0.14'/'b2'/..."
std::string PinChoices();

/// The 16-bit pin mask of a pin list: items separated by ',' or ';', each a number
/// (an item starting with '0' or with 'x' as its second character, read by ParseValue)
/// or one of the four names of a pin, compared without regard to case:
///   "23V,CAN1" -> bits 10 and 8, "p2.6" and "B8" -> bit 8, "0x0100" -> bit 8.
/// An item that matches nothing adds nothing; "???" names pins 0 and 15.
uint16_t ParsePinList(std::string_view text);

}  // namespace kel
