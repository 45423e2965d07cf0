#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/process.h"
#include "platform/subprocess.h"

namespace kel::testing {

/// What a finished program left: its exit status and everything it wrote to standard
/// output (and standard error, merged).
struct ProgramRun {
  bool exited = false;
  int status = -1;
  int signal = 0;  ///< the signal that ended it, when it did not exit (Linux)
  std::string output;
};

/// `program` with `args`, started in `working_dir` with `input` fed to its standard input
/// (which then reaches its end); its output is collected until Finish.
class RunningProgram {
 public:
  RunningProgram(const std::string& program, const std::vector<std::string>& args,
                 const std::string& input, const std::string& working_dir);
  RunningProgram(const RunningProgram&) = delete;
  RunningProgram& operator=(const RunningProgram&) = delete;

  /// Waits for the end; a program still running after `timeout_ms` is killed.
  ProgramRun Finish(int timeout_ms = 60000);

  /// Asks the program to end: SIGTERM on Linux (on Windows it is terminated).
  void Terminate() { process_.Terminate(); }

 private:
  platform::ChildProcess process_;
  bool started_ = false;
};

/// Runs a program to its end: RunningProgram, then Finish.
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
