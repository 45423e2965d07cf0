#include "board/control_commands.h"

#include <cstdlib>
#include <string>

#include "core/parse.h"
#include "device/command_codes.h"
#include "device/device_link.h"

namespace kel {
namespace {

constexpr size_t kArgumentSize = 128;
constexpr double kRates[] = {100000, 125000, 250000, 500000, 1000000};

// Reads the bit rate and prints it.
ResultCode PrintBitRate(const CommandEntry& entry, Output& out) {
  FrameBytes answer{};
  if (!Device().Transact(answer.data(), 0, code::kGetBaud, code::kBaudrate, 0, 0, 0)) {
    return FormatResult(&entry, kErrMsgIo, out);
  }
  const uint32_t index = FrameWord(answer.data(), 2);
  return static_cast<ResultCode>(out.Printf("Baudrate %s (0x%08X)\n", BitRateName(index), index));
}

}  // namespace

int ParseBitRate(std::string_view text) {
  const std::string copy(TrimText(text));
  char* end = nullptr;
  double value = std::strtod(copy.c_str(), &end);
  if (end == copy.c_str()) return 0;
  if (*end == 'k' || *end == 'K') {
    value *= 1000;
  } else if (*end == 'M' || *end == 'm') {
    value *= 1000000;
  }
  if (!(value > 0) || value > 1000000) return 0;
  for (int index = 1; index <= 5; ++index) {
    if (value == index || value == kRates[index - 1]) return index;
  }
  return 0;
}

const char* BitRateName(uint32_t index) {
  switch (index) {
    case 1: return "100 kbaud";
    case 2: return "125 kbaud";
    case 3: return "250 kbaud";
    case 4: return "500 kbaud";
    case 5: return "1 Mbaud";
    default: return "???";
  }
}

ResultCode HandleBaud(const CommandEntry& entry, std::string_view& rest, Output& out) {
  const std::string argument = SplitWord(rest, kWordSeparators, kArgumentSize);
  if (!argument.empty()) {
    const int index = ParseBitRate(argument);
    if (index == 0) return FormatResult(&entry, kErrBadBaud, out);
    if (!Device().SendCommand(code::kSetBaud, 0, static_cast<uint32_t>(index), 0)) {
      return FormatResult(&entry, kErrMsgIo, out);
    }
    // The rate is read back: a board that kept its old rate fails the command.
    FrameBytes answer{};
    if (!Device().Transact(answer.data(), 0, code::kGetBaud, code::kBaudrate, 0, 0, 0) ||
        FrameWord(answer.data(), 2) != static_cast<uint32_t>(index)) {
      return FormatResult(&entry, kErrMsgIo, out);
    }
  }
  return PrintBitRate(entry, out);
}

ResultCode HandleReset(const CommandEntry& entry, std::string_view& rest, Output& out) {
  const std::string argument = SplitWord(rest, kWordSeparators, kArgumentSize);
  // "can" restarts the CAN side and "all" clears the events: the board's own pairing.
  if (EqualsNoCase(argument, "can")) {
    Device().SendCommand(code::kReset, 0, 0, 0);
  } else if (EqualsNoCase(argument, "all")) {
    Device().SendCommand(code::kClrEvents, 0, 0, 0);
  } else {
    return FormatResult(&entry, kErrBadArgs, out);
  }
  return kOk;
}

ResultCode HandleInternal(const CommandEntry& entry, std::string_view& rest, Output& out) {
  const uint32_t command = ParseValue(SplitWord(rest, kWordSeparators, kArgumentSize));
  const uint32_t value = ParseValue(SplitWord(rest, kWordSeparators, kArgumentSize));
  FrameBytes answer{};
  if (!Device().Transact(answer.data(), 0, code::kInternal, code::kInternal, 0, command, value)) {
    return FormatResult(&entry, kErrMsgIo, out);
  }
  const size_t start = out.Length();
  out.Printf("Reponse command : 0x%08X\n", FrameWord(answer.data(), 2));
  out.Printf("Reponse data    : 0x%08X\n", FrameWord(answer.data(), 3));
  return static_cast<ResultCode>(out.Length() - start);
}

}  // namespace kel
