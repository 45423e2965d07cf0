#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace kel {

/// Live rows on their way to the console, written in blocks: a fast stream of rows costs a
/// write per block, not a flush per row. The owner flushes before it waits, so that what a
/// person at a terminal should see is never held back; the rest goes when the block is full
/// and when the object goes.
class ConsoleRows {
 public:
  explicit ConsoleRows(size_t block_size = kDefaultBlock);
  ~ConsoleRows() { Flush(); }
  ConsoleRows(const ConsoleRows&) = delete;
  ConsoleRows& operator=(const ConsoleRows&) = delete;

  /// Adds `text` as it is: no printf interpretation of its bytes.
  void Append(std::string_view text);
  /// Adds a formatted row of at most kMaxRow characters (longer ones are cut).
  void Printf(const char* format, ...) __attribute__((format(printf, 2, 3)));
  /// Writes what is held to the console.
  void Flush();

  static constexpr size_t kDefaultBlock = 64 * 1024;
  static constexpr size_t kMaxRow = 1024;

 private:
  std::vector<char> block_;
  size_t used_ = 0;
};

}  // namespace kel
