#pragma once

#include <cstdint>

namespace kel::platform {

/// While alive, the requests to stop (Ctrl-C at a terminal, SIGINT and SIGTERM on Linux;
/// Ctrl+C, Ctrl+Break and the console's close on Windows) no longer end the process at
/// once: each sets the process-wide interrupt request, which long-running loops poll
/// (InterruptRequested) to stop cleanly. What follows is the caller's choice: ending the
/// program as the request asked (EndByInterrupt), or clearing the request and going on.
/// One instance lives in the program's main.
class InterruptRequests {
 public:
  InterruptRequests();
  ~InterruptRequests();
  InterruptRequests(const InterruptRequests&) = delete;
  InterruptRequests& operator=(const InterruptRequests&) = delete;
};

/// True once a request to stop has arrived (and has not been cleared). Cheap enough for
/// every pass of a loop; safe from any thread.
bool InterruptRequested();

/// Forgets the request, so that the next command runs as usual.
void ClearInterrupt();

/// Ends the process the way the first request asked: on Linux by that signal with its
/// default action (a parent sees the process ended by SIGINT or SIGTERM), on Windows with
/// the exit code 0xC000013A. Output is flushed first.
[[noreturn]] void EndByInterrupt();

/// Sleeps `ms` milliseconds, or less when an interrupt request arrives meanwhile (it is
/// noticed within a few milliseconds). False when it was cut short.
bool SleepUnlessInterrupted(uint32_t ms);

}  // namespace kel::platform
