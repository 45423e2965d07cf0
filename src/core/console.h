#pragma once

#include <string_view>

namespace kel {

/// Live text straight to the console (countdowns, progress, listings), flushed at once.
void ConsolePrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));
void ConsoleWrite(std::string_view text);

}  // namespace kel
