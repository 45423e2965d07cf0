#include "serial/serial_commands.h"

#include <algorithm>
#include <optional>
#include <string>

#include "config/serial_lookup.h"
#include "config/settings.h"
#include "core/parse.h"
#include "device/device_link.h"
#include "platform/console.h"
#include "platform/interrupt.h"
#include "serial/controller_line.h"
#include "serial/line_codec.h"

namespace kel {
namespace {

constexpr size_t kArgumentSize = 128;
constexpr size_t kPortNameSize = 256;
// Longer than any line, so that an over-long text is seen as such, not cut to size.
constexpr size_t kTextSize = 1024;

constexpr uint64_t kDefaultQuietMs = 1000;
constexpr int kAnswerLimitMs = 1000;
constexpr int kBootLimitMs = 3000;
// srecv looks for a key press at least this often.
constexpr uint64_t kKeySliceMs = 100;
// Room for one more line as srecv shows it (each byte at most four characters) and for
// its closing count.
constexpr size_t kLineRoom = 4 * kMaxLineBytes + 64;

ResultCode Written(size_t start, const Output& out) {
  return static_cast<ResultCode>(out.Length() - start);
}

// The board's TCP link is dropped when this goes: a power-on reset closes it on the board's
// side, and the next command of the line must connect afresh.
struct DropDeviceLink {
  ~DropDeviceLink() { Device().Disconnect(); }
};

// Opens the line, sends `body` as a request and waits for its answer.
ResultCode Ask(std::string_view body, int timeout_ms, ControllerLine& line, ParsedLine* answer) {
  if (const ResultCode r = line.Open(); r < 0) return r;
  if (const ResultCode r = line.Send(FramedLine(body)); r < 0) return r;
  return line.AwaitAnswer(body, timeout_ms, answer);
}

}  // namespace

ResultCode HandleSerial(const CommandEntry& /*entry*/, std::string_view& rest, Output& out) {
  const std::string word = SplitWord(rest, kWordSeparators, kPortNameSize);
  std::string& port = CurrentSettings().serial_port;
  if (!word.empty()) {
    const std::string_view name = Unquote(word);
    if (EqualsNoCase(name, "none") || EqualsNoCase(name, "off")) {
      port.clear();
    } else if (EqualsNoCase(name, "auto")) {
      port = LookupStartupSerialPort();
    } else {
      port = std::string(name);
    }
  }
  return static_cast<ResultCode>(
      out.Printf("Serial port '%s'\r\n", VisibleText(port, true, true).c_str()));
}

ResultCode HandleSerialSend(const CommandEntry& entry, std::string_view& rest, Output& out) {
  const std::string argument = SplitWord(rest, kCommandSeparators, kTextSize);
  const std::optional<std::string> text = UnescapeText(Unquote(argument));
  if (!text || text->empty()) return FormatResult(&entry, kErrBadArgs, out);
  const std::string bytes = text->front() == '$' ? *text + "\r\n" : FramedLine(*text);
  if (bytes.size() - 2 > kMaxLineBytes) return FormatResult(&entry, kErrBadArgs, out);
  ControllerLine line;
  if (const ResultCode r = line.Open(); r < 0) return FormatResult(&entry, r, out);
  if (const ResultCode r = line.Send(bytes); r < 0) return FormatResult(&entry, r, out);
  return static_cast<ResultCode>(
      out.Printf("%u bytes sent\r\n", static_cast<unsigned>(bytes.size())));
}

ResultCode HandleSerialReceive(const CommandEntry& entry, std::string_view& rest, Output& out) {
  const std::string argument = SplitWord(rest, kWordSeparators, kArgumentSize);
  const uint64_t quiet_ms =
      argument.empty() ? kDefaultQuietMs : TruncateToU32(ParseDuration(argument));
  ControllerLine line;
  if (const ResultCode r = line.Open(); r < 0) return FormatResult(&entry, r, out);
  const size_t start = out.Length();
  unsigned count = 0;
  auto show = [&](const ReceivedLine& received) {
    out.Printf("%s\r\n", VisibleText(received.text, true).c_str());
    ++count;
  };
  bool gone = false;
  uint64_t quiet_until = NowMs() + quiet_ms;
  while (true) {
    ReceivedLine received;
    while (line.NextLine(&received)) show(received);
    // A full output would lose what comes next, and a line that never falls silent would
    // keep the command for ever: both end it.
    if (out.Remaining() < kLineRoom) break;
    if (platform::InterruptRequested()) break;
    if (platform::KeyPressed()) {
      platform::DiscardKeys();
      break;
    }
    const ControllerLine::Arrival arrival =
        line.WaitForBytes(std::min(quiet_until, NowMs() + kKeySliceMs));
    if (arrival == ControllerLine::Arrival::kGone) {
      gone = true;
      break;
    }
    if (arrival == ControllerLine::Arrival::kData) {
      quiet_until = NowMs() + quiet_ms;
    } else if (NowMs() >= quiet_until) {
      break;
    }
  }
  if (const ReceivedLine partial = line.TakePartial(); !partial.text.empty()) show(partial);
  if (platform::InterruptRequested()) return FormatResult(&entry, kUserTermination, out);
  if (gone || count == 0) return FormatResult(&entry, kErrReceive, out);
  out.Printf("%u lines received\r\n", count);
  return Written(start, out);
}

ResultCode HandleSerialVersion(const CommandEntry& entry, std::string_view& /*rest*/, Output& out) {
  ControllerLine line;
  ParsedLine answer;
  if (const ResultCode r = Ask("VER", kAnswerLimitMs, line, &answer); r < 0) {
    return FormatResult(&entry, r, out);
  }
  if (answer.fields.size() < 3) return FormatResult(&entry, kErrIntegrity, out);
  return static_cast<ResultCode>(out.Printf("Board controller %s %s\r\n",
                                            VisibleText(answer.Field(1), true).c_str(),
                                            VisibleText(answer.Field(2), true).c_str()));
}

ResultCode HandlePowerOnReset(const CommandEntry& entry, std::string_view& /*rest*/, Output& out) {
  const DropDeviceLink drop;
  ControllerLine line;
  ParsedLine answer;
  if (const ResultCode r = Ask("POR", kAnswerLimitMs, line, &answer); r < 0) {
    return FormatResult(&entry, r, out);
  }
  if (answer.Field(1) != "OK") return FormatResult(&entry, kErrMsgIo, out);
  if (const ResultCode r = line.AwaitAnswer("BOOT", kBootLimitMs, &answer); r < 0) {
    return FormatResult(&entry, r, out);
  }
  return static_cast<ResultCode>(out.Printf("Power on reset done, controller %s\r\n",
                                            VisibleText(answer.Field(1), true).c_str()));
}

}  // namespace kel
