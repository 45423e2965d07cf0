#include <windows.h>

#include <thread>

#include "platform/process.h"
#include "platform/subprocess.h"

namespace kel::platform {
namespace {

// Quotes one argument the way the C runtime splits a command line back into argv.
std::string QuoteArgument(const std::string& arg) {
  if (!arg.empty() && arg.find_first_of(" \t\n\v\"") == std::string::npos) return arg;
  std::string quoted = "\"";
  size_t backslashes = 0;
  for (char c : arg) {
    if (c == '\\') {
      ++backslashes;
      continue;
    }
    quoted.append(c == '"' ? backslashes * 2 + 1 : backslashes, '\\');
    backslashes = 0;
    quoted += c;
  }
  quoted.append(backslashes * 2, '\\');
  quoted += '"';
  return quoted;
}

HANDLE AsHandle(intptr_t h) { return reinterpret_cast<HANDLE>(h); }

void CloseSlot(intptr_t& h) {
  if (h != 0) CloseHandle(AsHandle(h));
  h = 0;
}

}  // namespace

ChildProcess::~ChildProcess() {
  if (started_ && !reaped_) Wait();
  CloseSlot(stdin_pipe_);
  CloseSlot(stdout_pipe_);
  CloseSlot(process_);
}

bool ChildProcess::Start(const std::vector<std::string>& argv, const Options& options) {
  if (argv.empty() || started_) return false;
  std::string command_line;
  for (const std::string& arg : argv) {
    if (!command_line.empty()) command_line += ' ';
    command_line += QuoteArgument(arg);
  }

  SECURITY_ATTRIBUTES inherit{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
  HANDLE child_in = nullptr, parent_in = nullptr, child_out = nullptr, parent_out = nullptr;
  if (options.stdin_text) {
    if (!CreatePipe(&child_in, &parent_in, &inherit, 0)) return false;
    SetHandleInformation(parent_in, HANDLE_FLAG_INHERIT, 0);
  }
  if (options.output == OutputMode::kCapture) {
    if (!CreatePipe(&parent_out, &child_out, &inherit, 0)) {
      if (child_in != nullptr) CloseHandle(child_in);
      if (parent_in != nullptr) CloseHandle(parent_in);
      return false;
    }
    SetHandleInformation(parent_out, HANDLE_FLAG_INHERIT, 0);
  } else if (options.output == OutputMode::kDiscard || options.output == OutputMode::kFile) {
    const bool to_file = options.output == OutputMode::kFile;
    child_out = CreateFileA(to_file ? options.output_path.c_str() : "NUL", GENERIC_WRITE,
                            FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit,
                            to_file ? CREATE_ALWAYS : OPEN_EXISTING, 0, nullptr);
    if (child_out == INVALID_HANDLE_VALUE) child_out = nullptr;
  }

  STARTUPINFOA startup{};
  startup.cb = sizeof startup;
  const bool redirect = child_in != nullptr || child_out != nullptr;
  if (redirect) {
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = child_in != nullptr ? child_in : GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = child_out != nullptr ? child_out : GetStdHandle(STD_OUTPUT_HANDLE);
    startup.hStdError =
        options.merge_stderr && child_out != nullptr ? child_out : GetStdHandle(STD_ERROR_HANDLE);
  }
  PROCESS_INFORMATION info{};
  const BOOL ok = CreateProcessA(
      nullptr, command_line.data(), nullptr, nullptr, redirect ? TRUE : FALSE, 0, nullptr,
      options.working_dir.empty() ? nullptr : options.working_dir.c_str(), &startup, &info);
  if (child_in != nullptr) CloseHandle(child_in);
  if (child_out != nullptr) CloseHandle(child_out);
  if (!ok) {
    if (parent_in != nullptr) CloseHandle(parent_in);
    if (parent_out != nullptr) CloseHandle(parent_out);
    return false;
  }
  CloseHandle(info.hThread);
  process_ = reinterpret_cast<intptr_t>(info.hProcess);
  stdin_pipe_ = reinterpret_cast<intptr_t>(parent_in);
  stdout_pipe_ = reinterpret_cast<intptr_t>(parent_out);
  stdin_text_ = options.stdin_text.value_or(std::string());
  started_ = true;
  reaped_ = false;
  return true;
}

ChildExit ChildProcess::Wait(int timeout_ms) {
  if (!started_ || reaped_) return exit_;
  // The pipes are fed and drained on their own threads while the process is waited for.
  std::thread feeder;
  if (stdin_pipe_ != 0) {
    feeder = std::thread([this] {
      size_t at = 0;
      DWORD written = 0;
      while (at < stdin_text_.size() &&
             WriteFile(AsHandle(stdin_pipe_), stdin_text_.data() + at,
                       static_cast<DWORD>(stdin_text_.size() - at), &written, nullptr) &&
             written > 0) {
        at += written;
      }
      CloseSlot(stdin_pipe_);
    });
  }
  std::thread drainer;
  if (stdout_pipe_ != 0) {
    drainer = std::thread([this] {
      char buf[8192];
      DWORD got = 0;
      while (ReadFile(AsHandle(stdout_pipe_), buf, sizeof buf, &got, nullptr) && got > 0) {
        captured_.append(buf, got);
      }
    });
  }
  const HANDLE process = AsHandle(process_);
  const DWORD limit = timeout_ms < 0 ? INFINITE : static_cast<DWORD>(timeout_ms);
  if (WaitForSingleObject(process, limit) != WAIT_OBJECT_0) {
    TerminateProcess(process, 0xC000013A);
    WaitForSingleObject(process, INFINITE);
    exit_.timed_out = true;
  }
  DWORD code = 0;
  exit_.exited = GetExitCodeProcess(process, &code) != 0;
  exit_.status = static_cast<int>(code);
  if (feeder.joinable()) feeder.join();
  if (drainer.joinable()) drainer.join();
  CloseSlot(stdout_pipe_);
  CloseSlot(process_);
  reaped_ = true;
  return exit_;
}

void ChildProcess::Terminate() {
  if (started_ && !reaped_) TerminateProcess(AsHandle(process_), 0xC000013A);
}

std::string SelfExecutablePath() {
  char buf[MAX_PATH * 2];
  const DWORD n = GetModuleFileNameA(nullptr, buf, sizeof buf);
  return std::string(buf, n);
}

int32_t ResultOfChild(const ChildExit& end) {
  return end.exited ? ResultFromExitStatus(end.status) : -1;
}

}  // namespace kel::platform
