#include <string>

#include "can/can_commands.h"
#include "can/can_filter.h"
#include "can/texts.h"
#include "config/settings.h"
#include "core/console.h"
#include "core/parse.h"
#include "device/command_codes.h"
#include "device/device_link.h"

namespace kel {
namespace {

constexpr size_t kWordSize = 64;
constexpr size_t kParameterSize = 1024;

bool ReadFilter(FilterWords& filter) {
  FrameBytes answer{};
  if (!Device().Transact(answer.data(), 0, code::kCanFilterRead, code::kCanFilterRead, 0, 0, 0)) {
    return false;
  }
  filter = FilterWords{FrameWord(answer.data(), 1), FrameWord(answer.data(), 2),
                       FrameWord(answer.data(), 3)};
  return true;
}

bool WriteFilter(const FilterWords& filter) {
  return Device().SendCommand(code::kCanFilterWrite, filter.channel_word, filter.mask,
                              filter.arbitration);
}

// The channel every write names: always the current one, never the one read.
uint32_t CurrentChannel() { return static_cast<uint32_t>(CurrentSettings().device_channel); }

ResultCode Print(const CommandEntry& entry, Output& out) {
  FilterWords filter;
  if (!ReadFilter(filter)) return FormatResult(&entry, kErrMsgIo, out);
  return static_cast<ResultCode>(out.Append(FilterText(filter)));
}

ResultCode WriteAndPrint(const CommandEntry& entry, const FilterWords& filter, Output& out) {
  if (!WriteFilter(filter)) return FormatResult(&entry, kErrMsgIo, out);
  return Print(entry, out);
}

ResultCode Test(const CommandEntry& entry, Output& out) {
  FilterWords filter;
  if (!ReadFilter(filter)) return FormatResult(&entry, kErrMsgIo, out);
  if (FilterCleared(filter)) return static_cast<ResultCode>(out.Append(text::kFilterNotSet));
  const uint32_t matches = ListMatches(filter, ConsoleWrite);
  return static_cast<ResultCode>(out.Printf(text::kFilterTotal, matches));
}

}  // namespace

ResultCode HandleFilter(const CommandEntry& entry, std::string_view& rest, Output& out) {
  const std::string command = SplitWord(rest, kWordSeparators, kWordSize);
  const std::string parameters = SplitWord(rest, kCommandSeparators, kParameterSize);
  if (command.empty() || EqualsNoCase(command, "get")) return Print(entry, out);
  if (EqualsNoCase(command, "tst") || EqualsNoCase(command, "test")) return Test(entry, out);
  if (EqualsNoCase(command, "clr") || EqualsNoCase(command, "clear")) {
    return WriteAndPrint(entry, FilterWords{(CurrentChannel() & 0xFF) << 8, 0, 0}, out);
  }
  const bool set = EqualsNoCase(command, "set");
  const bool add = EqualsNoCase(command, "add");
  const bool del = EqualsNoCase(command, "del") || EqualsNoCase(command, "delete");
  if (!set && !add && !del) return FormatResult(&entry, kErrBadArgs, out);

  FilterCover removed;
  // A delete list that names nothing would match every identifier and clear the filter.
  if (del && AddListToCover(parameters, removed) == 0) {
    return FormatResult(&entry, kErrBadArgs, out);
  }
  FilterWords read;
  if (!ReadFilter(read)) return FormatResult(&entry, kErrMsgIo, out);
  if (set) {
    FilterWords changed;
    if (!ParseFilterSet(parameters, read, CurrentChannel(), changed)) {
      return FormatResult(&entry, kErrBadArgs, out);
    }
    return WriteAndPrint(entry, changed, out);
  }
  FilterCover cover;
  if (add) {
    cover = CoverOf(read);
    AddListToCover(parameters, cover);
  } else {
    cover = CoverWithout(read, removed);
  }
  return WriteAndPrint(entry, WithCover(read, cover, CurrentChannel()), out);
}

}  // namespace kel
