#include "board/io_commands.h"

#include <string>

#include "board/pins.h"
#include "core/parse.h"
#include "device/command_codes.h"
#include "device/device_link.h"
#include "platform/interrupt.h"

namespace kel {
namespace {

constexpr size_t kPinWordSize = 128;
constexpr uint32_t kDefaultYankMs = 1000;

// The pin word of a command. A double-quoted run keeps a friendly name with blanks in
// one word ("Modem reset"); the quotes themselves are not part of any name.
std::string TakePinWord(std::string_view& rest) {
  std::string word = SplitWord(rest, kWordSeparators, kPinWordSize);
  std::erase(word, '"');
  return word;
}

// Which pins a printout of the output states lists.
enum class Listed { kMask, kAllWhenNone };

// Reads the output states and prints the pins of `mask`; with kAllWhenNone, every pin
// when `mask` is 0.
ResultCode PrintOutputs(const CommandEntry& entry, uint16_t mask, Output& out,
                        Listed listed = Listed::kMask) {
  FrameBytes answer{};
  if (!Device().Transact(answer.data(), 0, code::kOutputs, code::kOutputs, 0, 0, 0)) {
    return FormatResult(&entry, kErrMsgIo, out);
  }
  const uint16_t state = static_cast<uint16_t>(FrameWord(answer.data(), 1) >> 16);
  const size_t start = out.Length();
  out.Printf("Output bits (0x%04X):\n", state);
  for (int pin = 1; pin <= kPinCount; ++pin) {
    const bool all = mask == 0 && listed == Listed::kAllWhenNone;
    if (!all && (mask & (1U << pin)) == 0) continue;
    const std::string name(PinName(pin, false, false));
    out.Printf("%s = %s\n", name.c_str(), (state & (1U << pin)) != 0 ? "on" : "off");
  }
  return static_cast<ResultCode>(out.Length() - start);
}

ResultCode ChangeOutputs(const CommandEntry& entry, std::string_view& rest, Output& out,
                         uint32_t command) {
  const std::string word = TakePinWord(rest);
  if (word.empty()) return FormatResult(&entry, kErrBadIo, out);
  // An item that matches no pin adds nothing to the mask: a list that names no pin still
  // goes out, as a frame that changes nothing, and the states are read back.
  const uint16_t mask = ParsePinList(word);
  if (!Device().SendCommand(command, uint32_t{mask} << 16, 0, 0)) {
    return FormatResult(&entry, kErrMsgIo, out);
  }
  return PrintOutputs(entry, mask, out);
}

}  // namespace

ResultCode HandleSetOutput(const CommandEntry& entry, std::string_view& rest, Output& out) {
  return ChangeOutputs(entry, rest, out, code::kSetOut);
}

ResultCode HandleClearOutput(const CommandEntry& entry, std::string_view& rest, Output& out) {
  return ChangeOutputs(entry, rest, out, code::kClrOut);
}

ResultCode HandleToggleOutput(const CommandEntry& entry, std::string_view& rest, Output& out) {
  return ChangeOutputs(entry, rest, out, code::kToggleOut);
}

ResultCode HandleYank(const CommandEntry& entry, std::string_view& rest, Output& out) {
  const std::string word = TakePinWord(rest);
  const uint16_t mask = word.empty() ? 0 : ParsePinList(word);
  if (mask == 0) return FormatResult(&entry, kErrBadIo, out);
  const std::string time = SplitWord(rest, kWordSeparators, kPinWordSize);
  const uint32_t ms = time.empty() ? kDefaultYankMs : TruncateToU32(ParseDuration(time));
  if (!Device().SendCommand(code::kToggleOut, uint32_t{mask} << 16, 0, 0)) {
    return FormatResult(&entry, kErrMsgIo, out);
  }
  platform::SleepUnlessInterrupted(ms);  // cut short, the pins still go back
  if (!Device().SendCommand(code::kToggleOut, uint32_t{mask} << 16, 0, 0)) {
    return FormatResult(&entry, kErrMsgIo, out);
  }
  return PrintOutputs(entry, mask, out);
}

ResultCode HandleOutputs(const CommandEntry& entry, std::string_view& rest, Output& out) {
  const std::string word = TakePinWord(rest);
  const uint16_t mask = word.empty() ? 0 : ParsePinList(word);
  if (!word.empty() && mask == 0) return FormatResult(&entry, kErrBadIo, out);
  return PrintOutputs(entry, mask, out, Listed::kAllWhenNone);
}

}  // namespace kel
