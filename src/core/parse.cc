#include "core/parse.h"

#include <cmath>
#include <cstdlib>
#include <limits>

#include "platform/clock.h"

namespace kel {
namespace {

char Lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

std::string SplitWord(std::string_view& text, std::string_view separators, size_t word_size,
                      size_t drop_separators) {
  size_t i = 0;
  while (i < text.size() && IsBlankOrControl(text[i])) ++i;
  const size_t start = i;
  while (i < text.size() && separators.find(text[i]) == std::string_view::npos) {
    if (text[i] == '"') {
      const size_t close = text.find('"', i + 1);
      i = close == std::string_view::npos ? text.size() : close + 1;
    } else {
      ++i;
    }
  }
  const size_t keep = word_size > 0 ? word_size - 1 : 0;
  std::string word(text.substr(start, i - start < keep ? i - start : keep));
  for (size_t dropped = 0; dropped < drop_separators && i < text.size() &&
                           separators.find(text[i]) != std::string_view::npos;
       ++dropped) {
    ++i;
  }
  text.remove_prefix(i);
  return word;
}

std::string_view TrimText(std::string_view text) {
  while (!text.empty() && IsBlankOrControl(text.front())) text.remove_prefix(1);
  while (!text.empty() && static_cast<unsigned char>(text.back()) < 33) text.remove_suffix(1);
  return text;
}

std::string_view Unquote(std::string_view text) {
  text = TrimText(text);
  if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
    text = text.substr(1, text.size() - 2);
  }
  return text;
}

int HexDigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::optional<uint32_t> ParseHexDigits(std::string_view text, size_t max_digits) {
  if (text.empty() || text.size() > max_digits) return std::nullopt;
  uint32_t value = 0;
  for (const char c : text) {
    const int digit = HexDigitValue(c);
    if (digit < 0) return std::nullopt;
    value = value << 4 | static_cast<uint32_t>(digit);
  }
  return value;
}

int32_t ParseDecimal(std::string_view text) {
  size_t i = 0;
  while (i < text.size() && (text[i] == ' ' || (text[i] >= '\t' && text[i] <= '\r'))) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  int64_t value = 0;
  for (; i < text.size() && IsDigit(text[i]); ++i) {
    value = value * 10 + (text[i] - '0');
    if (value > int64_t{1} << 32) value = int64_t{1} << 32;  // saturate, clamped below
  }
  if (negative) value = -value;
  if (value > std::numeric_limits<int32_t>::max()) return std::numeric_limits<int32_t>::max();
  if (value < std::numeric_limits<int32_t>::min()) return std::numeric_limits<int32_t>::min();
  return static_cast<int32_t>(value);
}

uint32_t ParseValue(std::string_view text) {
  if (text.empty()) return 0;
  if (text.size() >= 3) {
    if (text.front() == '\'' && text.back() == '\'') {
      uint32_t value = 0;
      for (char c : text.substr(1, text.size() - 2)) {
        if (c == '\0') break;
        value = (value << 8) | static_cast<unsigned char>(c);
      }
      return value;
    }
    if (text[0] == '0' && (Lower(text[1]) == 'x' || Lower(text[1]) == 'b')) {
      uint32_t value = 0;
      for (char c : text.substr(2)) {
        const int digit = HexDigitValue(c);
        if (digit >= 0) value = value * 16 + static_cast<uint32_t>(digit);
      }
      return value;
    }
  }
  if (StartsWithNoCase(text, "TRUE") || EqualsNoCase(text, "ON")) return 1;
  if (StartsWithNoCase(text, "FALSE") || EqualsNoCase(text, "OFF")) return 0;
  return static_cast<uint32_t>(ParseDecimal(text));
}

double ParseDuration(std::string_view text) {
  const std::string copy(text);
  const double number = std::strtod(copy.c_str(), nullptr);
  if (!(number > 0)) {
    struct UnitWord {
      std::string_view word;
      double ms;
    };
    static constexpr UnitWord kWords[] = {
        {"forever", 2147483647.0}, {"sec", 1000.0},     {"second", 1000.0},  {"min", 60000.0},
        {"minute", 60000.0},       {"hour", 3600000.0}, {"day", 86400000.0}, {"week", 604800000.0},
    };
    for (const UnitWord& unit : kWords) {
      if (text == unit.word) return unit.ms;
    }
    return number;
  }
  size_t i = 1;
  while (i < text.size() &&
         (IsDigit(text[i]) || text[i] == '-' || text[i] == '+' || text[i] == '.')) {
    ++i;
  }
  const char unit = i < text.size() ? text[i] : '\0';
  switch (unit) {
    case 'd': return number * 86400000.0;
    case 'h': return number * 3600000.0;
    case 'm': return (i + 1 < text.size() && text[i + 1] == 's') ? number : number * 60000.0;
    case 's': return number * 1000.0;
    case 'w': return number * 604800000.0;
    default: return number;
  }
}

uint32_t TruncateToU32(double value) {
  if (!(value > 0)) return 0;
  if (value >= 4294967295.0) return 0xFFFFFFFFU;
  return static_cast<uint32_t>(value);
}

uint64_t NowMs() { return platform::MonotonicMs(); }

bool EqualsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (Lower(a[i]) != Lower(b[i])) return false;
  }
  return true;
}

bool StartsWithNoCase(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && EqualsNoCase(text.substr(0, prefix.size()), prefix);
}

uint32_t InetAddr(std::string_view text) {
  uint32_t parts[4] = {0, 0, 0, 0};
  int count = 0;
  size_t i = 0;
  while (true) {
    if (i >= text.size() || !IsDigit(text[i])) return kInetNone;
    uint64_t value = 0;
    int base = 10;
    if (text[i] == '0') {
      base = 8;
      ++i;
      if (i < text.size() && Lower(text[i]) == 'x') {
        base = 16;
        ++i;
      }
    }
    for (; i < text.size(); ++i) {
      const int digit = HexDigitValue(text[i]);
      if (digit < 0 || digit >= base) break;
      value = value * static_cast<uint64_t>(base) + static_cast<uint64_t>(digit);
      if (value > 0xFFFFFFFFULL) return kInetNone;
    }
    if (count == 4) return kInetNone;
    parts[count++] = static_cast<uint32_t>(value);
    if (i < text.size() && text[i] == '.') {
      ++i;
      continue;
    }
    break;
  }
  for (; i < text.size(); ++i) {
    if (text[i] != ' ' && (text[i] < '\t' || text[i] > '\r')) return kInetNone;
  }
  uint32_t host = 0;  // the address in host order, a.b.c.d = 0xaabbccdd
  switch (count) {
    case 1: host = parts[0]; break;
    case 2:
      if (parts[0] > 0xFF || parts[1] > 0xFFFFFF) return kInetNone;
      host = parts[0] << 24 | parts[1];
      break;
    case 3:
      if (parts[0] > 0xFF || parts[1] > 0xFF || parts[2] > 0xFFFF) return kInetNone;
      host = parts[0] << 24 | parts[1] << 16 | parts[2];
      break;
    default:
      for (uint32_t p : parts) {
        if (p > 0xFF) return kInetNone;
      }
      host = parts[0] << 24 | parts[1] << 16 | parts[2] << 8 | parts[3];
  }
  // Network byte order as it lies in memory, read as a little-endian word.
  return (host >> 24) | ((host >> 8) & 0xFF00U) | ((host << 8) & 0xFF0000U) | (host << 24);
}

}  // namespace kel
