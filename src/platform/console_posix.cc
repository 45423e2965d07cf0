#include <editline/readline.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <strings.h>
#include <termios.h>
#include <unistd.h>

#include <cstring>
#include <utility>

#include "platform/console.h"

namespace kel::platform {
namespace {

// Switches the terminal to non-canonical, no-echo mode for the lifetime of the object,
// so that single key presses become readable at once.
class RawTerminal {
 public:
  RawTerminal() {
    if (tcgetattr(STDIN_FILENO, &saved_) != 0) return;
    termios raw = saved_;
    raw.c_lflag &= static_cast<tcflag_t>(~(ICANON | ECHO));
    raw.c_cc[VMIN] = 0;
    raw.c_cc[VTIME] = 0;
    active_ = tcsetattr(STDIN_FILENO, TCSANOW, &raw) == 0;
  }
  ~RawTerminal() {
    if (active_) tcsetattr(STDIN_FILENO, TCSANOW, &saved_);
  }
  RawTerminal(const RawTerminal&) = delete;
  RawTerminal& operator=(const RawTerminal&) = delete;

 private:
  termios saved_{};
  bool active_ = false;
};

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

bool KeyPressed() {
  if (!StdinIsTerminal()) return false;
  RawTerminal raw;
  return InputReady();
}

void DiscardKeys() {
  if (!StdinIsTerminal()) return;
  RawTerminal raw;
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
  if (!editing_) return;
  g_completions = &completions_;
  rl_completion_entry_function = CompleteWord;
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
    char* raw = readline(prompt);
    if (raw == nullptr) return std::nullopt;
    line.assign(raw);
    free(raw);
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
