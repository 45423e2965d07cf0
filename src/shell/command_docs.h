#pragma once

#include <string>

namespace kel {

/// The command reference in Markdown, made from the command table: every visible command
/// in table order with its names, description, argument and example lines. docs/commands.md
/// holds this text; a test keeps the two equal.
std::string CommandsMarkdown();

}  // namespace kel
