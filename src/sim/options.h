#pragma once

#include <optional>
#include <string>
#include <vector>

#include "sim/config.h"

namespace kel::sim {

/// What kelsim's command line asks for.
struct ProgramOptions {
  Config config;
  bool help = false;
  bool serial = false;      ///< serve the controller's serial line on a pseudo-terminal
  std::string serial_link;  ///< with serial: a symbolic link to the terminal made here
  /// Print a line for every BUZZER frame the board takes and the board's notes
  /// (Config::notes).
  bool verbose = false;
  /// Write what the buzzer plays into this WAV file; empty: none.
  std::string buzzer_wav;
};

/// Reads kelsim's arguments (without the program name). Each option's value follows it as
/// the next argument or after '=' ("--port 27015", "--port=27015"); numbers are decimal, or
/// hexadecimal with 0x. Returns nothing and sets `error` to a one-line reason for an option
/// that is unknown, lacks its value or has a bad one.
std::optional<ProgramOptions> ParseOptions(const std::vector<std::string>& args,
                                           std::string* error);

/// The text of `kelsim --help`: every option with its meaning and default.
std::string UsageText();

}  // namespace kel::sim
