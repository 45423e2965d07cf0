#include <windows.h>

#include <cstdio>

#include "platform/signals.h"

namespace kel::platform {
namespace {

// What the default handler ends a process with on Ctrl-C.
constexpr UINT kControlCExit = 0xC000013A;

volatile LONG g_held = 0;

// Runs on a thread of its own; the console's close is left to the default.
BOOL WINAPI OnHeldControl(DWORD type) {
  if (type != CTRL_C_EVENT && type != CTRL_BREAK_EVENT) return FALSE;
  InterlockedExchange(&g_held, 1);
  return TRUE;
}

}  // namespace

struct HeldInterrupt::Saved {};

HeldInterrupt::HeldInterrupt() {
  InterlockedExchange(&g_held, 0);
  SetConsoleCtrlHandler(OnHeldControl, TRUE);
}

HeldInterrupt::~HeldInterrupt() {
  SetConsoleCtrlHandler(OnHeldControl, FALSE);
  if (InterlockedExchange(&g_held, 0) != 0) {
    std::fflush(nullptr);
    ExitProcess(kControlCExit);
  }
}

bool HeldInterrupt::Requested() const { return g_held != 0; }

}  // namespace kel::platform
