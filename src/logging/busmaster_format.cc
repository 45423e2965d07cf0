#include "logging/busmaster_format.h"

#include <cstdio>
#include <cstring>

namespace kel {
namespace {

constexpr char kHeaderFormat[] =
    "***BUSMASTER Ver 3***\r\n"
    "***PROTOCOL CAN***\r\n"
    "***NOTE: PLEASE DO NOT EDIT THIS DOCUMENT***\r\n"
    "***[START LOGGING SESSION]***\r\n"
    "***START DATE AND TIME %s***\r\n"
    "***HEX***\r\n"
    "***SYSTEM MODE***\r\n"
    "***START CHANNEL BAUD RATE***\r\n"
    "***END CHANNEL BAUD RATE***\r\n"
    "***START DATABASE FILES***\r\n"
    "***END DATABASE FILES***\r\n"
    "***<Time><Tx/Rx><Channel><CAN ID><Type><DLC><DataBytes>***\r\n";
constexpr char kFooterFormat[] =
    "***END DATE AND TIME %s***\r\n"
    "***[STOP LOGGING SESSION]***\r\n";
constexpr char kNoteFormat[] = "***NOTE: %s***\r\n";
constexpr char kDateTimeFormat[] = "%02d:%02d:%04d %02d:%02d:%02d:%03d";

constexpr char kUpperHex[] = "0123456789ABCDEF";
constexpr char kLowerHex[] = "0123456789abcdef";

// The formats above take one text; the result is built without a size limit.
std::string FormatWithText(const char* format, std::string_view text) {
  const std::string argument(text);
  const int length = std::snprintf(nullptr, 0, format, argument.c_str());
  std::string result(static_cast<size_t>(length), '\0');
  std::snprintf(result.data(), result.size() + 1, format, argument.c_str());
  return result;
}

// Digits of `value` in decimal, written at `out`; returns the end.
char* PutUnsigned(char* out, uint64_t value) {
  char digits[20];
  int n = 0;
  do {
    digits[n++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value != 0);
  while (n > 0) *out++ = digits[--n];
  return out;
}

char* PutSigned(char* out, int value) {
  if (value < 0) {
    *out++ = '-';
    return PutUnsigned(out, static_cast<uint64_t>(-static_cast<int64_t>(value)));
  }
  return PutUnsigned(out, static_cast<uint64_t>(value));
}

// "%03x": lower-case hex, at least three digits.
char* PutHexId(char* out, uint32_t id) {
  int digits = 3;
  while (digits < 8 && (id >> (4 * digits)) != 0) ++digits;
  for (int i = digits - 1; i >= 0; --i) *out++ = kLowerHex[(id >> (4 * i)) & 0xF];
  return out;
}

char* PutTwoDigits(char* out, int value) {
  *out++ = static_cast<char>('0' + value / 10 % 10);
  *out++ = static_cast<char>('0' + value % 10);
  return out;
}

// Nineteen nines: the last suffix of the sequence whose successor (10^20 - 9) still fits
// in 64 bits would not. Rows past it in the same millisecond share it.
constexpr uint64_t kLastSuffix = 9999999999999999999ULL;

int DecimalDigits(uint64_t value) {
  int digits = 1;
  while (value >= 10) {
    value /= 10;
    ++digits;
  }
  return digits;
}

}  // namespace

std::string DateTimeText(const platform::LocalTime& time) {
  char text[64];
  std::snprintf(text, sizeof text, kDateTimeFormat, time.day, time.month, time.year, time.hour,
                time.minute, time.second, time.millisecond);
  return text;
}

std::string HeaderText(std::string_view date_time) {
  return FormatWithText(kHeaderFormat, date_time);
}

std::string FooterText(std::string_view date_time) {
  return FormatWithText(kFooterFormat, date_time);
}

std::string NoteText(const char* text) {
  return FormatWithText(kNoteFormat, text == nullptr ? "<null>" : text);
}

size_t RowClock::Stamp(const platform::WallTime& now, char* out) {
  if (now.seconds != last_seconds_ || now.milliseconds != last_milliseconds_) {
    suffix_ = 0;
  } else if (suffix_ != 0 && suffix_ % 10 == 0) {
    // 10 -> 91, 100 -> 991: the next text still sorts after the previous one (..9, 91).
    uint64_t power = 1;
    for (int i = DecimalDigits(suffix_); i > 0; --i) power *= 10;
    suffix_ = power - 9;
  }
  if (now.seconds != cached_second_) {
    const platform::LocalTime local = platform::ToLocalTime(now);
    char* p = PutTwoDigits(cached_prefix_, local.hour);
    *p++ = ':';
    p = PutTwoDigits(p, local.minute);
    *p++ = ':';
    p = PutTwoDigits(p, local.second);
    *p = ':';
    cached_second_ = now.seconds;
  }
  std::memcpy(out, cached_prefix_, 9);
  char* p = out + 9;
  const int ms = now.milliseconds;
  *p++ = static_cast<char>('0' + ms / 100 % 10);
  p = PutTwoDigits(p, ms % 100);
  p = PutUnsigned(p, suffix_);
  *p = '\0';
  last_seconds_ = now.seconds;
  last_milliseconds_ = now.milliseconds;
  if (suffix_ != kLastSuffix) ++suffix_;
  return static_cast<size_t>(p - out);
}

size_t FormatRow(std::string_view time, const CanRow& row, char* out) {
  char* p = out;
  const size_t time_length = time.size() < kRowTimeSize ? time.size() : kRowTimeSize - 1;
  std::memcpy(p, time.data(), time_length);
  p += time_length;
  std::memcpy(p, row.transmitted ? " Tx " : " Rx ", 4);
  p += 4;
  p = PutSigned(p, row.channel);
  std::memcpy(p, " 0x", 3);
  p = PutHexId(p + 3, row.id);
  *p++ = ' ';
  *p++ = row.extended ? 'x' : 's';
  *p++ = ' ';
  p = PutSigned(p, row.dlc);
  *p++ = ' ';
  const int shown = row.dlc < 0 ? 0 : (row.dlc > 8 ? 8 : row.dlc);
  for (int i = 0; i < shown; ++i) {
    const uint8_t byte = row.data[static_cast<size_t>(i)];
    p[0] = kUpperHex[byte >> 4];
    p[1] = kUpperHex[byte & 0xF];
    p[2] = ' ';
    p += 3;
  }
  *p++ = '\r';
  *p++ = '\n';
  return static_cast<size_t>(p - out);
}

}  // namespace kel
