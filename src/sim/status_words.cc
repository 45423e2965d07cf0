#include "sim/status_words.h"

namespace kel::sim {
namespace {

constexpr uint32_t kWarningErrors = 96;
constexpr uint32_t kPassiveErrors = 128;
constexpr uint32_t kBusOffErrors = 256;

// One decimal part of a version up to `max`, taken off the front of `text`.
std::optional<uint32_t> TakePart(std::string_view& text, uint32_t max) {
  uint32_t value = 0;
  size_t digits = 0;
  while (digits < text.size() && text[digits] >= '0' && text[digits] <= '9') {
    value = value * 10 + static_cast<uint32_t>(text[digits] - '0');
    if (value > max) return std::nullopt;
    ++digits;
  }
  if (digits == 0) return std::nullopt;
  text.remove_prefix(digits);
  return value;
}

}  // namespace

std::optional<uint32_t> ParseVersion(std::string_view text) {
  const std::optional<uint32_t> major = TakePart(text, 255);
  if (!major || !text.starts_with('.')) return std::nullopt;
  text.remove_prefix(1);
  const std::optional<uint32_t> minor = TakePart(text, 255);
  if (!minor || !text.starts_with('.')) return std::nullopt;
  text.remove_prefix(1);
  const std::optional<uint32_t> patch = TakePart(text, 65535);
  if (!patch || !text.empty()) return std::nullopt;
  return *major << 24 | *minor << 16 | *patch;
}

uint32_t PortStatusBits(uint32_t transmit_errors) {
  uint32_t bits = 0;
  if (transmit_errors >= kWarningErrors) bits |= 1U << 0;
  if (transmit_errors >= kPassiveErrors) bits |= 1U << 1;
  if (transmit_errors >= kBusOffErrors) bits |= 1U << 2;
  return bits;
}

}  // namespace kel::sim
