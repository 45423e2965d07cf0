// The remote trace: the board copies the traffic of its other connections to this one,
// and each frame is printed as a trace line when the pattern finds it.

#include <regex>
#include <string>

#include "core/console.h"
#include "device/command_codes.h"
#include "device/frame_text.h"
#include "monitor/monitor_command.h"
#include "monitor/views.h"

namespace kel {
namespace {

constexpr const char* kTitle = "Tracing zousbsocket%s (key to stop)\n";
constexpr const char* kResult = "%u of %u frames shown\r\n";
// How long the board has to confirm that the trace ended; what it sent before its answer
// is still traced.
constexpr uint64_t kStopLimitMs = 1000;

// The board's answer to INTERNAL 7 with value3 `on`.
bool IsTraceAnswer(const uint8_t* frame, uint32_t on) {
  return FrameWord(frame, 0) == code::kInternal && FrameWord(frame, 2) == internal::kStartTrace &&
         FrameWord(frame, 3) == on;
}

// The lines of a trace: counts them and shows the ones the pattern finds.
class TraceLines {
 public:
  TraceLines(const std::optional<std::regex>& pattern, ConsoleRows& rows)
      : pattern_(pattern), rows_(rows) {}

  void Take(const uint8_t* frame) {
    if (!started_ && IsTraceAnswer(frame, 1)) {
      started_ = true;  // the answer to this connection's own start: not traced traffic
      return;
    }
    ++traced_;
    std::string line = TraceText(frame);
    if (pattern_ && !std::regex_search(line, *pattern_)) return;
    ++shown_;
    line += '\n';
    rows_.Append(line);
  }

  uint32_t traced() const { return traced_; }
  uint32_t shown() const { return shown_; }

 private:
  const std::optional<std::regex>& pattern_;
  ConsoleRows& rows_;
  bool started_ = false;
  uint32_t traced_ = 0;
  uint32_t shown_ = 0;
};

// Ends the board's trace and traces what it sent before its answer. False when the link
// broke meanwhile.
bool StopTrace(DeviceLink& link, TraceLines& lines) {
  if (!link.SendCommand(code::kInternal, 0, internal::kStartTrace, 0)) return !link.Broken();
  FrameBytes frame{};
  const uint64_t start = NowMs();
  for (uint64_t spent = 0; spent < kStopLimitMs; spent = NowMs() - start) {
    if (!link.ReceiveFrame(frame.data(), static_cast<int>(kStopLimitMs - spent))) break;
    if (IsTraceAnswer(frame.data(), 0)) return true;
    lines.Take(frame.data());
  }
  return !link.Broken();
}

}  // namespace

ResultCode HandleTrace(const CommandEntry& entry, std::string_view& rest, Output& out) {
  const std::optional<TraceArgs> args = ParseTraceArgs(rest);
  if (!args) return FormatResult(&entry, kErrBadArgs, out);
  std::optional<std::regex> pattern;
  if (!args->pattern.empty()) {
    auto flags = std::regex::extended | std::regex::nosubs;
    if (args->ignore_case) flags |= std::regex::icase;
    try {
      pattern.emplace(args->pattern, flags);
    } catch (const std::regex_error&) {
      return FormatResult(&entry, kErrBadArgs, out);
    }
  }
  DeviceLink& link = Device();
  if (!link.SendCommand(code::kInternal, 0, internal::kStartTrace, 1)) {
    return FormatResult(&entry, kErrMsgIo, out);
  }
  ConsolePrintf(kTitle, ForDurationText(args->duration_ms).c_str());
  ConsoleRows rows;
  TraceLines lines(pattern, rows);
  LiveEnd end = RunLive(
      link, rows, LiveTiming{args->duration_ms, 0},
      [&lines](const uint8_t* frame, uint32_t) { lines.Take(frame); }, NoTick);
  if (end != LiveEnd::kClosed && !StopTrace(link, lines)) end = LiveEnd::kClosed;
  rows.Flush();
  const size_t before = out.Length();
  out.Printf(kResult, lines.shown(), lines.traced());
  return FinishView(entry, end, before, out);
}

}  // namespace kel
