#include "board/status_commands.h"

#include <array>
#include <cstdio>

#include "board/control_commands.h"
#include "config/settings.h"
#include "core/invocation.h"
#include "core/parse.h"
#include "device/command_codes.h"
#include "device/device_link.h"

namespace kel {
namespace {

constexpr size_t kArgumentSize = 128;
constexpr uint32_t kUnknownVersion = 0xFFFFFFFF;

// The output texts.
constexpr const char* kSoftwareLine = "Software version : %s\n";
constexpr const char* kFirmwareLine = "Firmware version : %s\n";
constexpr const char* kServiceLine = "Service version  : %s\n";
constexpr const char* kRawStatusLine = "%-17s: 0x%08X 0x%08X 0x%08X\n";
constexpr const char* kEventsLine = " + events        : %s\n";
constexpr const char* kClientsLine = " + clients       : %u\n";
constexpr const char* kUptimeLine = " + uptime        : %u.%03u s\n";
constexpr const char* kCanTaskLine = " + frames in %u, out %u, dropped %u\n";
constexpr const char* kUsbTaskLine = " + frames lost %u, slow connections closed %u\n";
constexpr const char* kIoTaskLine = " + outputs 0x%04X, events 0x%08X\n";
constexpr const char* kOverCurrentLine = " + pins over current 0x%04X\n";
constexpr const char* kErrorCountersLine = "CAN%d error counters   : tx %u, rx %u\n";
constexpr const char* kMessageCountersLine = "CAN%d message counters : rx %u, tx %u\n";
constexpr const char* kPortStatusLine = "CAN%d port status      : 0x%08X (%s), baudrate %s\n";
constexpr const char* kBoardFramesLine = "Board frames          : in %u, out %u, dropped %u\n";

// The three value words of an answer.
struct Words {
  uint32_t v1 = 0;
  uint32_t v2 = 0;
  uint32_t v3 = 0;
};

// Asks `command`, answered with the same code; false when no answer came.
bool Ask(uint32_t command, Words& words) {
  FrameBytes answer{};
  if (!Device().Transact(answer.data(), 0, command, command, 0, 0, 0)) return false;
  words = {FrameWord(answer.data(), 1), FrameWord(answer.data(), 2), FrameWord(answer.data(), 3)};
  return true;
}

// Asks an internal command number; its answer must name the same number.
bool AskInternal(uint32_t number, uint32_t& value) {
  FrameBytes answer{};
  if (!Device().Transact(answer.data(), 0, code::kInternal, code::kInternal, 0, number, 0) ||
      FrameWord(answer.data(), 2) != number) {
    return false;
  }
  value = FrameWord(answer.data(), 3);
  return true;
}

int Channel() { return CurrentSettings().device_channel; }

// One status word set: the query, its label, and the decoded lines of its words.
struct StatusPart {
  const char* word;
  uint32_t command;
  const char* label;
  void (*decode)(const Words& words, Output& out);
};

void DecodeGlobal(const Words& w, Output& out) {
  const std::string events = BitNames(w.v1, {"esc-down", "shut-down", "esc-up"}, "none");
  out.Printf(kEventsLine, events.c_str());
  out.Printf(kClientsLine, w.v2);
  out.Printf(kUptimeLine, w.v3 / 1000, w.v3 % 1000);
}

void DecodeCan(const Words& w, Output& out) { out.Printf(kCanTaskLine, w.v1, w.v2, w.v3); }
void DecodeUsb(const Words& w, Output& out) { out.Printf(kUsbTaskLine, w.v1, w.v2); }
void DecodeIo(const Words& w, Output& out) { out.Printf(kIoTaskLine, w.v1 >> 16, w.v2); }
void DecodeOverCurrent(const Words& w, Output& out) { out.Printf(kOverCurrentLine, w.v1 >> 16); }

constexpr std::array<StatusPart, 5> kStatusParts{{
    {"global", code::kGetStatus, "Global status", DecodeGlobal},
    {"can", code::kStatus1, "CAN task", DecodeCan},
    {"usb", code::kStatus2, "USB task", DecodeUsb},
    {"io", code::kStatus3, "IO task", DecodeIo},
    {"oc", code::kStatus4, "Over-current", DecodeOverCurrent},
}};

// The counter lines; false when a query went unanswered.
bool PrintErrorCounters(Output& out) {
  Words w;
  if (!Ask(code::kNecnt, w)) return false;
  out.Printf(kErrorCountersLine, Channel(), w.v1, w.v2);
  return true;
}

bool PrintMessageCounters(Output& out) {
  Words w;
  if (!Ask(code::kNfcr, w)) return false;
  out.Printf(kMessageCountersLine, Channel(), w.v1, w.v2);
  return true;
}

// Runs `print` and turns its outcome into the command's result: on a failed query only the
// error, not the lines before it.
template <typename Print>
ResultCode Query(const CommandEntry& entry, Output& out, Print print) {
  const size_t start = out.Length();
  if (!print()) {
    out.Truncate(start);
    return FormatResult(&entry, kErrMsgIo, out);
  }
  return static_cast<ResultCode>(out.Length() - start);
}

}  // namespace

std::string VersionText(uint32_t version) {
  char text[48];
  if (version == kUnknownVersion) {
    std::snprintf(text, sizeof text, "unknown (0x%08X)", version);
  } else {
    std::snprintf(text, sizeof text, "%u.%u.%u (0x%08X)", version >> 24, (version >> 16) & 0xFF,
                  version & 0xFFFF, version);
  }
  return text;
}

std::string BitNames(uint32_t bits, std::initializer_list<const char*> names, const char* none) {
  std::string text;
  for (unsigned bit = 0; bit < 32; ++bit) {
    if ((bits & (1U << bit)) == 0) continue;
    if (!text.empty()) text += ", ";
    if (bit < names.size()) {
      text += names.begin()[bit];
    } else {
      text += "bit" + std::to_string(bit);
    }
  }
  return text.empty() ? none : text;
}

ResultCode HandleVersion(const CommandEntry& entry, std::string_view& /*rest*/, Output& out) {
  return Query(entry, out, [&out] {
    uint32_t firmware = 0;
    uint32_t service = 0;
    if (!AskInternal(internal::kFirmwareVersion, firmware) ||
        !AskInternal(internal::kServiceVersion, service)) {
      return false;
    }
    out.Printf(kSoftwareLine, kVersion);
    out.Printf(kFirmwareLine, VersionText(firmware).c_str());
    out.Printf(kServiceLine, VersionText(service).c_str());
    return true;
  });
}

ResultCode HandleStatus(const CommandEntry& entry, std::string_view& rest, Output& out) {
  const std::string word = SplitWord(rest, kWordSeparators, kArgumentSize);
  const StatusPart* only = nullptr;
  for (const StatusPart& part : kStatusParts) {
    if (EqualsNoCase(word, part.word)) only = &part;
  }
  if (!word.empty() && only == nullptr) return FormatResult(&entry, kErrBadArgs, out);
  return Query(entry, out, [&] {
    for (const StatusPart& part : kStatusParts) {
      if (only != nullptr && only != &part) continue;
      Words w;
      if (!Ask(part.command, w)) return false;
      out.Printf(kRawStatusLine, part.label, w.v1, w.v2, w.v3);
      part.decode(w, out);
    }
    return true;
  });
}

ResultCode HandleCounters(const CommandEntry& entry, std::string_view& /*rest*/, Output& out) {
  return Query(entry, out, [&out] {
    Words board;
    if (!PrintErrorCounters(out) || !PrintMessageCounters(out) || !Ask(code::kStatus1, board)) {
      return false;
    }
    out.Printf(kBoardFramesLine, board.v1, board.v2, board.v3);
    return true;
  });
}

ResultCode HandleErrorCounters(const CommandEntry& entry, std::string_view& /*rest*/, Output& out) {
  return Query(entry, out, [&out] { return PrintErrorCounters(out); });
}

ResultCode HandleMessageCounters(const CommandEntry& entry, std::string_view& /*rest*/,
                                 Output& out) {
  return Query(entry, out, [&out] { return PrintMessageCounters(out); });
}

ResultCode HandlePortStatus(const CommandEntry& entry, std::string_view& /*rest*/, Output& out) {
  return Query(entry, out, [&out] {
    Words w;
    if (!Ask(code::kNsr, w)) return false;
    const std::string status =
        BitNames(w.v1, {"error warning", "error passive", "bus off"}, "bus on");
    out.Printf(kPortStatusLine, Channel(), w.v1, status.c_str(), BitRateName(w.v2));
    return true;
  });
}

}  // namespace kel
