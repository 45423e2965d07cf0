#include "serial/line_codec.h"

#include <cstdio>

#include "core/parse.h"

namespace kel {
namespace {

constexpr size_t kMaxCommandLetters = 8;

bool IsFieldCharacter(char c) { return c >= 0x20 && c <= 0x7E && c != '$' && c != '*'; }

// The command and fields between "$" and "*", or nothing when the body breaks a rule.
std::optional<std::vector<std::string>> SplitBody(std::string_view body) {
  std::vector<std::string> fields;
  size_t start = 0;
  while (true) {
    const size_t comma = body.find(',', start);
    const std::string_view field = body.substr(
        start, comma == std::string_view::npos ? std::string_view::npos : comma - start);
    for (const char c : field) {
      if (!IsFieldCharacter(c)) return std::nullopt;
    }
    fields.emplace_back(field);
    if (comma == std::string_view::npos) break;
    start = comma + 1;
  }
  const std::string& command = fields.front();
  if (command.empty() || command.size() > kMaxCommandLetters) return std::nullopt;
  for (const char c : command) {
    if (c < 'A' || c > 'Z') return std::nullopt;
  }
  return fields;
}

}  // namespace

uint8_t LineChecksum(std::string_view body) {
  uint8_t sum = 0;
  for (const char c : body) sum ^= static_cast<uint8_t>(c);
  return sum;
}

std::string FramedLine(std::string_view body) {
  char tail[8];
  std::snprintf(tail, sizeof tail, "*%02X\r\n", LineChecksum(body));
  std::string line = "$";
  line.append(body);
  line.append(tail);
  return line;
}

ParsedLine ParseLine(std::string_view line, bool checksum_required) {
  ParsedLine parsed;
  if (line.size() > kMaxLineBytes) {
    parsed.fault = LineFault::kTooLong;
    return parsed;
  }
  parsed.fault = LineFault::kBadLine;
  if (line.empty() || line.front() != '$') return parsed;
  const size_t star = line.find('*');
  const std::string_view body =
      line.substr(1, star == std::string_view::npos ? line.npos : star - 1);
  int given = -1;
  if (star != std::string_view::npos) {
    const std::string_view digits = line.substr(star + 1);
    if (digits.size() != 2 || HexDigitValue(digits[0]) < 0 || HexDigitValue(digits[1]) < 0) {
      return parsed;
    }
    given = HexDigitValue(digits[0]) * 16 + HexDigitValue(digits[1]);
  }
  std::optional<std::vector<std::string>> fields = SplitBody(body);
  if (!fields) return parsed;
  parsed.fields = std::move(*fields);
  if (given < 0) {
    parsed.fault = checksum_required ? LineFault::kMissingChecksum : LineFault::kNone;
  } else {
    parsed.fault = given == LineChecksum(body) ? LineFault::kNone : LineFault::kBadChecksum;
  }
  return parsed;
}

ParsedLine ParseReceived(const ReceivedLine& line, bool checksum_required) {
  if (line.too_long) return ParsedLine{LineFault::kTooLong, {}};
  return ParseLine(line.text, checksum_required);
}

std::optional<std::string> UnescapeText(std::string_view text) {
  std::string bytes;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      bytes += text[i];
      continue;
    }
    if (++i == text.size()) return std::nullopt;
    switch (text[i]) {
      case 'r': bytes += '\r'; break;
      case 'n': bytes += '\n'; break;
      case 't': bytes += '\t'; break;
      case '\\': bytes += '\\'; break;
      case 'x': {
        const int high = i + 1 < text.size() ? HexDigitValue(text[i + 1]) : -1;
        const int low = i + 2 < text.size() ? HexDigitValue(text[i + 2]) : -1;
        if (high < 0 || low < 0) return std::nullopt;
        bytes += static_cast<char>(high * 16 + low);
        i += 2;
        break;
      }
      default: return std::nullopt;
    }
  }
  return bytes;
}

std::string VisibleText(std::string_view bytes, bool double_percent, bool name) {
  std::string text;
  text.reserve(bytes.size());
  for (const char c : bytes) {
    if (c == '\\' && !name) {
      text += "\\\\";
    } else if (c == '%' && double_percent) {
      text += "%%";
    } else if (c >= 0x20 && c <= 0x7E) {
      text += c;
    } else {
      char hex[8];
      std::snprintf(hex, sizeof hex, "\\x%02X", static_cast<unsigned>(static_cast<uint8_t>(c)));
      text += hex;
    }
  }
  return text;
}

void LineSplitter::Feed(std::string_view bytes, std::vector<ReceivedLine>& lines) {
  for (const char c : bytes) {
    const bool lf_of_crlf = c == '\n' && after_cr_;
    after_cr_ = c == '\r';
    if (lf_of_crlf) continue;
    if (c == '\r' || c == '\n') {
      if (!partial_.text.empty()) lines.push_back(TakePartial());
      continue;
    }
    if (partial_.text.size() < kMaxLineBytes) {
      partial_.text += c;
    } else {
      partial_.too_long = true;
    }
  }
}

ReceivedLine LineSplitter::TakePartial() {
  ReceivedLine line = std::move(partial_);
  partial_ = ReceivedLine();
  return line;
}

}  // namespace kel
