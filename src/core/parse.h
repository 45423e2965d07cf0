#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kel {

/// Separator sets used with SplitWord.
inline constexpr std::string_view kWordSeparators = " ;\r\n";     ///< one word
inline constexpr std::string_view kCommandSeparators = ";\r\n";   ///< rest of one command
inline constexpr std::string_view kOptionSeparators = " =;\r\n";  ///< option name before '='
inline constexpr std::string_view kListSeparators = " ,;\r\n";    ///< one item of a list

/// Takes the first word off the front of `text`:
///   skips leading blanks and control characters, then copies up to a separator or the
///   end; a double-quoted run is copied whole, quotes included, separators inside it do
///   not split. The word is cut to `word_size` - 1 characters, but all of it leaves
///   `text`; then up to `drop_separators` separators behind it leave `text` too.
///   `"a b";c` with " ;\r\n" -> word `"a b"`, text `;c`.
std::string SplitWord(std::string_view& text, std::string_view separators, size_t word_size,
                      size_t drop_separators = 0);

/// True for a blank or control character, the characters that words never start with.
inline bool IsBlankOrControl(char c) {
  const auto u = static_cast<unsigned char>(c);
  return u <= 0x20 || u == 0x7F;
}

/// Removes blanks and control characters at the front and every character below 33
/// at the end.
std::string_view TrimText(std::string_view text);

/// Trims, then removes one pair of enclosing double quotes.
std::string_view Unquote(std::string_view text);

/// Reads a number, character constant or boolean:
///   "0x1F" -> 31, "0x12_34" -> 0x1234, "0b11" -> 0x11 (read as hex, as the board's
///   tools always have), "'AB'" -> 0x4142, "TRUE..." / "on" -> 1, "FALSE..." / "off" -> 0,
///   otherwise a signed decimal with the leading-digits rule ("12abc" -> 12, "x" -> 0).
uint32_t ParseValue(std::string_view text);

/// Reads a signed decimal the way atoi does: blanks, a sign, then digits ("12abc" -> 12,
/// "x" -> 0), clamped to the signed 32-bit range.
int32_t ParseDecimal(std::string_view text);

/// Reads a duration in milliseconds: "10" and "10ms" -> 10, "1s" -> 1000, "0.25s" -> 250,
/// "2m" -> 120000, "1.5h" -> 5400000, "10ms*1000" -> 10; for texts whose number is 0 or
/// less the whole text may be a unit word: "forever", "sec", "second", "min", "minute",
/// "hour", "day", "week" (case matters).
double ParseDuration(std::string_view text);

/// A duration or count truncated to an unsigned 32-bit value; negative and NaN give 0,
/// values past the range give the largest value.
uint32_t TruncateToU32(double value);

/// 0-15 for a hexadecimal digit, -1 for any other character.
int HexDigitValue(char c);

/// The value of 1 to `max_digits` hexadecimal digits (at most 8) and nothing else around
/// them; nullopt for any other text.
std::optional<uint32_t> ParseHexDigits(std::string_view text, size_t max_digits);

/// Milliseconds of a monotonic clock, for rates and time-outs.
uint64_t NowMs();

/// Compares two texts without regard to ASCII letter case.
bool EqualsNoCase(std::string_view a, std::string_view b);
/// True when `text` begins with `prefix`, without regard to ASCII letter case.
bool StartsWithNoCase(std::string_view text, std::string_view prefix);

/// Reads a dotted IPv4 address the way the sockets library's inet_addr does (one to four
/// parts, each decimal, octal with a leading 0 or hexadecimal with 0x; trailing blanks
/// allowed). Returns the address in network byte order as it lies in memory on a
/// little-endian host (so "1.0.0.127" is 0x7F000001), or 0xFFFFFFFF when the text is
/// not an address.
uint32_t InetAddr(std::string_view text);
inline constexpr uint32_t kInetNone = 0xFFFFFFFFU;

}  // namespace kel
