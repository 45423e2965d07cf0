#include "core/safe_format.h"

#include <cstdio>
#include <cstring>

namespace kel {
namespace {

bool IsFlag(char c) { return std::strchr("-+ #0'", c) != nullptr; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

std::string RenderOutput(std::string_view format) {
  if (const size_t nul = format.find('\0'); nul != std::string_view::npos) {
    format = format.substr(0, nul);
  }
  std::string out;
  out.reserve(format.size());
  size_t i = 0;
  while (i < format.size()) {
    const size_t percent = format.find('%', i);
    if (percent == std::string_view::npos) {
      out.append(format.substr(i));
      break;
    }
    out.append(format.substr(i, percent - i));
    // Take the conversion apart: flags, width, precision, length, conversion letter.
    // A '*' width or precision would read an argument; it reads as zero.
    std::string spec = "%";
    size_t j = percent + 1;
    while (j < format.size() && IsFlag(format[j])) spec += format[j++];
    if (j < format.size() && format[j] == '*') {
      ++j;
    } else {
      while (j < format.size() && IsDigit(format[j]) && spec.size() < 6) spec += format[j++];
      while (j < format.size() && IsDigit(format[j])) ++j;  // widths past 99999 are dropped
    }
    if (j < format.size() && format[j] == '.') {
      spec += format[j++];
      if (j < format.size() && format[j] == '*') {
        ++j;
      } else {
        while (j < format.size() && IsDigit(format[j]) && spec.size() < 12) spec += format[j++];
        while (j < format.size() && IsDigit(format[j])) ++j;
      }
    }
    while (j < format.size() && std::strchr("hlLqjztI", format[j]) != nullptr) {
      if (format[j] == 'I') {
        // Windows' I64/I32 length prefixes.
        ++j;
        if (j + 1 < format.size() && ((format[j] == '6' && format[j + 1] == '4') ||
                                      (format[j] == '3' && format[j + 1] == '2'))) {
          j += 2;
        }
      } else {
        ++j;
      }
    }
    if (j >= format.size()) break;  // a dangling conversion prints nothing
    const char conversion = format[j++];
    // Formats the zero argument with the conversion as written.
    auto zero = [&out, &spec](auto arg) {
      const int n = std::snprintf(nullptr, 0, spec.c_str(), arg);
      if (n <= 0) return;
      const size_t at = out.size();
      out.resize(at + static_cast<size_t>(n) + 1);
      std::snprintf(out.data() + at, static_cast<size_t>(n) + 1, spec.c_str(), arg);
      out.resize(at + static_cast<size_t>(n));
    };
    switch (conversion) {
      case '%': out += '%'; break;
      case 'd':
      case 'i':
      case 'u':
      case 'x':
      case 'X':
      case 'o':
        spec += conversion;
        zero(0);
        break;
      case 'e':
      case 'E':
      case 'f':
      case 'F':
      case 'g':
      case 'G':
      case 'a':
      case 'A':
        spec += conversion;
        zero(0.0);
        break;
      case 's':
      case 'S':
        spec += 's';
        zero("");
        break;
      case 'c':
      case 'C':
        spec += 'c';
        zero(0);
        break;
      case 'p':
        spec += 'p';
        zero(static_cast<void*>(nullptr));
        break;
      case 'n': break;
      default:
        // Not a conversion: printed as it stands.
        out.append(format.substr(percent, j - percent));
        break;
    }
    i = j;
  }
  return out;
}

void PrintOutput(std::string_view text) {
  const std::string rendered = RenderOutput(text);
  std::fwrite(rendered.data(), 1, rendered.size(), stdout);
  std::fflush(stdout);
}

}  // namespace kel
