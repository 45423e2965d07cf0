#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kel::platform {

/// How a child process ended.
struct ChildExit {
  bool exited = false;  ///< ended by exit(); `status` holds its status
  int status = 0;       ///< exit status (low 8 bits on Linux)
  int signal = 0;       ///< the signal that ended it, when not exited
  bool timed_out = false;
};

/// One child process, started from an argument vector. Its standard output can be
/// inherited, discarded or captured, and its standard input fed from a text. The object
/// owns the child: a child still running at destruction is waited for, so none is left
/// as a zombie.
class ChildProcess {
 public:
  enum class OutputMode { kInherit, kDiscard, kCapture, kFile };

  struct Options {
    OutputMode output = OutputMode::kInherit;
    bool merge_stderr = false;              ///< stderr goes where stdout goes
    std::optional<std::string> stdin_text;  ///< fed to the child, then closed
    std::string working_dir;                ///< empty: the current one
    std::string output_path;                ///< with kFile: the file that takes the output
  };

  ChildProcess() = default;
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// Starts `argv[0]` with the arguments `argv` (on Windows joined into one command line,
  /// each argument quoted as the C runtime splits it back). False when it could not start.
  bool Start(const std::vector<std::string>& argv, const Options& options);

  /// Waits for the end, feeding input and collecting output meanwhile. A negative
  /// `timeout_ms` waits without limit; at the limit the child is killed.
  ChildExit Wait(int timeout_ms = -1);

  /// Ends the child: SIGTERM on Linux, termination with 0xC000013A on Windows. May be
  /// called from another thread while one waits in Wait.
  void Terminate();

  bool Started() const { return started_; }
  const std::string& CapturedOutput() const { return captured_; }

 private:
#ifdef _WIN32
  intptr_t process_ = 0;      // the process HANDLE
  intptr_t stdin_pipe_ = 0;   // our end of the child's standard input, or 0
  intptr_t stdout_pipe_ = 0;  // our end of the child's standard output, or 0
#else
  int pid_ = -1;
  int stdin_fd_ = -1;
  int stdout_fd_ = -1;
  size_t stdin_written_ = 0;
#endif
  std::string stdin_text_;
  std::string captured_;
  bool started_ = false;
  std::atomic<bool> reaped_{false};  // Terminate may ask from another thread than Wait
  ChildExit exit_;
};

/// The path of this process's own executable.
std::string SelfExecutablePath();

/// The command result a child's end carries. On Linux its exit status is read as a
/// signed 8-bit result, an end by SIGINT or SIGTERM is 0xC000013A (user termination) and
/// any other end is -1; on Windows the exit code is the whole 32-bit result.
int32_t ResultOfChild(const ChildExit& end);

}  // namespace kel::platform
