#include "core/output.h"

#include <cstdarg>
#include <cstdio>

namespace kel {

Output::Output(size_t size) : max_length_(size > 0 ? size - 1 : 0) { text_.reserve(max_length_); }

size_t Output::Append(std::string_view text) {
  const size_t n = text.size() < Remaining() ? text.size() : Remaining();
  text_.append(text.data(), n);
  return n;
}

size_t Output::Printf(const char* format, ...) {
  const size_t start = text_.size();
  const size_t room = Remaining();
  text_.resize(start + room + 1);
  va_list args;
  va_start(args, format);
  const int n = std::vsnprintf(text_.data() + start, room + 1, format, args);
  va_end(args);
  const size_t written =
      n < 0 ? 0 : (static_cast<size_t>(n) < room ? static_cast<size_t>(n) : room);
  text_.resize(start + written);
  return written;
}

void Output::Truncate(size_t length) {
  if (length < text_.size()) text_.resize(length);
}

}  // namespace kel
