#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/clock.h"

namespace kel {

// The texts of the BUSMASTER version 3 log format. Every line ends in CR LF; the file is
// written byte for byte, without any line-end translation.

/// The date-time text of the header and the footer: day, month and year separated by
/// colons, then the time with milliseconds. 7 March 2024 14:05:09.042 ->
/// "07:03:2024 14:05:09:042".
std::string DateTimeText(const platform::LocalTime& time);

/// The twelve header lines written when a file is opened; "***START DATE AND TIME %s***"
/// carries `date_time`. The baud-rate and database sections are always empty.
std::string HeaderText(std::string_view date_time);

/// The two footer lines written when a file is closed:
/// "***END DATE AND TIME <date_time>***" and "***[STOP LOGGING SESSION]***".
std::string FooterText(std::string_view date_time);

/// "***NOTE: <text>***" with CR LF; a null text is shown as "<null>".
std::string NoteText(const char* text);

/// Room for a row time text: "hh:mm:ss:mmm", up to 20 suffix digits and the zero.
inline constexpr size_t kRowTimeSize = 40;

/// The time stamps of data rows, process-wide in the log writer. A row's time is the wall
/// clock (seconds and milliseconds) in local time, "14:05:09:042", followed directly by a
/// suffix counter that keeps rows of the same millisecond in ascending text order: the
/// first row of a millisecond gets "0", the next ones 1 ... 9, 91 ... 99, 991 ... 999,
/// 9991 ... (a counter that reaches a multiple of ten jumps to the nines below the next
/// power of ten, so that read as decimal fractions the suffixes always grow). The counter
/// is 64 bits wide, so it ends at nineteen nines, the 172nd row of a millisecond; rows
/// after it in the same millisecond repeat that suffix. The counter is kept as its digits
/// and the local-time conversion is cached for the current second, so a stamp costs no
/// division and no conversion. Not thread-safe. A copy goes on exactly where the original
/// stood, so a writer can take the stamps of a block of rows in one step (copy, then Skip
/// the original past them) and write the rows with its copy while others go on.
class RowClock {
 public:
  /// Writes the time text of a row stamped `now` into `out` (kRowTimeSize bytes, zero
  /// terminated) and returns its length.
  size_t Stamp(const platform::WallTime& now, char* out);
  /// Counts on as `rows` calls of Stamp with `now` would, without writing anything.
  void Skip(const platform::WallTime& now, size_t rows);

 private:
  // Sets the text for a row stamped `now` and returns the digits of its suffix.
  size_t Enter(const platform::WallTime& now);
  // Counts the suffix of `digits` digits on to the next row's.
  void CountOn(size_t digits);

  static constexpr size_t kPrefixLength = 12;  // "hh:mm:ss:mmm"
  static constexpr size_t kMaxSuffixDigits = 19;

  int64_t last_seconds_ = -1;
  int last_milliseconds_ = -1;
  int64_t cached_second_ = -1;
  // The prefix of the last stamp, then the digits of the counter that the next row of the
  // same millisecond prints (before the jump past a multiple of ten).
  char text_[kRowTimeSize] = {};
  size_t length_ = kPrefixLength + 1;
};

/// One data row.
struct CanRow {
  bool transmitted = false;  ///< "Tx", else "Rx"
  int channel = 0;           ///< 1-based
  uint32_t id = 0;
  bool extended = false;  ///< 'x' for a 29-bit identifier, else 's'
  int dlc = 0;            ///< as received; min(dlc, 8) data bytes are shown
  std::array<uint8_t, 8> data{};
};

/// The longest data row: time, fixed fields, every number at its widest, 8 data bytes.
inline constexpr size_t kMaxRowSize = 128;

/// Writes the row "<time> Rx <channel> 0x<id> <s|x> <dlc> <data>" with CR LF into `out`
/// (kMaxRowSize bytes, not zero terminated) and returns its length. The identifier is
/// lower-case hex with at least three digits, each data byte upper-case hex followed by a
/// blank: "14:05:09:0420 Rx 1 0x123 s 3 01 02 FF \r\n".
size_t FormatRow(std::string_view time, const CanRow& row, char* out);

/// FormatRow without the time: everything from the blank behind the time to CR LF.
size_t FormatRowFields(const CanRow& row, char* out);

}  // namespace kel
