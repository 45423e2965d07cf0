#include "can/send_text.h"

#include <algorithm>

#include "core/parse.h"

namespace kel {
namespace {

constexpr std::string_view kTokenEnds = ":@*";

bool IsSpecBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

bool StartsWithAny(std::string_view token, std::initializer_list<std::string_view> keywords) {
  return std::any_of(keywords.begin(), keywords.end(), [token](std::string_view keyword) {
    return StartsWithNoCase(token, keyword);
  });
}

bool IsTimeKeyword(std::string_view token) {
  return StartsWithAny(token, {"TS", "TIME", "TIMESTAMP"});
}

bool IsCountKeyword(std::string_view token) {
  return StartsWithAny(token, {"CNT", "COUNT", "COUNTER"});
}

// A token ended by ':': an option keyword or the identifier range. False for a token that
// is neither.
bool TakeIdentifierToken(std::string_view token, SendSpec& spec) {
  if (StartsWithNoCase(token, "EXTIO")) {
    spec.extio = true;
  } else if (StartsWithNoCase(token, "EXT")) {
    spec.ext = true;
  } else if (StartsWithNoCase(token, "RTR")) {
    spec.rtr = true;
  } else if (IsTimeKeyword(token)) {
    spec.time = true;
  } else if (IsCountKeyword(token)) {
    spec.count = true;
  } else {
    if (token.empty() || HexDigitValue(token.front()) < 0) return false;
    const size_t dash = token.find('-');
    spec.first_id = spec.last_id = ParseValue(token.substr(0, dash));
    if (dash != std::string_view::npos) spec.last_id = ParseValue(token.substr(dash + 1));
  }
  return true;
}

// A token ended by '@', '*' or the end: a payload keyword or the data field. Only the
// first data-like token is data; later ones are the digits of a count or an interval.
void TakeDataToken(std::string_view token, SendSpec& spec, size_t data_capacity) {
  if (IsTimeKeyword(token)) {
    spec.time = true;
  } else if (IsCountKeyword(token)) {
    spec.count = true;
  } else if (!spec.time && !spec.count && spec.data_length < 0) {
    spec.data_length = static_cast<int32_t>(
        ParseHexBytes(token, spec.data.data(), std::min(data_capacity, spec.data.size()), false));
  }
}

}  // namespace

bool ParseSendSpec(std::string_view text, SendSpec& spec, size_t data_capacity) {
  size_t pos = 0;
  while (true) {
    while (pos < text.size() && IsSpecBlank(text[pos])) ++pos;
    if (pos >= text.size()) return true;
    const size_t end = std::min(text.find_first_of(kTokenEnds, pos), text.size());
    const std::string_view token = text.substr(pos, end - pos);
    const char ender = end < text.size() ? text[end] : '\0';
    const std::string_view behind = end < text.size() ? text.substr(end + 1) : std::string_view();
    if (ender == ':') {
      if (!TakeIdentifierToken(token, spec)) return false;
    } else {
      TakeDataToken(token, spec, data_capacity);
      if (ender == '@' && !behind.empty()) spec.interval_ms = TruncateToU32(ParseDuration(behind));
      if (ender == '*' && !behind.empty()) spec.repeat = ParseValue(behind);
    }
    pos = end + 1;
  }
}

size_t ParseHexBytes(std::string_view text, uint8_t* out, size_t capacity, bool strict) {
  size_t written = 0;
  size_t i = 0;
  while (written < capacity) {
    while (i < text.size() && HexDigitValue(text[i]) < 0) ++i;
    if (i >= text.size()) break;
    const int high = HexDigitValue(text[i++]);
    int low = 0;
    if (strict) {
      if (i < text.size() && HexDigitValue(text[i]) >= 0)
        low = HexDigitValue(text[i++]);
      else
        text = text.substr(0, i);  // the pair ends the text
    } else {
      while (i < text.size() && HexDigitValue(text[i]) < 0) ++i;
      if (i < text.size()) low = HexDigitValue(text[i++]);
    }
    out[written++] = static_cast<uint8_t>(high << 4 | low);
  }
  return written;
}

bool IsRawArgument(std::string_view argument) {
  return argument.find_first_of(kTokenEnds) == std::string_view::npos;
}

uint32_t RepeatCount(const SendSpec& spec) { return spec.repeat == 0 ? 1 : spec.repeat; }

uint32_t TotalMessages(const SendSpec& spec) {
  return (spec.last_id - spec.first_id + 1) * RepeatCount(spec);
}

uint8_t MessageDlc(const SendSpec& spec) {
  if (spec.time || spec.count) return 4;
  return static_cast<uint8_t>(std::max(spec.data_length, 0));
}

FrameBytes BuildFrame(const SendSpec& spec) {
  CanDataFrame frame;
  frame.id = spec.first_id;
  uint32_t info = MessageDlc(spec);
  if (spec.ext) info |= kInfoExtended;
  if (spec.rtr) info |= kInfoRemote;
  if (spec.extio) info |= kInfoEchoRequest;
  frame.SetInfoWord(info);
  if (!spec.time && !spec.count && spec.data_length > 0) {
    std::copy_n(spec.data.begin(), std::min<size_t>(spec.data_length, spec.data.size()),
                frame.data.begin());
  }
  return EncodeCanData(frame);
}

}  // namespace kel
