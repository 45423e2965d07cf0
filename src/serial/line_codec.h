#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kel {

// The board controller's serial line (docs/protocol.md): ASCII lines a person can also
// type in a terminal program.
//
//   request:  "$" CMD *("," FIELD) ["*" HH] CR [LF]     checksum optional
//   answer:   "$" CMD *("," FIELD) "*" HH CR LF         checksum always
//
// HH is the XOR of every byte between "$" and "*" as two hexadecimal digits; CMD is 1-8
// upper-case letters; fields hold printable ASCII except "$", "*" and ",".
//   "$VER"                  -> VER, no checksum (a request)
//   "$VER*41"               -> VER, checksum right
//   "$VER,KELCTRL,1.0.0*3B" -> VER with the fields KELCTRL and 1.0.0
//   "$VER*42"               -> bad checksum
//   "$ver", "VER", "$A$B"   -> bad line

/// The longest line, without its line end.
inline constexpr size_t kMaxLineBytes = 128;

/// XOR of every byte of `body`.
uint8_t LineChecksum(std::string_view body);

/// "$" body "*HH" CR LF, with body's checksum.
std::string FramedLine(std::string_view body);

/// What is wrong with a line.
enum class LineFault {
  kNone,
  kTooLong,          ///< longer than kMaxLineBytes
  kBadLine,          ///< no "$", a bad command name or character, or junk after "*HH"
  kMissingChecksum,  ///< no "*HH" where one is required
  kBadChecksum,      ///< "*HH" does not match
};

/// One line read: its command and fields, or what is wrong with it.
struct ParsedLine {
  LineFault fault = LineFault::kNone;
  /// The command, then the fields: "$VER,KELCTRL,1.0.0" -> {"VER", "KELCTRL", "1.0.0"}.
  std::vector<std::string> fields;

  std::string_view Command() const { return fields.empty() ? std::string_view() : fields[0]; }
  /// Field `i` (the command is field 0), or empty past the last.
  std::string_view Field(size_t i) const {
    return i < fields.size() ? std::string_view(fields[i]) : std::string_view();
  }
};

/// Reads one line without its line end. `checksum_required` for answers.
ParsedLine ParseLine(std::string_view line, bool checksum_required);

/// Reads the C escapes \r \n \t \\ and \xNN (two hexadecimal digits) in `text`; nothing
/// for any other escape or a "\" at the end.
///   "ECHO,a\x25b\r" -> "ECHO,a%b" CR
std::optional<std::string> UnescapeText(std::string_view text);

/// Bytes as text a person can read and type back into UnescapeText: printable ASCII as it
/// is, "\" as "\\", every other byte as "\xNN" (upper-case digits). With `double_percent`
/// a "%" becomes "%%", for text that goes into a command's output, which is printed as a
/// format. Names of ports keep their "\" single (`name`), as Windows paths are written.
///   "a\\b%" CR -> "a\\\\b%%\\x0D" (with double_percent)
std::string VisibleText(std::string_view bytes, bool double_percent, bool name = false);

/// One line as it came off the line, without its line end.
struct ReceivedLine {
  std::string text;       ///< at most kMaxLineBytes bytes
  bool too_long = false;  ///< the line was longer; `text` holds its beginning
};

/// ParseLine of a received line; an over-long one is kTooLong whatever it holds.
ParsedLine ParseReceived(const ReceivedLine& line, bool checksum_required);

/// Cuts a byte stream into lines. A line ends at CR, LF or CR LF; empty lines are dropped.
/// A line longer than kMaxLineBytes keeps its beginning and is marked too long.
class LineSplitter {
 public:
  /// Takes the next bytes of the stream and appends every line they end to `lines`.
  void Feed(std::string_view bytes, std::vector<ReceivedLine>& lines);
  /// The bytes of a line not ended yet, as a line (empty text when there are none); the
  /// splitter starts afresh.
  ReceivedLine TakePartial();

 private:
  ReceivedLine partial_;
  bool after_cr_ = false;
};

}  // namespace kel
