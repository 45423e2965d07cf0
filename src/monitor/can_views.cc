// The CAN views of `mon`: every frame as a row (can), or one line per identifier (ids).

#include <cstdio>
#include <string>
#include <vector>

#include "config/settings.h"
#include "core/console.h"
#include "device/command_codes.h"
#include "device/frame_text.h"
#include "monitor/id_table.h"
#include "monitor/views.h"
#include "platform/console.h"

namespace kel {
namespace {

constexpr const char* kTitle = "Monitoring CAN%d%s%s%s (key to stop)\n";
constexpr const char* kCanHeader = "   time ms Type Ch ID       DLC Data\n";
constexpr const char* kCanRow = "%10u %s %3u %08X %-3u %s\n";
constexpr const char* kCommandRow = "%10u CMD     0x%08X %s 0x%08X 0x%08X 0x%08X\n";
constexpr const char* kOthersRow = "(%llu frames of further identifiers)\n";
constexpr const char* kResult = "%u frames, %u commands in %u ms\r\n";
// A terminal's table is redrawn this often unless the interval says otherwise.
constexpr uint32_t kRedrawMs = 200;
// Redrawn rows are padded to this width, so that a shorter row covers a longer one.
constexpr size_t kRedrawWidth = 79;

void PrintTitle(const char* mode, const MonitorArgs& args) {
  char filter[40] = "";
  if (args.filter) {
    std::snprintf(filter, sizeof filter, " filter %X:%X", args.filter->id, args.filter->mask);
  }
  ConsolePrintf(kTitle, CurrentSettings().device_channel, mode, filter,
                ForDurationText(args.duration_ms).c_str());
}

// The frames a CAN view shows and counts: command frames only without a filter, CAN frames
// when they pass it.
struct Counts {
  uint32_t frames = 0;
  uint32_t commands = 0;
};

// Writes the identifier table: at a terminal over the one drawn before (`drawn` lines).
void DrawTable(const IdTable& table, bool in_place, unsigned& drawn, ConsoleRows& rows) {
  if (in_place) {
    rows.Flush();
    platform::MoveCursorUp(drawn);
  }
  std::vector<std::string> lines;
  for (const IdRow* row : table.Sorted()) lines.push_back(IdRowText(*row));
  if (table.Others() != 0) {
    char text[64];
    std::snprintf(text, sizeof text, kOthersRow, static_cast<unsigned long long>(table.Others()));
    lines.emplace_back(text);
  }
  for (std::string& line : lines) {
    if (in_place && line.size() <= kRedrawWidth)
      line.insert(line.size() - 1, kRedrawWidth + 1 - line.size(), ' ');
    rows.Append(line);
  }
  drawn = static_cast<unsigned>(lines.size());
  rows.Flush();
}

}  // namespace

ResultCode RunCanView(const CommandEntry& entry, const MonitorArgs& args, Output& out) {
  PrintTitle("", args);
  ConsoleRows rows;
  rows.Append(kCanHeader);
  Counts counts;
  const uint64_t start = NowMs();
  const LiveEnd end = RunLive(
      Device(), rows, LiveTiming{args.duration_ms, 0},
      [&](const uint8_t* f, uint32_t ms) {
        const uint32_t first = FrameWord(f, 0);
        if (IsCommandFrame(f)) {
          if (args.filter) return;
          ++counts.commands;
          rows.Printf(kCommandRow, ms, first, CommandCodeName(first), FrameWord(f, 1),
                      FrameWord(f, 2), FrameWord(f, 3));
          return;
        }
        if (args.filter && !args.filter->Passes(first)) return;
        ++counts.frames;
        const MonitorColumns c = MonitorColumnsOf(f);
        rows.Printf(kCanRow, ms, c.type.c_str(), c.channel, first, c.dlc, c.data.c_str());
      },
      NoTick);
  rows.Flush();
  const size_t before = out.Length();
  out.Printf(kResult, counts.frames, counts.commands, ElapsedSince(start));
  return FinishView(entry, end, before, out);
}

ResultCode RunIdsView(const CommandEntry& entry, const MonitorArgs& args, Output& out) {
  PrintTitle(" ids", args);
  const bool in_place = platform::StdoutIsTerminal();
  ConsoleRows rows;
  rows.Append(kIdTableHeader);
  IdTable table;
  Counts counts;
  unsigned drawn = 0;
  const uint64_t start = NowMs();
  const LiveEnd end = RunLive(
      Device(), rows,
      LiveTiming{args.duration_ms, in_place ? args.interval_ms.value_or(kRedrawMs) : 0},
      [&](const uint8_t* f, uint32_t ms) {
        if (IsCommandFrame(f)) {
          if (!args.filter) ++counts.commands;
          return;
        }
        if (args.filter && !args.filter->Passes(FrameWord(f, 0))) return;
        ++counts.frames;
        table.Fold(f, ms);
      },
      [&](uint32_t /*elapsed_ms*/) {
        DrawTable(table, in_place, drawn, rows);
        return true;
      });
  DrawTable(table, in_place, drawn, rows);
  const size_t before = out.Length();
  out.Printf(kResult, counts.frames, counts.commands, ElapsedSince(start));
  return FinishView(entry, end, before, out);
}

}  // namespace kel
