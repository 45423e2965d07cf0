#include "sim/measurement_stream.h"

#include <algorithm>

namespace kel::sim {

void MeasurementStreams::Request(uint64_t serial, size_t slot, uint32_t interval_ms,
                                 uint64_t now_ms) {
  const auto same = [slot](const Stream& s) { return s.slot == slot; };
  std::erase_if(streams_, same);
  if (interval_ms == 0) return;
  streams_.push_back(Stream{serial, slot, interval_ms, now_ms + interval_ms});
}

uint64_t MeasurementStreams::NextDueMs() const {
  uint64_t due = streams_.front().next_due_ms;
  for (const Stream& s : streams_) due = std::min(due, s.next_due_ms);
  return due;
}

}  // namespace kel::sim
