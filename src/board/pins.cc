#include "board/pins.h"

#include <array>
#include <string>

#include "core/parse.h"

namespace kel {
namespace {

struct PinNames {
  std::string_view friendly;
  std::string_view short_id;
  std::string_view mcu_pin;
  std::string_view message_bit;
};

constexpr std::array<PinNames, kPinCount + 1> kPins = {{
    {"???", "???", "???", "???"},
    {"D9 12V power", "D9", "P0.13", "b1"},
    {"M12 12V power", "M12", "P0.14", "b2"},
    {"USB 5V power", "USB 5V power", "P1.2", "b3"},
    {"CAN2 23V power", "CAN2", "P2.0", "b4"},
    {"DisplayUSB 5V power", "DisplayUSB 5V power", "P2.2", "b5"},
    {"3.3V power", "3.3V power", "P2.4", "b6"},
    {"PCIE 3.3V power", "PCIE 3.3V power", "P2.5", "b7"},
    {"CAN1 23V power", "CAN1", "P2.6", "b8"},
    {"Enable M2 modem", "Enable M2 modem", "P4.7", "b9"},
    {"23V power", "23V", "P5.7", "b10"},
    {"Disable GNSS", "Disable GNSS", "P6.1", "b11"},
    {"Disable WWAN", "Disable WWAN", "P6.2", "b12"},
    {"Modem reset", "Modem reset", "P1.6", "b13"},
    {"3.7V power", "EN_3V7", "P5.5", "b14"},
}};

}  // namespace

std::string_view PinName(int index, bool mcu_table, bool short_form) {
  if (index < 1 || index > kPinCount) return "???";
  const PinNames& pin = kPins[static_cast<size_t>(index)];
  if (mcu_table) return short_form ? pin.message_bit : pin.mcu_pin;
  return short_form ? pin.short_id : pin.friendly;
}

std::string PinChoices() {
  std::string text;
  for (int pin = 1; pin <= kPinCount; ++pin) {
    if (pin > 1) text += ", ";
    text += '\'';
    text += PinName(pin, true, false);
    text += "'/'";
    text += PinName(pin, true, true);
    text += "'/'";
    text += PinName(pin, false, false);
    text += "'/'";
    text += PinName(pin, false, true);
    text += '\'';
  }
  return text;
}

uint16_t ParsePinList(std::string_view text) {
  constexpr size_t kListMax = 1023;
  constexpr size_t kItemSize = 128;
  std::string_view rest = text.substr(0, kListMax);
  uint32_t mask = 0;
  while (!rest.empty()) {
    const std::string word = SplitWord(rest, ",;", kItemSize, 1);
    const std::string_view item = TrimText(word);
    if (item.empty()) continue;
    if (item[0] == '0' || (item.size() > 1 && (item[1] == 'x' || item[1] == 'X'))) {
      mask |= ParseValue(item);
      continue;
    }
    for (int index = 0; index <= 15; ++index) {
      if (EqualsNoCase(item, PinName(index, false, false)) ||
          EqualsNoCase(item, PinName(index, false, true)) ||
          EqualsNoCase(item, PinName(index, true, false)) ||
          EqualsNoCase(item, PinName(index, true, true))) {
        mask |= 1U << index;
      }
    }
  }
  return static_cast<uint16_t>(mask);
}

}  // namespace kel
