#include "core/console.h"

#include <cstdarg>
#include <cstdio>

namespace kel {

void ConsolePrintf(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::vfprintf(stdout, format, args);
  va_end(args);
  std::fflush(stdout);
}

void ConsoleWrite(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

}  // namespace kel
