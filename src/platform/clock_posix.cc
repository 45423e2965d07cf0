#include <time.h>

#include <thread>

#include "platform/clock.h"

namespace kel::platform {

void SleepMs(uint32_t ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

WallTime WallNow() {
  timespec ts{};
  clock_gettime(CLOCK_REALTIME, &ts);
  return WallTime{static_cast<int64_t>(ts.tv_sec), static_cast<int>(ts.tv_nsec / 1000000)};
}

LocalTime ToLocalTime(const WallTime& wall) {
  const time_t secs = static_cast<time_t>(wall.seconds);
  tm parts{};
  localtime_r(&secs, &parts);
  return LocalTime{parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday,    parts.tm_hour,
                   parts.tm_min,         parts.tm_sec,     wall.milliseconds};
}

}  // namespace kel::platform
