#include <windows.h>

#include <atomic>
#include <cstdio>

#include "platform/interrupt.h"

namespace kel::platform {
namespace {

enum Request : int { kNone, kKeyboard, kEnd };

// The console's control handler runs on a thread of its own and only sets the request; a
// request to end outranks Ctrl+C.
std::atomic<int> g_request{kNone};

BOOL WINAPI OnControl(DWORD type) {
  switch (type) {
    case CTRL_C_EVENT: {
      int none = kNone;
      g_request.compare_exchange_strong(none, kKeyboard);
      return TRUE;
    }
    case CTRL_BREAK_EVENT:
    case CTRL_CLOSE_EVENT: g_request = kEnd; return TRUE;
    default: return FALSE;
  }
}

}  // namespace

InterruptRequests::InterruptRequests() { SetConsoleCtrlHandler(OnControl, TRUE); }

InterruptRequests::~InterruptRequests() { SetConsoleCtrlHandler(OnControl, FALSE); }

bool InterruptRequested() { return g_request.load(std::memory_order_relaxed) != kNone; }

bool InterruptFromKeyboard() { return g_request.load() == kKeyboard; }

void ClearInterrupt() { g_request = kNone; }

void EndByInterrupt() {
  std::fflush(stdout);
  std::fflush(stderr);
  ExitProcess(0xC000013A);
}

}  // namespace kel::platform
