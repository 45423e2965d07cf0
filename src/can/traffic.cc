#include "can/traffic.h"

#include "core/console.h"
#include "core/parse.h"

namespace kel {
namespace {

constexpr uint64_t kProgressPeriodMs = 1000;

}  // namespace

ProgressLine::ProgressLine(const char* format, uint32_t total)
    : format_(format), total_(total), last_ms_(NowMs()) {}

void ProgressLine::UpdateNow(uint32_t done, bool defer) {
  // The clock is read only once a line has been printed: until then every repetition prints.
  if (last_count_ != 0 && (defer || NowMs() - last_ms_ < kProgressPeriodMs)) return;
  ConsolePrintf(format_, done, total_, done - last_count_);
  last_count_ = done;
  last_ms_ = NowMs();
}

}  // namespace kel
