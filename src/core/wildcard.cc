#include "core/wildcard.h"

namespace kel {
namespace {

char Lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; }

bool Skipped(char c) { return c == '"' || c == '\\'; }

}  // namespace

bool MatchWildcard(std::string_view name, std::string_view pattern) {
  // Greedy matching with one way back: after a mismatch the last star takes one more
  // character. Earlier stars never need to, so the work stays linear.
  constexpr size_t kNoStar = std::string_view::npos;
  size_t n = 0;
  size_t p = 0;
  size_t star = kNoStar;  // pattern position behind the last star
  size_t mark = 0;        // name position that star's run ends at
  while (n < name.size()) {
    while (p < pattern.size() && Skipped(pattern[p])) ++p;
    if (p < pattern.size() && pattern[p] == '*') {
      star = ++p;
      mark = n;
    } else if (p < pattern.size() && (pattern[p] == '?' || Lower(pattern[p]) == Lower(name[n]))) {
      ++p;
      ++n;
    } else if (star != kNoStar) {
      p = star;
      n = ++mark;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && (pattern[p] == '*' || Skipped(pattern[p]))) ++p;
  return p == pattern.size();
}

}  // namespace kel
