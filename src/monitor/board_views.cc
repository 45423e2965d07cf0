// The board views of `mon`: measurement rows streamed by the board (curr), and the output
// states polled, a row per change (out).

#include <string>

#include "core/console.h"
#include "device/command_codes.h"
#include "device/measurement_frames.h"
#include "monitor/views.h"

namespace kel {
namespace {

constexpr uint32_t kDefaultIntervalMs = 100;
// After the board is told to stop reporting, what it sent before is read off the link until
// it has been quiet this long (at most kDrainLimitMs), so that the next command of the line
// does not meet it.
constexpr int kDrainQuietMs = 50;
constexpr uint64_t kDrainLimitMs = 500;

constexpr const char* kCurrentsTitle = "Monitoring currents every %u ms%s (key to stop)\n";
constexpr const char* kCurrentsHeader =
    "   time ms    I1    I2    I3    I4    I5    I6    I7    I8    I9 |    V1    V2    V3\n";
constexpr const char* kCurrentsRow = "%10u %5u %5u %5u %5u %5u %5u %5u %5u %5u | %5u %5u %5u\n";
constexpr const char* kCurrentsResult = "%u measurements in %u ms\r\n";
constexpr const char* kOutputsTitle = "Monitoring outputs every %u ms%s (key to stop)\n";
constexpr const char* kOutputsRow = "%10u Output bits (0x%04X):%s\n";
constexpr const char* kOutputsResult = "%u changes in %u ms\r\n";

void DrainQuiet(DeviceLink& link) {
  FrameBytes frame{};
  const uint64_t start = NowMs();
  while (NowMs() - start < kDrainLimitMs && link.ReceiveFrame(frame.data(), kDrainQuietMs)) {
  }
}

// " +D9 -CAN1": the pins of `changed`, each with its new state.
std::string ChangesText(uint16_t state, uint16_t changed) {
  std::string text;
  for (int pin = 1; pin <= 14; ++pin) {
    if ((changed & (1U << pin)) == 0) continue;
    text += (state & (1U << pin)) != 0 ? " +" : " -";
    text += OutputPinName(pin);
  }
  return text;
}

}  // namespace

ResultCode RunCurrentsView(const CommandEntry& entry, const MonitorArgs& args, Output& out) {
  const uint32_t interval = args.interval_ms.value_or(kDefaultIntervalMs);
  DeviceLink& link = Device();
  // Fire and forget: the board answers with sets from now on.
  if (!link.SendCommand(code::kGetMeas, interval, 0, 0))
    return FormatResult(&entry, kErrMsgIo, out);
  ConsolePrintf(kCurrentsTitle, interval, ForDurationText(args.duration_ms).c_str());
  ConsoleRows rows;
  rows.Append(kCurrentsHeader);
  MeasurementCollector collector;
  uint32_t sets = 0;
  const uint64_t start = NowMs();
  const LiveEnd end = RunLive(
      link, rows, LiveTiming{args.duration_ms, 0},
      [&](const uint8_t* f, uint32_t ms) {
        if (!collector.Take(f) || !collector.Complete()) return;
        const MeasurementSet& s = collector.Set();
        const auto& i = s.currents_ma;
        const auto& v = s.rails_mv;
        rows.Printf(kCurrentsRow, ms, i[0], i[1], i[2], i[3], i[4], i[5], i[6], i[7], i[8], v[0],
                    v[1], v[2]);
        ++sets;
        collector.Restart();
      },
      NoTick);
  rows.Flush();
  const uint32_t elapsed = ElapsedSince(start);
  if (end != LiveEnd::kClosed && link.SendCommand(code::kGetMeas, 0, 0, 0)) DrainQuiet(link);
  const size_t before = out.Length();
  out.Printf(kCurrentsResult, sets, elapsed);
  return FinishView(entry, end, before, out);
}

ResultCode RunOutputsView(const CommandEntry& entry, const MonitorArgs& args, Output& out) {
  const uint32_t interval = args.interval_ms.value_or(kDefaultIntervalMs);
  ConsolePrintf(kOutputsTitle, interval, ForDurationText(args.duration_ms).c_str());
  DeviceLink& link = Device();
  ConsoleRows rows;
  bool first = true;
  uint16_t last = 0;
  uint32_t changes = 0;
  const uint64_t start = NowMs();
  LiveEnd end = RunLive(
      link, rows, LiveTiming{args.duration_ms, interval}, [](const uint8_t*, uint32_t) {},
      [&](uint32_t ms) {
        FrameBytes answer{};
        if (!link.Transact(answer.data(), 0, code::kOutputs, code::kOutputs, 0, 0, 0)) {
          return false;
        }
        const auto state = static_cast<uint16_t>(FrameWord(answer.data(), 1) >> 16);
        if (first || state != last) {
          const uint16_t changed = first ? state : static_cast<uint16_t>(state ^ last);
          rows.Printf(kOutputsRow, ms, state, ChangesText(state, changed).c_str());
          if (!first) ++changes;
          first = false;
          last = state;
        }
        return true;
      });
  rows.Flush();
  if (end == LiveEnd::kFailed && link.Broken()) end = LiveEnd::kClosed;
  const size_t before = out.Length();
  out.Printf(kOutputsResult, changes, ElapsedSince(start));
  return FinishView(entry, end, before, out);
}

}  // namespace kel
