#pragma once

#include <string_view>
#include <vector>

#include "core/output.h"
#include "core/result.h"

namespace kel {

struct CommandEntry;

/// A command's implementation. `rest` is the pending command text right after the
/// command's name; the handler takes the words it consumes off its front (SplitWord)
/// and leaves the rest. It writes its result text into `out` and returns a ResultCode:
/// zero or positive on success (by convention the number of characters written),
/// negative on failure, with FormatResult's error line in `out`.
using CommandHandler = ResultCode (*)(const CommandEntry& entry, std::string_view& rest,
                                      Output& out);

/// One row of the command table, the one source of truth for every command.
///   names        - the main name first, then its aliases; lookup compares whole words
///                  without regard to case
///   handler      - the implementation
///   needs_device - the executor connects to the board before the handler runs
///   aux          - empty in every row
///   result_words - "Ok/Error", empty for filt, absent for the hidden row; documentation
///   description  - the one-line summary of `help`
///   arguments    - the argument lines of `help <name>`
///   examples     - the example lines of `help <name>`
/// Rows are written with designated initializers; a field left out keeps its default.
struct CommandEntry {
  std::vector<std::string_view> names{};
  CommandHandler handler = nullptr;
  bool needs_device = false;
  std::string_view aux{};
  std::string_view result_words{};
  std::string_view description{};
  std::vector<std::string_view> arguments{};
  std::vector<std::string_view> examples{};

  std::string_view Name() const { return names.empty() ? std::string_view() : names.front(); }
};

}  // namespace kel
