#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "core/command.h"

namespace kel {

/// One option of kelcmd's command line: its letter, the value that follows it without a
/// blank, and what it means (with the default, from the built-in settings).
struct OptionDoc {
  char letter;
  std::string_view value;
  std::string meaning;
};

/// kelcmd's options in the order of its usage text.
std::vector<OptionDoc> KelcmdOptions();

/// The words a command takes first, for completion: the leading plain word of each
/// argument line ("start" of "start   - start logging"), each with the choices a
/// following "<on|off>" offers. Rows of `test` take the regression tests' names and "?",
/// rows of `help` the command names.
struct SubWord {
  std::string word;
  std::vector<std::string> values;
};
std::vector<SubWord> SubWords(const CommandEntry& entry);

/// The command reference in Markdown, made from the command table: every visible command
/// in table order with its names, description, argument and example lines.
std::string CommandsMarkdown();

/// kelcmd's manual page (roff): options, every visible command with its arguments and
/// examples, exit statuses from the result codes, files and environment.
std::string KelcmdManPage();

/// kelsim's manual page (roff), its options and faults taken from `usage`, the text of
/// `kelsim --help`.
std::string KelsimManPage(std::string_view usage);

/// The bash completion of kelcmd: options, command names, sub-words and their values.
std::string BashCompletion();

/// A file the generator writes, by its path in the source tree.
struct GeneratedFile {
  std::string path;
  std::string text;
};

/// Every generated file: docs/commands.md, the man pages and the bash completion.
std::vector<GeneratedFile> GeneratedFiles(std::string_view kelsim_usage);

}  // namespace kel
