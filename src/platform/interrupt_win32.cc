#include <windows.h>

#include <atomic>
#include <cstdio>

#include "platform/interrupt.h"

namespace kel::platform {
namespace {

// The console's control handler runs on a thread of its own and only sets the request.
std::atomic<bool> g_request{false};

BOOL WINAPI OnControl(DWORD type) {
  switch (type) {
    case CTRL_C_EVENT:
    case CTRL_BREAK_EVENT:
    case CTRL_CLOSE_EVENT: g_request = true; return TRUE;
    default: return FALSE;
  }
}

}  // namespace

InterruptRequests::InterruptRequests() { SetConsoleCtrlHandler(OnControl, TRUE); }

InterruptRequests::~InterruptRequests() { SetConsoleCtrlHandler(OnControl, FALSE); }

bool InterruptRequested() { return g_request.load(std::memory_order_relaxed); }

void ClearInterrupt() { g_request = false; }

void EndByInterrupt() {
  std::fflush(stdout);
  std::fflush(stderr);
  ExitProcess(0xC000013A);
}

}  // namespace kel::platform
