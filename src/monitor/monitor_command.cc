#include "monitor/monitor_command.h"

#include <array>
#include <cstdio>
#include <string>

#include "monitor/views.h"

namespace kel {
namespace {

PinNameFunction& PinNames() {
  static PinNameFunction name_of = nullptr;
  return name_of;
}

// The message bits, for a program that wired in no names.
std::string_view BitName(int pin) {
  static constexpr std::array<std::string_view, 15> kNames{"???", "b1",  "b2",  "b3",  "b4",
                                                           "b5",  "b6",  "b7",  "b8",  "b9",
                                                           "b10", "b11", "b12", "b13", "b14"};
  return pin >= 0 && pin < 15 ? kNames[static_cast<size_t>(pin)] : "???";
}

}  // namespace

void SetOutputPinNames(PinNameFunction name_of) { PinNames() = name_of; }

std::string_view OutputPinName(int pin) {
  return PinNames() != nullptr ? PinNames()(pin) : BitName(pin);
}

std::string ForDurationText(const std::optional<uint32_t>& duration_ms) {
  if (!duration_ms) return "";
  char text[32];
  if (*duration_ms % 1000 == 0) {
    std::snprintf(text, sizeof text, " for %u s", *duration_ms / 1000);
  } else {
    std::snprintf(text, sizeof text, " for %u ms", *duration_ms);
  }
  return text;
}

uint32_t ElapsedSince(uint64_t start_ms) { return static_cast<uint32_t>(NowMs() - start_ms); }

ResultCode FinishView(const CommandEntry& entry, LiveEnd end, size_t start, Output& out) {
  if (end == LiveEnd::kClosed) return FormatResult(&entry, kErrReceive, out);
  if (end == LiveEnd::kFailed) return FormatResult(&entry, kErrMsgIo, out);
  if (end == LiveEnd::kStopped) return FormatResult(&entry, kUserTermination, out);
  return static_cast<ResultCode>(out.Length() - start);
}

ResultCode HandleMonitor(const CommandEntry& entry, std::string_view& rest, Output& out) {
  const std::optional<MonitorArgs> args = ParseMonitorArgs(rest);
  if (!args) return FormatResult(&entry, kErrBadArgs, out);
  switch (args->mode) {
    case MonitorMode::kCan: return RunCanView(entry, *args, out);
    case MonitorMode::kIds: return RunIdsView(entry, *args, out);
    case MonitorMode::kCurrents: return RunCurrentsView(entry, *args, out);
    case MonitorMode::kOutputs: return RunOutputsView(entry, *args, out);
  }
  return FormatResult(&entry, kErrBadArgs, out);
}

}  // namespace kel
