#pragma once

#include <fstream>
#include <string>
#include <string_view>

#include "support/programs.h"

namespace kel::testing {

/// A program at a pseudo-terminal made by script(1), used as a person would: keys typed
/// whenever the test likes, the screen read back as it grows. The keys go through a named
/// pipe in `working_dir`, the screen is script's typescript there. POSIX only.
class TerminalSession {
 public:
  /// `command` is shell text; it runs in `working_dir` with HOME set to it, so that no
  /// history file of the person running the tests is read or written.
  TerminalSession(const std::string& command, const std::string& working_dir);
  TerminalSession(const TerminalSession&) = delete;
  TerminalSession& operator=(const TerminalSession&) = delete;

  /// Types `keys` (Ctrl-C is "\x03", Enter "\r"). Only while the program runs.
  void Type(std::string_view keys);

  /// Waits (generously) until the screen shows `text` at least `times` times.
  bool WaitFor(std::string_view text, size_t times = 1) const;

  /// Everything written to the terminal so far.
  std::string Screen() const;

  /// Waits for the program's end; the run's output is the screen.
  ProgramRun Finish(int timeout_ms = 60000);

 private:
  std::string screen_path_;
  RunningProgram program_;
  std::ofstream keys_;
};

/// How often `text` occurs in `screen`.
size_t CountOf(std::string_view screen, std::string_view text);

}  // namespace kel::testing
