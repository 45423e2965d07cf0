#pragma once

#include <chrono>
#include <cstdint>

namespace kel::platform {

/// Milliseconds of a monotonic clock; only differences between readings mean anything.
inline uint64_t MonotonicMs() {
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                   std::chrono::steady_clock::now().time_since_epoch())
                                   .count());
}

/// Nanoseconds of the same monotonic clock, for time stamps finer than a millisecond.
inline uint64_t MonotonicNs() {
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                   std::chrono::steady_clock::now().time_since_epoch())
                                   .count());
}

/// Suspends the calling thread for `ms` milliseconds.
void SleepMs(uint32_t ms);

/// Wall-clock local time, broken down; used only for log time stamps.
struct LocalTime {
  int year = 0;   ///< four digits
  int month = 0;  ///< 1-12
  int day = 0;    ///< 1-31
  int hour = 0;
  int minute = 0;
  int second = 0;
  int millisecond = 0;
};

/// Wall-clock time as whole seconds since the epoch plus milliseconds.
struct WallTime {
  int64_t seconds = 0;
  int milliseconds = 0;
};

WallTime WallNow();

/// Breaks a wall time down into local time.
LocalTime ToLocalTime(const WallTime& wall);

}  // namespace kel::platform
