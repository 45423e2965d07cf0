#pragma once

#include <string>
#include <vector>

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

/// RunProgram for build/bin/kelcmd.
ProgramRun RunKelcmd(const std::vector<std::string>& args, const std::string& input,
                     const std::string& working_dir);

inline const char* KelcmdPath() { return KELCMD_PATH; }
#ifdef KELSIM_PATH
inline const char* KelsimPath() { return KELSIM_PATH; }
#endif

}  // namespace kel::testing
