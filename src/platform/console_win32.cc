#include <conio.h>
#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <cstdio>
#include <iostream>
#include <utility>

#include "platform/console.h"
#include "platform/interrupt.h"

namespace kel::platform {

namespace {

// A handler routine rather than ignoring Ctrl-C outright: the ignore flag would be
// inherited by the children, the routine is not.
BOOL WINAPI OnControl(DWORD type) { return type == CTRL_C_EVENT ? TRUE : FALSE; }

// How long a read that ended without a line waits for the Ctrl+C handler's request.
constexpr int kCtrlCWaitSlices = 10;
constexpr DWORD kCtrlCSliceMs = 10;

}  // namespace

InterruptShield::InterruptShield() { SetConsoleCtrlHandler(OnControl, TRUE); }

InterruptShield::~InterruptShield() { SetConsoleCtrlHandler(OnControl, FALSE); }

void UseBinaryStandardStreams() {
  _setmode(_fileno(stdout), _O_BINARY);
  _setmode(_fileno(stderr), _O_BINARY);
}

bool StdinIsTerminal() { return _isatty(_fileno(stdin)) != 0; }

void MoveCursorUp(unsigned lines) {
  const HANDLE out = GetStdHandle(STD_OUTPUT_HANDLE);
  CONSOLE_SCREEN_BUFFER_INFO info;
  if (!GetConsoleScreenBufferInfo(out, &info)) return;
  const SHORT up = static_cast<SHORT>(
      lines < static_cast<unsigned>(info.dwCursorPosition.Y) ? lines : info.dwCursorPosition.Y);
  const COORD to{0, static_cast<SHORT>(info.dwCursorPosition.Y - up)};
  SetConsoleCursorPosition(out, to);
}

bool KeyPressed() { return StdinIsTerminal() && _kbhit() != 0; }

void DiscardKeys() {
  if (!StdinIsTerminal()) return;
  while (_kbhit() != 0) _getch();
}

// A console shows no key until a line is read (_kbhit and _getch echo nothing).
struct QuietKeys::Saved {};

QuietKeys::QuietKeys() = default;

QuietKeys::~QuietKeys() = default;

void ClearScreen() {
  const HANDLE out = GetStdHandle(STD_OUTPUT_HANDLE);
  CONSOLE_SCREEN_BUFFER_INFO info;
  if (!GetConsoleScreenBufferInfo(out, &info)) return;
  const DWORD cells = static_cast<DWORD>(info.dwSize.X) * static_cast<DWORD>(info.dwSize.Y);
  DWORD written = 0;
  const COORD home{0, 0};
  FillConsoleOutputCharacterA(out, ' ', cells, home, &written);
  FillConsoleOutputAttribute(out, info.wAttributes, cells, home, &written);
  SetConsoleCursorPosition(out, home);
}

// At a Windows console the console's own line input serves: it edits the line and keeps
// its own history, so the completion words have no use here.
LineInput::LineInput(std::vector<std::string> completions) : completions_(std::move(completions)) {
  interactive_ = StdinIsTerminal() && StdoutIsTerminal();
}

LineInput::~LineInput() = default;

std::optional<std::string> LineInput::ReadLine(const char* prompt, size_t max_length) {
  std::fputs(prompt, stdout);
  std::fflush(stdout);
  std::string line;
  if (!std::getline(std::cin, line)) {
    // Ctrl+C ends the console's read as the end of input would; its handler runs on a
    // thread of its own, so the request may come a moment later.
    if (interactive_ && line.empty()) {
      for (int i = 0; i < kCtrlCWaitSlices && !InterruptRequested(); ++i) Sleep(kCtrlCSliceMs);
    }
    if (interactive_ && InterruptRequested() && InterruptFromKeyboard()) {
      ClearInterrupt();
      std::cin.clear();
      std::clearerr(stdin);  // the stream reads through stdio, whose end-of-file sticks
      std::fputs("^C\n", stdout);
      return std::string();
    }
    if (line.empty()) return std::nullopt;
  }
  if (!line.empty() && line.back() == '\r') line.pop_back();
  if (line.size() > max_length) line.resize(max_length);
  return line;
}

}  // namespace kel::platform
