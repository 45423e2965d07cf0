#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kel {

/// A command's output text with a fixed capacity, like a caller-supplied buffer of
/// `size` bytes: at most size - 1 characters are kept. Writes past the capacity are cut,
/// as snprintf cuts them, and return the count that was actually written.
class Output {
 public:
  explicit Output(size_t size);

  size_t Append(std::string_view text);
  size_t Printf(const char* format, ...) __attribute__((format(printf, 2, 3)));

  std::string_view Text() const { return text_; }
  size_t Length() const { return text_.size(); }
  size_t Remaining() const { return max_length_ - text_.size(); }
  bool Empty() const { return text_.empty(); }
  /// Drops everything behind `length` characters.
  void Truncate(size_t length);
  void Clear() { text_.clear(); }

 private:
  std::string text_;
  size_t max_length_;
};

}  // namespace kel
