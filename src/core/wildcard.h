#pragma once

#include <string_view>

namespace kel {

/// Case-insensitive match of `name` against `pattern`: '*' stands for any run of
/// characters, '?' for any one; '"' and '\' in the pattern are skipped, so a quoted
/// pattern matches as the bare one.
///   ("sync2", "sync*") -> true, ("SYNC", "s?nc") -> true, ("rank1", "\"rank1\"") -> true
/// Linear in the lengths for any number of stars.
bool MatchWildcard(std::string_view name, std::string_view pattern);

}  // namespace kel
