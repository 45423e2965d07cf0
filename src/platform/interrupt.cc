#include "platform/interrupt.h"

#include <algorithm>

#include "platform/clock.h"

namespace kel::platform {
namespace {

// How often a sleep looks for an interrupt request.
constexpr uint32_t kSleepSliceMs = 20;

}  // namespace

bool SleepUnlessInterrupted(uint32_t ms) {
  const uint64_t end = MonotonicMs() + ms;
  while (!InterruptRequested()) {
    const uint64_t now = MonotonicMs();
    if (now >= end) return true;
    SleepMs(static_cast<uint32_t>(std::min<uint64_t>(end - now, kSleepSliceMs)));
  }
  return false;
}

}  // namespace kel::platform
