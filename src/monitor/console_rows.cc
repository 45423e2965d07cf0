#include "monitor/console_rows.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "core/console.h"

namespace kel {

ConsoleRows::ConsoleRows(size_t block_size) : block_(block_size < kMaxRow ? kMaxRow : block_size) {}

void ConsoleRows::Append(std::string_view text) {
  if (text.size() > block_.size() - used_) Flush();
  if (text.size() > block_.size()) {
    ConsoleWrite(text);
    return;
  }
  std::memcpy(block_.data() + used_, text.data(), text.size());
  used_ += text.size();
}

void ConsoleRows::Printf(const char* format, ...) {
  if (block_.size() - used_ < kMaxRow) Flush();
  va_list args;
  va_start(args, format);
  const int n = std::vsnprintf(block_.data() + used_, kMaxRow, format, args);
  va_end(args);
  if (n > 0) used_ += static_cast<size_t>(n) < kMaxRow ? static_cast<size_t>(n) : kMaxRow - 1;
}

void ConsoleRows::Flush() {
  if (used_ == 0) return;
  ConsoleWrite(std::string_view(block_.data(), used_));
  used_ = 0;
}

}  // namespace kel
