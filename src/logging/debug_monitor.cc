#include "logging/debug_monitor.h"

#include <cstdio>

namespace kel {
namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// "Nov 24 16:41:04 " (the day may be " 4"): 16 characters.
bool IsTimeStamp(std::string_view text) {
  if (text.size() < 16) return false;
  const auto letter = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); };
  return letter(text[0]) && letter(text[1]) && letter(text[2]) && text[3] == ' ' &&
         (text[4] == ' ' || IsDigit(text[4])) && IsDigit(text[5]) && text[6] == ' ' &&
         IsDigit(text[7]) && IsDigit(text[8]) && text[9] == ':' && IsDigit(text[10]) &&
         IsDigit(text[11]) && text[12] == ':' && IsDigit(text[13]) && IsDigit(text[14]) &&
         text[15] == ' ';
}

}  // namespace

std::string_view StripSyslogHeader(std::string_view text) {
  if (text.size() >= 3 && text[0] == '<') {
    size_t end = 1;
    while (end < text.size() && end <= 4 && IsDigit(text[end])) ++end;
    if (end > 1 && end < text.size() && text[end] == '>') text.remove_prefix(end + 1);
  }
  if (IsTimeStamp(text)) text.remove_prefix(16);
  return text;
}

std::string LoggableText(std::string_view text, size_t limit) {
  text = text.substr(0, limit);
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == '\0')) {
    text.remove_suffix(1);
  }
  std::string line;
  line.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte != 0x7F) {
      line += c;
    } else {
      char escaped[5];
      std::snprintf(escaped, sizeof escaped, "\\x%02X", byte);
      line += escaped;
    }
  }
  return line;
}

bool DebugOutputMonitor::Start(Callback callback, const std::string& path) {
  Stop();
  auto reader = std::make_unique<platform::DebugOutputReader>();
  if (!reader->Open(path)) return false;
  return watcher_.Start(
      std::move(reader), [callback = std::move(callback)](platform::DebugOutputReader& source) {
        platform::DebugMessage message;
        if (!source.Receive(message, kWatchSliceMs)) return !source.Failed();
        callback(message.pid, platform::ProcessName(message.pid), StripSyslogHeader(message.text));
        return true;
      });
}

}  // namespace kel
