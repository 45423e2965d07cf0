#include <editline/readline.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <strings.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/console.h"
#include "platform/interrupt.h"

namespace kel::platform {
namespace {

// True when this process may use the terminal on standard input: it is a terminal and
// this process is in its foreground. A job in the background would be stopped by the
// terminal for changing its settings or reading it, and the keys are not meant for it.
bool OwnsTerminal() { return isatty(STDIN_FILENO) == 1 && tcgetpgrp(STDIN_FILENO) == getpgrp(); }

bool InputReady() {
  pollfd p{STDIN_FILENO, POLLIN, 0};
  return poll(&p, 1, 0) > 0 && (p.revents & POLLIN) != 0;
}

// The words of the line input being read; readline's completion hooks take no context.
const std::vector<std::string>* g_completions = nullptr;

char* CompleteWord(const char* text, int state) {
  static size_t next = 0;
  if (state == 0) next = 0;
  if (g_completions == nullptr) return nullptr;
  const size_t length = strlen(text);
  while (next < g_completions->size()) {
    const std::string& word = (*g_completions)[next++];
    if (strncasecmp(word.c_str(), text, length) == 0) return strdup(word.c_str());
  }
  return nullptr;
}

// How often the line editor's wait for a key looks at the interrupt request: the signal
// may be taken by another thread, whose wait it cuts short instead.
constexpr int kKeyWaitSliceMs = 100;
// Set when Ctrl-C ended the line being edited.
bool g_line_dropped = false;

// The line editor's source of keys. Ctrl-C shows "^C" and ends the line as Enter would,
// the caller then dropping it; any other request to stop is the end of input.
int ReadEditKey(FILE*) {
  while (true) {
    if (InterruptRequested()) {
      if (!InterruptFromKeyboard()) return EOF;
      ClearInterrupt();
      g_line_dropped = true;
      fputs("^C", stdout);
      fflush(stdout);
      return '\n';
    }
    pollfd p{STDIN_FILENO, POLLIN, 0};
    const int ready = poll(&p, 1, kKeyWaitSliceMs);
    if (ready == 0 || (ready < 0 && errno == EINTR)) continue;
    unsigned char c = 0;
    const ssize_t n = read(STDIN_FILENO, &c, 1);
    if (n == 1) return c;
    if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    return EOF;
  }
}

// A handler rather than SIG_IGN: an ignored signal would stay ignored in the children.
void OnInterrupt(int) {}

// What SIGINT did before the shield: it comes back afterwards. Shields do not nest.
struct sigaction g_shielded {};

}  // namespace

InterruptShield::InterruptShield() {
  struct sigaction action {};
  action.sa_handler = OnInterrupt;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, &g_shielded);
}

InterruptShield::~InterruptShield() { sigaction(SIGINT, &g_shielded, nullptr); }

void UseBinaryStandardStreams() {}

bool StdinIsTerminal() { return isatty(STDIN_FILENO) == 1; }

void MoveCursorUp(unsigned lines) {
  if (lines > 0) printf("\x1b[%uA", lines);
  fputs("\r", stdout);
  fflush(stdout);
}

struct QuietKeys::Saved {
  termios settings{};
};

QuietKeys::QuietKeys() {
  termios settings{};
  if (!OwnsTerminal() || tcgetattr(STDIN_FILENO, &settings) != 0) return;
  termios quiet = settings;
  quiet.c_lflag &= static_cast<tcflag_t>(~(ICANON | ECHO));
  quiet.c_cc[VMIN] = 0;
  quiet.c_cc[VTIME] = 0;
  if (tcsetattr(STDIN_FILENO, TCSANOW, &quiet) != 0) return;
  saved_ = std::make_unique<Saved>(Saved{settings});
}

QuietKeys::~QuietKeys() {
  if (saved_) tcsetattr(STDIN_FILENO, TCSANOW, &saved_->settings);
}

bool KeyPressed() {
  if (!OwnsTerminal()) return false;
  const QuietKeys quiet;
  return InputReady();
}

void DiscardKeys() {
  if (!OwnsTerminal()) return;
  const QuietKeys quiet;
  char buf[64];
  while (InputReady() && read(STDIN_FILENO, buf, sizeof buf) > 0) {
  }
}

void ClearScreen() {
  fputs("\x1b[2J\x1b[H", stdout);
  fflush(stdout);
}

LineInput::LineInput(std::vector<std::string> completions) : completions_(std::move(completions)) {
  editing_ = StdinIsTerminal() && isatty(STDOUT_FILENO) == 1;
  interactive_ = editing_;
  if (!editing_) return;
  g_completions = &completions_;
  rl_completion_entry_function = CompleteWord;
  // The editor's own signal handling would pass Ctrl-C on to the whole process group; the
  // key source above takes it instead. Both are read when the editor starts (using_history).
  rl_catch_signals = 0;
  rl_getc_function = ReadEditKey;
  if (const char* home = getenv("HOME"); home != nullptr && *home != '\0') {
    history_path_ = std::string(home) + "/.kelcmd_history";
  }
  using_history();
  if (!history_path_.empty()) read_history(history_path_.c_str());
}

LineInput::~LineInput() {
  if (!editing_) return;
  if (!history_path_.empty()) write_history(history_path_.c_str());
  g_completions = nullptr;
}

std::optional<std::string> LineInput::ReadLine(const char* prompt, size_t max_length) {
  std::string line;
  if (editing_) {
    g_line_dropped = false;
    // Without its signal handling the editor misses a resized window: it looks again here.
    rl_resize_terminal();
    char* raw = readline(prompt);
    if (raw == nullptr) return std::nullopt;
    line.assign(raw);
    free(raw);
    if (g_line_dropped) return std::string();
    if (!line.empty()) add_history(line.c_str());
  } else {
    fputs(prompt, stdout);
    fflush(stdout);
    int c = 0;
    bool any = false;
    while ((c = getchar()) != EOF) {
      any = true;
      if (c == '\n') break;
      line.push_back(static_cast<char>(c));
    }
    if (!any) return std::nullopt;
  }
  if (line.size() > max_length) line.resize(max_length);
  return line;
}

}  // namespace kel::platform
