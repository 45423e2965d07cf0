// Key presses from the bytes a terminal sends; the same on every system.

#include "platform/console.h"

namespace kel::platform {
namespace {

constexpr char kEscape = '\x1b';
constexpr char kCtrlC = '\x03';

bool IsParameter(char c) { return (c >= '0' && c <= '9') || c == ';'; }

}  // namespace

Key DecodeKey(std::string_view bytes, bool more_may_come, size_t* used) {
  *used = 0;
  if (bytes.empty()) return {};
  if (bytes[0] != kEscape) {
    *used = 1;
    if (bytes[0] == kCtrlC) return {KeyCode::kInterrupt};
    return {KeyCode::kCharacter, bytes[0]};
  }
  if (bytes.size() == 1 && more_may_come) return {};
  if (bytes.size() == 1 || (bytes[1] != '[' && bytes[1] != 'O')) {
    // An escape that no sequence follows is the Escape key itself.
    *used = 1;
    return {KeyCode::kEscape};
  }
  size_t end = 2;
  while (end < bytes.size() && IsParameter(bytes[end])) ++end;
  if (end == bytes.size()) {
    if (more_may_come) return {};
    *used = bytes.size();  // cut off for good: dropped
    return {};
  }
  *used = end + 1;
  switch (bytes[end]) {
    case 'A': return {KeyCode::kUp};
    case 'B': return {KeyCode::kDown};
    case 'C': return {KeyCode::kRight};
    case 'D': return {KeyCode::kLeft};
    default: return {};
  }
}

}  // namespace kel::platform
