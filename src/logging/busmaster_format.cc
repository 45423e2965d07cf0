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

// Digits of `value` in decimal, written at `out`; returns the end. Channels and DLCs
// have one or two digits: those take no loop.
char* PutUnsigned(char* out, uint32_t value) {
  if (value < 10) {
    *out = static_cast<char>('0' + value);
    return out + 1;
  }
  if (value < 100) {
    out[0] = static_cast<char>('0' + value / 10);
    out[1] = static_cast<char>('0' + value % 10);
    return out + 2;
  }
  char digits[10];
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
    return PutUnsigned(out, 0U - static_cast<uint32_t>(value));
  }
  return PutUnsigned(out, static_cast<uint32_t>(value));
}

// "%03x": lower-case hex, at least three digits.
char* PutHexId(char* out, uint32_t id) {
  int digits = 3;
  while (digits < 8 && (id >> (4 * digits)) != 0) ++digits;
  for (int i = digits - 1; i >= 0; --i) *out++ = kLowerHex[(id >> (4 * i)) & 0xF];
  return out;
}

// "%02X " of every byte value, each padded to four characters for whole-word copies.
struct ByteTexts {
  char text[256][4];
};
constexpr ByteTexts MakeByteTexts() {
  ByteTexts texts{};
  for (int b = 0; b < 256; ++b) {
    texts.text[b][0] = kUpperHex[b >> 4];
    texts.text[b][1] = kUpperHex[b & 0xF];
    texts.text[b][2] = ' ';
    texts.text[b][3] = ' ';
  }
  return texts;
}
constexpr ByteTexts kByteTexts = MakeByteTexts();

char* PutTwoDigits(char* out, int value) {
  *out++ = static_cast<char>('0' + value / 10 % 10);
  *out++ = static_cast<char>('0' + value % 10);
  return out;
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

size_t RowClock::Enter(const platform::WallTime& now) {
  char* const suffix = text_ + kPrefixLength;
  size_t digits = length_ - kPrefixLength;
  if (now.seconds != last_seconds_ || now.milliseconds != last_milliseconds_) {
    if (now.seconds != cached_second_) {
      const platform::LocalTime local = platform::ToLocalTime(now);
      char* p = PutTwoDigits(text_, local.hour);
      *p++ = ':';
      p = PutTwoDigits(p, local.minute);
      *p++ = ':';
      p = PutTwoDigits(p, local.second);
      *p = ':';
      cached_second_ = now.seconds;
    }
    const int ms = now.milliseconds;
    text_[9] = static_cast<char>('0' + ms / 100 % 10);
    PutTwoDigits(text_ + 10, ms % 100);
    last_seconds_ = now.seconds;
    last_milliseconds_ = now.milliseconds;
    suffix[0] = '0';
    digits = 1;
  } else if (digits > 1 && suffix[digits - 1] == '0') {
    // A non-zero multiple of ten: 10 -> 91, 100 -> 991.
    std::memset(suffix, '9', digits - 1);
    suffix[digits - 1] = '1';
  }
  length_ = kPrefixLength + digits;
  return digits;
}

void RowClock::CountOn(size_t digits) {
  // Every counter printed is nines and one last digit (0 ... 9, 91 ... 99, 991 ...), so a
  // carry only ever turns all nines into a one and zeros; nineteen nines stay.
  char* const suffix = text_ + kPrefixLength;
  if (suffix[digits - 1] != '9') {
    ++suffix[digits - 1];
  } else if (digits < kMaxSuffixDigits) {
    suffix[0] = '1';
    std::memset(suffix + 1, '0', digits);
    ++length_;
  }
}

size_t RowClock::Stamp(const platform::WallTime& now, char* out) {
  const size_t digits = Enter(now);
  std::memcpy(out, text_, kRowTimeSize - 1);  // a fixed size copies fastest; only the
  out[length_] = '\0';                        // length counts
  CountOn(digits);
  return kPrefixLength + digits;
}

void RowClock::Skip(const platform::WallTime& now, size_t rows) {
  for (size_t i = 0; i < rows; ++i) {
    const size_t digits = Enter(now);
    // Nineteen nines: every further row of the millisecond repeats them.
    if (digits == kMaxSuffixDigits && text_[kPrefixLength + digits - 1] == '9') return;
    CountOn(digits);
  }
}

size_t FormatRow(std::string_view time, const CanRow& row, char* out) {
  const size_t time_length = time.size() < kRowTimeSize ? time.size() : kRowTimeSize - 1;
  std::memcpy(out, time.data(), time_length);
  return time_length + FormatRowFields(row, out + time_length);
}

size_t FormatRowFields(const CanRow& row, char* out) {
  char* p = out;
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
    std::memcpy(p, kByteTexts.text[row.data[static_cast<size_t>(i)]], 4);  // "XX " and one more
    p += 3;
  }
  *p++ = '\r';
  *p++ = '\n';
  return static_cast<size_t>(p - out);
}

}  // namespace kel
