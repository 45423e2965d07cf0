#include "monitor/monitor_args.h"

#include <vector>

#include "core/parse.h"

namespace kel {
namespace {

constexpr size_t kWordSize = 1024;

struct ModeWord {
  std::string_view word;
  MonitorMode mode;
};

constexpr ModeWord kModeWords[] = {
    {"can", MonitorMode::kCan},          {"data", MonitorMode::kCan},
    {"ids", MonitorMode::kIds},          {"curr", MonitorMode::kCurrents},
    {"current", MonitorMode::kCurrents}, {"out", MonitorMode::kOutputs},
    {"output", MonitorMode::kOutputs},
};

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Up to 8 hexadecimal digits, with or without 0x.
std::optional<uint32_t> ParseHexWord(std::string_view text) {
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    text.remove_prefix(2);
  }
  return ParseHexDigits(text, 8);
}

std::optional<IdFilter> ParseFilter(std::string_view word) {
  const size_t colon = word.find(':');
  const std::optional<uint32_t> id = ParseHexWord(word.substr(0, colon));
  const std::optional<uint32_t> mask = ParseHexWord(word.substr(colon + 1));
  if (!id || !mask) return std::nullopt;
  return IdFilter{*id, *mask};
}

// The words of one command, up to its end.
std::vector<std::string> Words(std::string_view& rest) {
  std::vector<std::string> words;
  while (true) {
    std::string word = SplitWord(rest, kWordSeparators, kWordSize);
    if (word.empty()) return words;
    words.push_back(std::move(word));
  }
}

}  // namespace

bool ParseDurationWord(std::string_view word, std::optional<uint32_t>& ms) {
  if (word == "forever") {
    ms.reset();
    return true;
  }
  size_t i = 0;
  while (i < word.size() && IsDigit(word[i])) ++i;
  if (i == 0) return false;
  if (i < word.size() && word[i] == '.') {
    const size_t fraction = ++i;
    while (i < word.size() && IsDigit(word[i])) ++i;
    if (i == fraction) return false;
  }
  const std::string_view unit = word.substr(i);
  if (!unit.empty() && unit != "ms" && unit != "s" && unit != "m" && unit != "h" && unit != "d" &&
      unit != "w") {
    return false;
  }
  ms = TruncateToU32(ParseDuration(word));
  return true;
}

std::optional<MonitorArgs> ParseMonitorArgs(std::string_view& rest) {
  MonitorArgs args;
  std::vector<std::optional<uint32_t>> durations;
  const std::vector<std::string> words = Words(rest);
  for (size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    bool mode_word = false;
    for (const ModeWord& m : kModeWords) {
      if (EqualsNoCase(word, m.word)) {
        mode_word = true;
        args.mode = m.mode;
      }
    }
    if (mode_word) {
      if (i != 0) return std::nullopt;
      continue;
    }
    if (word.find(':') != std::string::npos) {
      if (args.filter || !durations.empty()) return std::nullopt;
      args.filter = ParseFilter(word);
      if (!args.filter) return std::nullopt;
      continue;
    }
    std::optional<uint32_t> ms;
    if (!ParseDurationWord(word, ms) || durations.size() == 2) return std::nullopt;
    durations.push_back(ms);
  }
  const bool measuring = args.mode == MonitorMode::kCurrents || args.mode == MonitorMode::kOutputs;
  if (args.filter && measuring) return std::nullopt;
  if (durations.size() == 2) {
    if (args.mode == MonitorMode::kCan || !durations[0] || *durations[0] == 0) return std::nullopt;
    args.interval_ms = durations[0];
  }
  if (!durations.empty()) args.duration_ms = durations.back();
  return args;
}

std::optional<TraceArgs> ParseTraceArgs(std::string_view& rest) {
  TraceArgs args;
  const std::vector<std::string> words = Words(rest);
  if (words.size() > 2) return std::nullopt;
  size_t next = 0;
  std::optional<uint32_t> ms;
  if (words.size() == 1 && ParseDurationWord(words[0], ms)) {
    args.duration_ms = ms;
    return args;
  }
  if (!words.empty()) {
    std::string_view pattern = Unquote(words[next++]);
    if (pattern.starts_with("i/")) {
      args.ignore_case = true;
      pattern.remove_prefix(2);
    }
    args.pattern = std::string(pattern);
  }
  if (next < words.size()) {
    if (!ParseDurationWord(words[next], ms)) return std::nullopt;
    args.duration_ms = ms;
  }
  return args;
}

}  // namespace kel
