#include <time.h>

#include <thread>

#include "platform/clock.h"

namespace kel::platform {

void SleepMs(uint32_t ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

WallTime WallNow() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
  return WallTime{static_cast<int64_t>(ms / 1000), static_cast<int>(ms % 1000)};
}

LocalTime ToLocalTime(const WallTime& wall) {
  const time_t secs = static_cast<time_t>(wall.seconds);
  tm parts{};
  localtime_s(&parts, &secs);
  return LocalTime{parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday,    parts.tm_hour,
                   parts.tm_min,         parts.tm_sec,     wall.milliseconds};
}

}  // namespace kel::platform
