#pragma once

#include <string>
#include <string_view>

namespace kel {

/// Renders a command's output the way the console prints it: as a printf format with no
/// arguments, made safe. "%%" prints "%", every other conversion prints as if its
/// argument were zero or empty ("%d" -> "0", "%5s" -> five blanks), "%n" prints nothing
/// and writes nothing, and the text ends at its first NUL.
std::string RenderOutput(std::string_view format);

/// Prints RenderOutput(text) to standard output.
void PrintOutput(std::string_view text);

}  // namespace kel
