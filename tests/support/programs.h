#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/process.h"

namespace kel::testing {

/// What a finished program left: its exit status and everything it wrote to standard
/// output (and standard error, merged).
struct ProgramRun {
  bool exited = false;
  int status = -1;
  std::string output;
};

/// Runs `program` with `args` in `working_dir`, feeding `input` to its standard input
/// (which then reaches its end). A program still running after `timeout_ms` is killed.
ProgramRun RunProgram(const std::string& program, const std::vector<std::string>& args,
                      const std::string& input, const std::string& working_dir,
                      int timeout_ms = 60000);

/// The exit status that carries the command result `result`: its low 8 bits on Linux
/// (-100 is 156), the whole result on Windows.
inline int StatusOf(int32_t result) { return platform::ExitStatusForResult(result); }

/// RunProgram for build/bin/kelcmd.
ProgramRun RunKelcmd(const std::vector<std::string>& args, const std::string& input,
                     const std::string& working_dir);

/// A path of the build tree as the programs under test see it: the Windows build runs
/// under Wine, where the build tree lies on drive Z:.
std::string BuildPath(const char* path);

inline std::string KelcmdPath() { return BuildPath(KELCMD_PATH); }
#ifdef KELSIM_PATH
inline std::string KelsimPath() { return BuildPath(KELSIM_PATH); }
#endif

}  // namespace kel::testing
