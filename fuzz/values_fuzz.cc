// The shared value, decimal, duration and address readers, and the word splitter, over any
// text: none may read past its input or fail on it.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "core/parse.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  kel::ParseValue(text);
  kel::ParseDecimal(text);
  const double ms = kel::ParseDuration(text);
  // Negative and NaN durations are none; past the range, the largest.
  if (ms <= 0 && kel::TruncateToU32(ms) != 0) __builtin_trap();
  kel::InetAddr(text);
  kel::Unquote(text);
  std::string_view rest = text;
  while (!rest.empty()) {
    const size_t before = rest.size();
    const std::string word = kel::SplitWord(rest, kel::kListSeparators, 128, 1);
    if (word.size() > 127) __builtin_trap();
    if (rest.size() == before) rest.remove_prefix(1);  // nothing taken: step over one byte
  }
  return 0;
}
