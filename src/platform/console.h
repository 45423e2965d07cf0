#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kel::platform {

/// Makes standard output and error write their bytes as they are (Windows would turn
/// every "\n" into "\r\n"), so that both platforms print the same texts.
void UseBinaryStandardStreams();

/// True when standard input is an interactive terminal.
bool StdinIsTerminal();

/// True when a key press is waiting. Only ever true when standard input is a terminal;
/// the terminal is polled without echo and without waiting for Enter. Piped input is
/// never consumed here.
bool KeyPressed();

/// Reads and discards every pending key press (terminal only).
void DiscardKeys();

/// Clears the console screen.
void ClearScreen();

/// While alive, Ctrl-C does not end this process; it still reaches the child processes
/// that share the terminal, which end as the user asked.
class InterruptShield {
 public:
  InterruptShield();
  ~InterruptShield();
  InterruptShield(const InterruptShield&) = delete;
  InterruptShield& operator=(const InterruptShield&) = delete;
};

/// Reads lines at the prompt: with line editing and a history file at a terminal,
/// plainly otherwise. One instance serves the console loop.
class LineInput {
 public:
  /// `completions` are the words the Tab key completes at a terminal.
  explicit LineInput(std::vector<std::string> completions);
  ~LineInput();
  LineInput(const LineInput&) = delete;
  LineInput& operator=(const LineInput&) = delete;

  /// Shows `prompt` and reads one line without its line end, keeping at most
  /// `max_length` characters. Returns nothing at the end of input.
  std::optional<std::string> ReadLine(const char* prompt, size_t max_length);

 private:
  bool editing_ = false;
  std::string history_path_;
  std::vector<std::string> completions_;
};

}  // namespace kel::platform
