// The send argument in its text form and as hexadecimal bytes, as send and recv read it.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "can/send_text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  kel::SendSpec spec;
  kel::ParseSendSpec(text, spec);
  const kel::FrameBytes frame = kel::BuildFrame(spec);
  if (frame[4] > 8 && !spec.time && !spec.count) __builtin_trap();  // DLC past the data field
  kel::TotalMessages(spec);
  uint8_t raw[16];
  const size_t n = kel::ParseHexBytes(text, raw, sizeof raw, false);
  if (n > sizeof raw) __builtin_trap();
  if (kel::ParseHexBytes(text, raw, sizeof raw, true) > n) __builtin_trap();  // strict stops sooner
  kel::IsRawArgument(text);
  return 0;
}
