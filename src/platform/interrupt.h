#pragma once

#include <cstdint>

namespace kel::platform {

/// While alive, the requests to stop (Ctrl-C at a terminal, SIGINT, SIGTERM and SIGHUP on
/// Linux; Ctrl+C, Ctrl+Break and the console's close on Windows) no longer end the process
/// at once: each sets the process-wide interrupt request, which long-running loops poll
/// (InterruptRequested) to stop cleanly. What follows is the caller's choice: ending the
/// program as the request asked (EndByInterrupt), or clearing the request and going on.
/// One instance lives in the program's main; without one, the requests act as the system
/// defaults say.
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

/// True when the request is the terminal's Ctrl-C (SIGINT on Linux, Ctrl+C on Windows)
/// and nothing stronger came with it: a person at the prompt asking to stop the command in
/// hand. Any other request (SIGTERM, a hang-up, the console's close) asks the program to
/// end, and takes precedence over a Ctrl-C that came before or after it.
bool InterruptFromKeyboard();

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
