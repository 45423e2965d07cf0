#include "serial/controller_line.h"

#include <array>
#include <vector>

#include "config/settings.h"
#include "core/console.h"
#include "core/parse.h"

namespace kel {
namespace {

constexpr size_t kReadChunk = 512;

bool Tracing() { return CurrentSettings().debug_serial; }

}  // namespace

ResultCode ControllerLine::Open() {
  const std::string& name = CurrentSettings().serial_port;
  if (port_.Open(name)) return kOk;
  if (Tracing()) {
    ConsolePrintf("[SerOpen %s: %s]\n", VisibleText(name, false, true).c_str(),
                  port_.Error().c_str());
  }
  return kErrConnect;
}

ResultCode ControllerLine::Send(std::string_view bytes) {
  port_.DiscardInput();
  splitter_.TakePartial();
  lines_.clear();
  if (Tracing()) {
    std::string_view shown = bytes;
    if (shown.ends_with("\r\n")) shown.remove_suffix(2);
    ConsolePrintf("[SerSend %s]\n", VisibleText(shown, false).c_str());
  }
  const platform::SerialResult r = port_.Write(bytes.data(), bytes.size(), kSerialWriteLimitMs);
  return r.status == platform::SerialStatus::kOk ? kOk : kErrSend;
}

ControllerLine::Arrival ControllerLine::WaitForBytes(uint64_t deadline_ms) {
  std::array<char, kReadChunk> chunk;
  const uint64_t now = NowMs();
  const int wait = deadline_ms > now ? static_cast<int>(deadline_ms - now) : 0;
  const platform::SerialResult r = port_.Read(chunk.data(), chunk.size(), wait);
  if (r.status == platform::SerialStatus::kTimeout) return Arrival::kSilence;
  if (r.status == platform::SerialStatus::kGone) return Arrival::kGone;
  std::vector<ReceivedLine> ended;
  splitter_.Feed(std::string_view(chunk.data(), r.bytes), ended);
  for (ReceivedLine& line : ended) {
    if (Tracing()) ConsolePrintf("[SerRecv %s]\n", VisibleText(line.text, false).c_str());
    lines_.push_back(std::move(line));
  }
  return Arrival::kData;
}

bool ControllerLine::NextLine(ReceivedLine* line) {
  if (lines_.empty()) return false;
  *line = std::move(lines_.front());
  lines_.pop_front();
  return true;
}

ResultCode ControllerLine::AwaitAnswer(std::string_view command, int timeout_ms,
                                       ParsedLine* answer) {
  const uint64_t deadline = NowMs() + static_cast<uint64_t>(timeout_ms);
  while (true) {
    ReceivedLine line;
    while (NextLine(&line)) {
      if (!line.text.starts_with('$')) continue;  // not the protocol's: noise
      ParsedLine parsed = ParseReceived(line, true);
      if (parsed.fault != LineFault::kNone) return kErrIntegrity;
      if (parsed.Command() == "ERR") return kErrMsgIo;
      if (parsed.Command() == command) {
        *answer = std::move(parsed);
        return kOk;
      }
    }
    if (WaitForBytes(deadline) != Arrival::kData) return kErrReceive;
  }
}

}  // namespace kel
