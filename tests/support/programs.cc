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

ProgramRun RunProgram(const std::string& program, const std::vector<std::string>& args,
                      const std::string& input, const std::string& working_dir, int timeout_ms) {
  std::vector<std::string> argv{program};
  argv.insert(argv.end(), args.begin(), args.end());
  platform::ChildProcess child;
  platform::ChildProcess::Options options;
  options.output = platform::ChildProcess::OutputMode::kCapture;
  options.merge_stderr = true;
  options.stdin_text = input;
  options.working_dir = working_dir;
  ProgramRun run;
  if (!child.Start(argv, options)) return run;
  const platform::ChildExit end = child.Wait(timeout_ms);
  run.exited = end.exited && !end.timed_out;
  run.status = end.status;
  run.output = child.CapturedOutput();
  return run;
}

ProgramRun RunKelcmd(const std::vector<std::string>& args, const std::string& input,
                     const std::string& working_dir) {
  return RunProgram(KelcmdPath(), args, input, working_dir);
}

}  // namespace kel::testing
