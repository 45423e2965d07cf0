#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kel::platform {

/// Makes standard output and error write their bytes as they are (Windows would turn
/// every "\n" into "\r\n"), so that both platforms print the same texts.
void UseBinaryStandardStreams();

/// True when standard input is an interactive terminal.
bool StdinIsTerminal();

/// True when standard output is an interactive terminal.
bool StdoutIsTerminal();

/// Moves the cursor of the terminal on standard output `lines` lines up, to the start of
/// the line, so that what is written next overwrites those lines (live tables are redrawn
/// in place). Standard output must have been flushed.
void MoveCursorUp(unsigned lines);

/// True when a key press is waiting. Only ever true when standard input is a terminal
/// and this process is in its foreground; the terminal is polled without echo and without
/// waiting for Enter. Piped input is never consumed here.
bool KeyPressed();

/// Reads and discards every pending key press (terminal only).
void DiscardKeys();

/// While alive, the terminal on standard input shows nothing of the keys pressed and hands
/// them over one at a time, so that what a command prints is not written over by them;
/// Ctrl-C still interrupts. The terminal's own settings come back when the object goes.
/// Nothing changes when standard input is not a terminal, for a job in the terminal's
/// background, or at a Windows console (which shows no key until a line is read).
class QuietKeys {
 public:
  QuietKeys();
  ~QuietKeys();
  QuietKeys(const QuietKeys&) = delete;
  QuietKeys& operator=(const QuietKeys&) = delete;

 private:
  struct Saved;
  std::unique_ptr<Saved> saved_;
};

/// Clears the console screen.
void ClearScreen();

/// While alive, Ctrl-C does not end this process nor set its interrupt request; it still
/// reaches the child processes that share the terminal, which end as the user asked.
class InterruptShield {
 public:
  InterruptShield();
  ~InterruptShield();
  InterruptShield(const InterruptShield&) = delete;
  InterruptShield& operator=(const InterruptShield&) = delete;
};

/// Reads lines at the prompt: with line editing and a history file at a terminal,
/// plainly otherwise. One instance serves the console loop. At a terminal (Interactive),
/// Ctrl-C while a line is typed drops that line: "^C" is shown and the interrupt request
/// cleared. Another request to stop (SIGTERM) ends the input.
class LineInput {
 public:
  /// `completions` are the words the Tab key completes at a terminal.
  explicit LineInput(std::vector<std::string> completions);
  ~LineInput();
  LineInput(const LineInput&) = delete;
  LineInput& operator=(const LineInput&) = delete;

  /// Shows `prompt` and reads one line without its line end, keeping at most
  /// `max_length` characters. Returns nothing at the end of input; an empty line for a
  /// line dropped by Ctrl-C.
  std::optional<std::string> ReadLine(const char* prompt, size_t max_length);

  /// True when a person types the lines: standard input and output are a terminal.
  bool Interactive() const { return interactive_; }

 private:
  bool interactive_ = false;
  bool editing_ = false;
  std::string history_path_;
  std::vector<std::string> completions_;
};

/// What a key press of a raw console is.
enum class KeyCode { kNone, kCharacter, kUp, kDown, kLeft, kRight, kEscape, kInterrupt };

struct Key {
  KeyCode code = KeyCode::kNone;
  char character = 0;  ///< the character of kCharacter

  bool operator==(const Key&) const = default;
};

/// Decodes the first key of the bytes a terminal sent and sets `*used` to the bytes it
/// took: the arrows' escape sequences ("\x1b[A" to "\x1b[D", also with "\x1bO" and with
/// parameters such as "\x1b[1;5A"), a lone escape, Ctrl-C (0x03) as kInterrupt, any other
/// byte as a character; an escape sequence it does not know is taken whole as kNone. When
/// `bytes` holds only the start of an escape sequence and `more_may_come`, it takes nothing
/// and returns kNone, so that the caller can wait for the rest.
Key DecodeKey(std::string_view bytes, bool more_may_come, size_t* used);

/// The console as a full-screen program uses it: keys one at a time, without echo and
/// without Enter, Ctrl-C a key rather than a signal; the screen's content kept aside and
/// the cursor hidden. Everything comes back when the object goes, and also when a signal
/// ends the process meanwhile (SIGINT, SIGTERM, SIGHUP, SIGQUIT, unless the process takes
/// them as interrupt requests; on Windows Ctrl-Break and the console's close). When
/// standard input or output is not a terminal nothing changes and Active() is false.
class RawConsole {
 public:
  RawConsole();
  ~RawConsole();
  RawConsole(const RawConsole&) = delete;
  RawConsole& operator=(const RawConsole&) = delete;

  bool Active() const { return state_ != nullptr; }
  /// Waits up to `timeout_ms` for the next key press; kNone when none came. An interrupt
  /// request (a SIGTERM from elsewhere) reads as kInterrupt, as Ctrl-C does.
  Key ReadKey(int timeout_ms);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kel::platform
