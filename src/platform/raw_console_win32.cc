// The full-screen console on a Windows console: its input modes, virtual-terminal output
// for the alternate screen, and the way back from Ctrl-Break and the console's close.

#include <io.h>
#include <windows.h>

#include <cstdio>

#include "platform/clock.h"
#include "platform/console.h"
#include "platform/interrupt.h"

#ifndef ENABLE_VIRTUAL_TERMINAL_PROCESSING
#define ENABLE_VIRTUAL_TERMINAL_PROCESSING 0x0004
#endif

namespace kel::platform {
namespace {

constexpr char kEnterScreen[] = "\x1b[?1049h\x1b[?25l";  // alternate screen, cursor hidden
constexpr char kLeaveScreen[] = "\x1b[?25h\x1b[?1049l";

// What the control handler needs to give the console back: one raw console at a time.
HANDLE g_in = nullptr;
HANDLE g_out = nullptr;
DWORD g_in_mode = 0;
DWORD g_out_mode = 0;
volatile LONG g_raw = 0;

void RestoreConsole() {
  DWORD written = 0;
  WriteFile(g_out, kLeaveScreen, sizeof kLeaveScreen - 1, &written, nullptr);
  SetConsoleMode(g_in, g_in_mode);
  SetConsoleMode(g_out, g_out_mode);
}

// Runs on a thread of its own; the process then ends as it would have.
BOOL WINAPI OnControl(DWORD /*type*/) {
  if (InterlockedExchange(&g_raw, 0) != 0) RestoreConsole();
  return FALSE;
}

}  // namespace

struct RawConsole::State {};

bool StdoutIsTerminal() { return _isatty(_fileno(stdout)) != 0; }

RawConsole::RawConsole() {
  const HANDLE in = GetStdHandle(STD_INPUT_HANDLE);
  const HANDLE out = GetStdHandle(STD_OUTPUT_HANDLE);
  DWORD in_mode = 0;
  DWORD out_mode = 0;
  if (g_raw != 0 || !GetConsoleMode(in, &in_mode) || !GetConsoleMode(out, &out_mode)) return;
  g_in = in;
  g_out = out;
  g_in_mode = in_mode;
  g_out_mode = out_mode;
  SetConsoleCtrlHandler(OnControl, TRUE);
  InterlockedExchange(&g_raw, 1);
  // Ctrl-C becomes a key: processed input would turn it into a signal.
  SetConsoleMode(in, in_mode & ~static_cast<DWORD>(ENABLE_LINE_INPUT | ENABLE_ECHO_INPUT |
                                                   ENABLE_PROCESSED_INPUT));
  SetConsoleMode(out, out_mode | ENABLE_PROCESSED_OUTPUT | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
  std::fflush(stdout);
  DWORD written = 0;
  WriteFile(out, kEnterScreen, sizeof kEnterScreen - 1, &written, nullptr);
  state_ = std::make_unique<State>();
}

RawConsole::~RawConsole() {
  if (!state_) return;
  std::fflush(stdout);
  if (InterlockedExchange(&g_raw, 0) != 0) RestoreConsole();
  SetConsoleCtrlHandler(OnControl, FALSE);
}

Key RawConsole::ReadKey(int timeout_ms) {
  if (!state_) return {};
  const uint64_t deadline = MonotonicMs() + static_cast<uint64_t>(timeout_ms > 0 ? timeout_ms : 0);
  while (true) {
    if (InterruptRequested()) return {KeyCode::kInterrupt};
    const uint64_t now = MonotonicMs();
    const DWORD wait = now < deadline ? static_cast<DWORD>(deadline - now) : 0;
    if (WaitForSingleObject(g_in, wait) != WAIT_OBJECT_0) return {};
    INPUT_RECORD record{};
    DWORD count = 0;
    if (!ReadConsoleInputA(g_in, &record, 1, &count)) return {KeyCode::kEscape};
    if (count == 0 || record.EventType != KEY_EVENT || !record.Event.KeyEvent.bKeyDown) {
      continue;
    }
    const KEY_EVENT_RECORD& k = record.Event.KeyEvent;
    switch (k.wVirtualKeyCode) {
      case VK_UP: return {KeyCode::kUp};
      case VK_DOWN: return {KeyCode::kDown};
      case VK_LEFT: return {KeyCode::kLeft};
      case VK_RIGHT: return {KeyCode::kRight};
      case VK_ESCAPE: return {KeyCode::kEscape};
      default: break;
    }
    const char c = k.uChar.AsciiChar;
    if (c == '\x03') return {KeyCode::kInterrupt};
    if (c != 0) return {KeyCode::kCharacter, c};
  }
}

}  // namespace kel::platform
