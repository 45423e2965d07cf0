#include "device/frame_text.h"

#include <cstdio>

#include "device/command_codes.h"
#include "device/frame.h"

namespace kel {

namespace {

// "[<label> 0x........ 0x........ 0x........ 0x........]\n": a frame as its four words.
std::string WordsText(const char* label, const uint8_t* frame) {
  char text[64];
  std::snprintf(text, sizeof text, "[%s 0x%08X 0x%08X 0x%08X 0x%08X]\n", label, FrameWord(frame, 0),
                FrameWord(frame, 1), FrameWord(frame, 2), FrameWord(frame, 3));
  return text;
}

}  // namespace

std::string SendingCommandText(const uint8_t* frame) { return WordsText("Sending", frame); }

std::string SendingDataText(const uint8_t* f) {
  char text[80];
  std::snprintf(text, sizeof text,
                "[Sending %02X %02X %02X %02X %02X %02X %02X %02X %02X %02X %02X %02X %02X %02X "
                "%02X %02X]\n",
                f[0], f[1], f[2], f[3], f[4], f[5], f[6], f[7], f[8], f[9], f[10], f[11], f[12],
                f[13], f[14], f[15]);
  return text;
}

std::string ReceivedText(const uint8_t* frame) { return WordsText("Receivd", frame); }

std::string TraceText(const uint8_t* f) {
  char text[96];
  const uint32_t first = FrameWord(f, 0);
  if (IsCommandFrame(f)) {
    std::snprintf(text, sizeof text, "[COMMAND] %08X %08X %08X %08X (%s)", first, FrameWord(f, 1),
                  FrameWord(f, 2), FrameWord(f, 3), CommandCodeName(first));
  } else {
    std::snprintf(text, sizeof text,
                  "[DATA] %08X %08X %02X %02X %02X %02X %02X %02X %02X %02X (%u/%u)", first,
                  FrameWord(f, 1), f[8], f[9], f[10], f[11], f[12], f[13], f[14], f[15],
                  (first >> 8) & 0x7F, first & 0x7F);
  }
  return text;
}

MonitorColumns MonitorColumnsOf(const uint8_t* f) {
  const CanDataFrame frame = DecodeCanData(f);
  MonitorColumns columns;
  columns.type += frame.Extended() ? 'x' : '-';
  columns.type += frame.flag_r != 0 ? 'r' : '-';
  columns.type += frame.flag_s != 0 ? 's' : '-';
  columns.channel = static_cast<unsigned>(frame.Channel());
  columns.dlc = frame.dlc;
  // "%02X " per byte, written digit by digit: the monitor formats a row per frame.
  static constexpr char kHexDigits[] = "0123456789ABCDEF";
  columns.data.resize(3 * size_t{frame.dlc});
  char* out = columns.data.data();
  for (unsigned i = 0; i < frame.dlc; ++i) {
    const uint8_t byte = i < frame.data.size() ? frame.data[i] : 0;
    *out++ = kHexDigits[byte >> 4];
    *out++ = kHexDigits[byte & 0x0F];
    *out++ = ' ';
  }
  return columns;
}

}  // namespace kel
