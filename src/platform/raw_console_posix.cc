// The full-screen console on a terminal: termios raw mode, the alternate screen, and the
// way back from signals.

#include <poll.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "platform/clock.h"
#include "platform/console.h"
#include "platform/interrupt.h"

namespace kel::platform {
namespace {

constexpr char kEnterScreen[] = "\x1b[?1049h\x1b[?25l";  // alternate screen, cursor hidden
constexpr char kLeaveScreen[] = "\x1b[?25h\x1b[?1049l";
constexpr std::array<int, 4> kEndingSignals{SIGINT, SIGTERM, SIGHUP, SIGQUIT};
// The rest of an escape sequence follows its escape at once; a lone escape is the key.
constexpr int kSequenceWaitMs = 30;

// What the signal handler needs to give the terminal back: one raw console at a time.
termios g_saved{};
volatile sig_atomic_t g_raw = 0;

void WriteAll(const char* text, size_t size) {
  while (size > 0) {
    const ssize_t n = write(STDOUT_FILENO, text, size);
    if (n <= 0) return;
    text += n;
    size -= static_cast<size_t>(n);
  }
}

// Only async-signal-safe calls: it runs in the signal handler too.
void RestoreTerminal() {
  tcsetattr(STDIN_FILENO, TCSANOW, &g_saved);
  WriteAll(kLeaveScreen, sizeof kLeaveScreen - 1);
}

void OnEndingSignal(int signal) {
  if (g_raw != 0) {
    RestoreTerminal();
    g_raw = 0;
  }
  // Then end as the signal would have ended the process.
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  sigemptyset(&action.sa_mask);
  sigaction(signal, &action, nullptr);
  raise(signal);
}

}  // namespace

struct RawConsole::State {
  std::array<struct sigaction, kEndingSignals.size()> previous{};
  std::string pending;  // bytes read and not yet decoded
};

bool StdoutIsTerminal() { return isatty(STDOUT_FILENO) == 1; }

RawConsole::RawConsole() {
  if (g_raw != 0 || !StdinIsTerminal() || !StdoutIsTerminal()) return;
  termios saved{};
  if (tcgetattr(STDIN_FILENO, &saved) != 0) return;
  termios raw = saved;
  raw.c_lflag &= static_cast<tcflag_t>(~(ICANON | ECHO | ISIG | IEXTEN));
  raw.c_iflag &= static_cast<tcflag_t>(~(IXON | ICRNL));
  raw.c_cc[VMIN] = 0;
  raw.c_cc[VTIME] = 0;

  auto state = std::make_unique<State>();
  g_saved = saved;
  g_raw = 1;
  // The handlers come first, so that no moment is left without a way back. Only signals
  // that would end the process at once get one: a signal the process ignores stays
  // ignored, and one it takes as an interrupt request stays with that (ReadKey turns the
  // request into kInterrupt, and the console goes back the usual way).
  for (size_t i = 0; i < kEndingSignals.size(); ++i) {
    struct sigaction action {};
    sigaction(kEndingSignals[i], nullptr, &state->previous[i]);
    if (state->previous[i].sa_handler != SIG_DFL) continue;
    action.sa_handler = OnEndingSignal;
    sigemptyset(&action.sa_mask);
    sigaction(kEndingSignals[i], &action, nullptr);
  }
  if (tcsetattr(STDIN_FILENO, TCSANOW, &raw) != 0) {
    g_raw = 0;
    for (size_t i = 0; i < kEndingSignals.size(); ++i) {
      sigaction(kEndingSignals[i], &state->previous[i], nullptr);
    }
    return;
  }
  std::fflush(stdout);
  WriteAll(kEnterScreen, sizeof kEnterScreen - 1);
  state_ = std::move(state);
}

RawConsole::~RawConsole() {
  if (!state_) return;
  std::fflush(stdout);
  RestoreTerminal();
  g_raw = 0;
  for (size_t i = 0; i < kEndingSignals.size(); ++i) {
    sigaction(kEndingSignals[i], &state_->previous[i], nullptr);
  }
}

Key RawConsole::ReadKey(int timeout_ms) {
  if (!state_) return {};
  std::string& pending = state_->pending;
  const uint64_t deadline = MonotonicMs() + static_cast<uint64_t>(timeout_ms > 0 ? timeout_ms : 0);
  while (true) {
    if (InterruptRequested()) return {KeyCode::kInterrupt};
    size_t used = 0;
    Key key = DecodeKey(pending, true, &used);
    if (used > 0) {
      pending.erase(0, used);
      if (key.code != KeyCode::kNone) return key;
      continue;
    }
    const uint64_t now = MonotonicMs();
    int wait = now < deadline ? static_cast<int>(deadline - now) : 0;
    if (!pending.empty()) wait = kSequenceWaitMs;
    pollfd p{STDIN_FILENO, POLLIN, 0};
    const int ready = poll(&p, 1, wait);
    if (ready > 0) {
      char buffer[64];
      const ssize_t n = read(STDIN_FILENO, buffer, sizeof buffer);
      if (n < 0 && errno == EINTR) continue;
      // The terminal went away: that ends whatever waits for keys.
      if (n <= 0) return {KeyCode::kEscape};
      pending.append(buffer, static_cast<size_t>(n));
      continue;
    }
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0) return {KeyCode::kEscape};
    if (!pending.empty()) {
      key = DecodeKey(pending, false, &used);
      pending.erase(0, used);
      if (key.code != KeyCode::kNone) return key;
      continue;
    }
    if (MonotonicMs() >= deadline) return {};
  }
}

}  // namespace kel::platform
