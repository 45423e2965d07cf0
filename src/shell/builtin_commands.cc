#include "shell/builtin_commands.h"

#include <algorithm>
#include <string>

#include "config/settings.h"
#include "core/console.h"
#include "core/parse.h"
#include "platform/clock.h"
#include "platform/console.h"
#include "platform/interrupt.h"
#include "shell/command_table.h"

namespace kel {
namespace {

constexpr size_t kArgumentSize = 128;

std::string Lowered(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower;
}

// A row with no aux text, no result words, no description and no examples is hidden.
bool IsHidden(const CommandEntry& entry) {
  return entry.aux.empty() && entry.result_words.empty() && entry.description.empty() &&
         entry.examples.empty();
}

void WriteDetails(const CommandEntry& entry, Output& out) {
  out.Append("function:\n\t");
  for (size_t i = 0; i < entry.names.size(); ++i) {
    if (i > 0) out.Append(", ");
    out.Append(entry.names[i]);
  }
  out.Append("\n\ndescription:\n\t");
  out.Append(entry.description);
  out.Append("\n\narguments:\n");
  if (entry.arguments.empty() || entry.arguments.front().empty()) {
    out.Append("\t<none>\n");
  } else {
    for (std::string_view line : entry.arguments) {
      out.Append("\t");
      out.Append(line);
      out.Append("\n");
    }
  }
  out.Append("\n");
  if (!entry.examples.empty()) {
    out.Append("examples:\n");
    for (std::string_view line : entry.examples) {
      out.Append("\t");
      out.Append(line);
      out.Append("\n");
    }
    out.Append("\n");
  }
}

}  // namespace

ResultCode HandleHelp(const CommandEntry& /*entry*/, std::string_view& rest, Output& out) {
  const std::string word = SplitWord(rest, kWordSeparators, kArgumentSize);
  std::vector<const CommandEntry*> sorted;
  for (const CommandEntry& row : CommandTable()) sorted.push_back(&row);
  std::stable_sort(sorted.begin(), sorted.end(), [](const CommandEntry* a, const CommandEntry* b) {
    return Lowered(a->Name()) < Lowered(b->Name());
  });
  const size_t start = out.Length();
  for (const CommandEntry* row : sorted) {
    if (IsHidden(*row)) continue;
    if (word.empty()) {
      const std::string name(row->Name());
      const std::string description(row->description);
      out.Printf("%10s - %s\n", name.c_str(), description.c_str());
      continue;
    }
    const bool named =
        std::any_of(row->names.begin(), row->names.end(),
                    [&word](std::string_view name) { return EqualsNoCase(name, word); });
    if (named) WriteDetails(*row, out);
  }
  return static_cast<ResultCode>(out.Length() - start);
}

ResultCode HandleDebug(const CommandEntry& /*entry*/, std::string_view& rest, Output& out) {
  const std::string option = SplitWord(rest, kOptionSeparators, kArgumentSize);
  // "socket=on" and "socket on" are the same: one '=' behind the option name is dropped.
  while (!rest.empty() && rest.front() == ' ') rest.remove_prefix(1);
  if (!rest.empty() && rest.front() == '=') rest.remove_prefix(1);
  const std::string value = SplitWord(rest, kWordSeparators, kArgumentSize);

  Settings& settings = CurrentSettings();
  struct Flag {
    const char* name;
    bool* flag;
  };
  const Flag flags[] = {{"socket", &settings.debug_socket},
                        {"worker", &settings.debug_worker},
                        {"capture", &settings.debug_capture},
                        {"serial", &settings.debug_serial}};
  const bool all = option.empty() || EqualsNoCase(option, "all");
  const size_t start = out.Length();
  if (option.empty()) out.Append("Debugging options:\n");
  for (const Flag& f : flags) {
    if (!all && !EqualsNoCase(option, f.name)) continue;
    if (!value.empty()) *f.flag = ParseValue(value) != 0;
    out.Printf("%s = %s\n", f.name, *f.flag ? "on" : "off");
  }
  return static_cast<ResultCode>(out.Length() - start);
}

ResultCode HandleDelay(const CommandEntry& entry, std::string_view& rest, Output& out) {
  const std::string argument = SplitWord(rest, kCommandSeparators, kArgumentSize);
  if (argument.empty()) return FormatResult(&entry, kErrBadArgs, out);
  const uint64_t target = TruncateToU32(ParseDuration(argument));
  const uint64_t start = NowMs();
  for (uint64_t elapsed = 0; elapsed < target; elapsed = NowMs() - start) {
    if (platform::KeyPressed()) {
      platform::DiscardKeys();
      break;
    }
    const uint64_t remaining = target - elapsed;
    ConsolePrintf("Sleeping %us     \r", static_cast<unsigned>(remaining / 1000));
    if (!platform::SleepUnlessInterrupted(
            static_cast<uint32_t>(std::min<uint64_t>(remaining, 1000)))) {
      ConsoleWrite("\n");
      return FormatResult(&entry, kUserTermination, out);
    }
  }
  ConsoleWrite("\n");
  return kOk;
}

ResultCode HandleQuit(const CommandEntry& /*entry*/, std::string_view& /*rest*/, Output& /*out*/) {
  return kOk;
}

ResultCode HandleClearScreen(const CommandEntry& /*entry*/, std::string_view& /*rest*/,
                             Output& /*out*/) {
  platform::ClearScreen();
  return kOk;
}

}  // namespace kel
