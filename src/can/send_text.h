#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "device/frame.h"

namespace kel {

/// A send text (`SendSpec`): the CAN messages that `send` sends and `recv` expects.
///
/// The text is a run of tokens, each ending at ':', '@', '*' or the end of the text.
/// A token ended by ':' is an option keyword or the identifier (or range); any other
/// token is a payload keyword or the data bytes. Keywords match by prefix without regard
/// to case: EXTIO, EXT, RTR, TS/TIME/TIMESTAMP, CNT/COUNT/COUNTER. '*' is followed by the
/// repetition count (ParseValue over the rest of the text), '@' by the pause after each
/// repetition (ParseDuration over the rest of the text). Examples:
///
///   0x123:1234            -> id 0x123, DLC 2, data 12 34, once
///   1-10:12               -> ids 1 to 10 (decimal), DLC 1, data 12, one message each
///   10-1:12               -> no message at all (a range written high to low)
///   0x123:EXT:1122        -> id 0x123, extended (bit 15), DLC 2, data 11 22
///   EXT:0x123:1122        -> the same: options may come before the identifier
///   0x123:RTR:            -> id 0x123, remote request (bit 16), DLC 0
///   0x123:EXTIO:11        -> id 0x123, DLC 1, data 11, bit 24: each message waits for its echo
///   0x123:count*1000      -> 1000 messages, DLC 4, data bytes 0-3 = 0 ... 999 little-endian
///   0x123:count*1000@10ms -> the same with a 10 ms pause after each
///   0x123:count@10ms*1000 -> 1000 messages, pause 10 ms ("10ms*1000" reads as 10 ms)
///   1:time*10@1s          -> 10 messages, DLC 4, data = milliseconds since the start, 1 s apart
///   0x123:1234*3          -> 3 messages, DLC 2, data 12 34
///   0x123:1234*0x10@5     -> 0x105 messages: the count is read to the end of the text and
///                            the hexadecimal reader skips the '@' ("*<c>@<i>" is meant)
///   0x123:123             -> DLC 2, data 12 30: a lone last digit is a high nibble
///   0x123:11-22 33        -> DLC 3, data 11 22 33: characters between digits are skipped
///   0x123:112233445566778899 -> DLC 8, data 11 22 33 44 55 66 77 88: at most 8 bytes
///   0x123:                -> id 0x123, DLC 0 (no data field)
///   0x123                 -> not a send text: raw hexadecimal bytes (see IsRawArgument)
///   x12:34                -> false: an identifier must begin with a hexadecimal digit;
///                            parsing stops and what was parsed stays (id 0, DLC 0)
struct SendSpec {
  uint32_t first_id = 0;
  uint32_t last_id = 0;  ///< inclusive
  bool ext = false;      ///< EXT: 29-bit identifier
  bool extio = false;    ///< EXTIO: wait for the board's echo of each message
  bool rtr = false;      ///< RTR: remote request
  bool time = false;     ///< TS/TIME/TIMESTAMP: payload = milliseconds since the start
  bool count = false;    ///< CNT/COUNT/COUNTER: payload = repetition index
  std::array<uint8_t, 8> data{};
  int32_t data_length = -1;  ///< data bytes parsed; -1: no data field seen
  uint32_t interval_ms = 0;  ///< pause after each repetition
  uint32_t repeat = 0;       ///< repetitions; 0 means 1
};

/// The capacity of a data field, and of a raw frame.
inline constexpr size_t kDataCapacity = 8;
inline constexpr size_t kRawCapacity = 16;

/// Fills `spec` (which should start as a default SendSpec) from `text`, keeping at most
/// `data_capacity` (at most 8) data bytes. False when an identifier token does not begin
/// with a hexadecimal digit; parsing stops there and what was parsed stays in `spec`.
bool ParseSendSpec(std::string_view text, SendSpec& spec, size_t data_capacity = kDataCapacity);

/// Turns hexadecimal digits into bytes, two digits a byte, high nibble first, and returns
/// the number of bytes written (at most `capacity`). Characters that are not hexadecimal
/// digits are skipped; a lone last digit is a high nibble. With `strict`, a character that
/// is not a digit where a pair's second digit belongs ends the text there.
///   "123456789" -> 12 34 56 78 90;  "123" -> 12 30;  "x1y2" -> 12;
///   "1g2" -> 12, strict: 10
size_t ParseHexBytes(std::string_view text, uint8_t* out, size_t capacity, bool strict);

/// True when `argument` is raw hexadecimal data rather than a send text: it holds
/// none of ':', '@' and '*'.
bool IsRawArgument(std::string_view argument);

/// The number of repetitions: repeat, or 1 when it is 0.
uint32_t RepeatCount(const SendSpec& spec);

/// (last id - first id + 1) x repetitions in unsigned 32-bit arithmetic, as every
/// progress and result line shows it (a range written high to low wraps).
uint32_t TotalMessages(const SendSpec& spec);

/// The DLC of every message: 4 with a counter or time payload, else the data length
/// (0 when no data field was given).
uint8_t MessageDlc(const SendSpec& spec);

/// The frame of the first message: identifier first id; second word DLC, ext (bit 15),
/// rtr (bit 16), extio (bit 24); the data bytes, or zeros where a payload goes.
FrameBytes BuildFrame(const SendSpec& spec);

}  // namespace kel
