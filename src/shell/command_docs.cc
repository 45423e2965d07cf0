#include "shell/command_docs.h"

#include "shell/command_table.h"

namespace kel {

std::string CommandsMarkdown() {
  std::string text =
      "# Commands\n\n"
      "Made from the command table, as `help <command>` shows it. Commands marked (board)\n"
      "connect to the board first. Names compare without regard to case.\n";
  for (const CommandEntry& entry : CommandTable()) {
    if (entry.description.empty()) continue;
    text += "\n## ";
    for (size_t i = 0; i < entry.names.size(); ++i) {
      if (i > 0) text += ", ";
      text.append(entry.names[i]);
    }
    text += entry.needs_device ? " (board)\n\n" : "\n\n";
    text.append(entry.description);
    text += "\n";
    if (!entry.arguments.empty()) {
      text += "\n```\n";
      for (std::string_view line : entry.arguments) text.append(line).append("\n");
      text += "```\n";
    }
    if (!entry.examples.empty()) {
      text += "\nExamples:\n\n```\n";
      for (std::string_view line : entry.examples) text.append(line).append("\n");
      text += "```\n";
    }
  }
  return text;
}

}  // namespace kel
