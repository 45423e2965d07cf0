#include "board/measurement.h"

#include <string>

#include "board/pins.h"
#include "core/console.h"
#include "core/parse.h"

namespace kel {
namespace {

constexpr size_t kPinWordSize = 1024;
constexpr uint64_t kReportMs = 5000;
constexpr int kReceiveSliceMs = 1000;
// Bits 1-9 of a pin mask: the output pins whose current the board measures.
constexpr uint16_t kMeasuredPins = 0x03FE;

constexpr const char* kCurrentsTitle = "Currents:\n";
constexpr const char* kCurrentLine = "%-20s = %5u mA\n";
constexpr const char* kVoltagesTitle = "Voltages:\n";
constexpr const char* kVoltageLine = "%-20s = %5u mV\n";
constexpr const char* kRailNames[] = {"12V rail", "5V rail", "3.3V rail"};

}  // namespace

bool ReadMeasurementSet(DeviceLink& link, MeasurementSet& set) {
  if (!link.SendCommand(code::kGetMeas, 0, 0, 0)) return false;
  MeasurementCollector collector;
  FrameBytes frame{};
  const uint64_t start = NowMs();
  while (!collector.Complete()) {
    if (link.ReceiveFrame(frame.data(), kReceiveSliceMs)) {
      collector.Take(frame.data());
    } else {
      if (link.Broken()) return false;
      ConsoleWrite(".");
    }
    if (!collector.Complete() && NowMs() - start >= kReportMs) return false;
  }
  set = collector.Set();
  return true;
}

ResultCode HandleCurrent(const CommandEntry& entry, std::string_view& rest, Output& out) {
  std::string word = SplitWord(rest, kWordSeparators, kPinWordSize);
  std::erase(word, '"');
  const uint16_t pins = word.empty() ? kMeasuredPins : ParsePinList(word) & kMeasuredPins;
  if (pins == 0) return FormatResult(&entry, kErrBadIo, out);
  MeasurementSet set;
  if (!ReadMeasurementSet(Device(), set)) return FormatResult(&entry, kErrMsgIo, out);
  const size_t start = out.Length();
  out.Append(kCurrentsTitle);
  for (int pin = 1; pin <= 9; ++pin) {
    if ((pins & (1U << pin)) == 0) continue;
    const std::string name(PinName(pin, false, false));
    out.Printf(kCurrentLine, name.c_str(), set.currents_ma[static_cast<size_t>(pin - 1)]);
  }
  out.Append(kVoltagesTitle);
  for (size_t rail = 0; rail < set.rails_mv.size(); ++rail) {
    out.Printf(kVoltageLine, kRailNames[rail], set.rails_mv[rail]);
  }
  return static_cast<ResultCode>(out.Length() - start);
}

}  // namespace kel
