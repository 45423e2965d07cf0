#include "support/programs.h"

#include "platform/subprocess.h"

namespace kel::testing {

std::string BuildPath(const char* path) {
  std::string text(path);
#ifdef _WIN32
  if (!text.empty() && text.front() == '/') {
    for (char& c : text) {
      if (c == '/') c = '\\';
    }
    text.insert(0, "Z:");
  }
#endif
  return text;
}

RunningProgram::RunningProgram(const std::string& program, const std::vector<std::string>& args,
                               const std::string& input, const std::string& working_dir) {
  std::vector<std::string> argv{program};
  argv.insert(argv.end(), args.begin(), args.end());
  platform::ChildProcess::Options options;
  options.output = platform::ChildProcess::OutputMode::kCapture;
  options.merge_stderr = true;
  options.stdin_text = input;
  options.working_dir = working_dir;
  started_ = process_.Start(argv, options);
}

ProgramRun RunningProgram::Finish(int timeout_ms) {
  ProgramRun run;
  if (!started_) return run;
  const platform::ChildExit end = process_.Wait(timeout_ms);
  run.exited = end.exited && !end.timed_out;
  run.status = end.status;
  run.signal = end.timed_out ? 0 : end.signal;
  run.output = process_.CapturedOutput();
  return run;
}

ProgramRun RunProgram(const std::string& program, const std::vector<std::string>& args,
                      const std::string& input, const std::string& working_dir, int timeout_ms) {
  return RunningProgram(program, args, input, working_dir).Finish(timeout_ms);
}

ProgramRun RunKelcmd(const std::vector<std::string>& args, const std::string& input,
                     const std::string& working_dir) {
  return RunProgram(KelcmdPath(), args, input, working_dir);
}

}  // namespace kel::testing
