#pragma once

#include <string>
#include <string_view>

namespace kel {

/// The program's version, a constant of the build.
inline constexpr const char* kVersion = KEL_VERSION;

/// The program path the process was started with (argv[0], at most 1024 bytes); the entry
/// sets it once at start.
const std::string& ProgramPath();
void SetProgramPath(std::string_view path);

/// The name by which the running command was called, as the user typed it ("runtest"
/// where the row's first name is "rtest"). The executor sets it around each handler call;
/// empty outside a command.
std::string_view CalledName();
void SetCalledName(std::string_view name);

}  // namespace kel
