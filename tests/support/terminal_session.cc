#include "support/terminal_session.h"

#include <chrono>
#include <filesystem>
#include <thread>

#include "support/temp_dir.h"

namespace kel::testing {
namespace {

constexpr auto kPollSlice = std::chrono::milliseconds(20);
constexpr auto kScreenWait = std::chrono::seconds(60);  // sanitizer builds on a busy machine

// The pipe is opened for reading and writing, so that script never meets its end and the
// test's open for writing does not wait; script(1) writes the typescript as it goes (-f).
constexpr char kLauncher[] =
    "mkfifo keys && HOME=\"$PWD\" exec script -qfec \"$0\" screen 0<>keys >/dev/null";

}  // namespace

TerminalSession::TerminalSession(const std::string& command, const std::string& working_dir)
    : screen_path_((std::filesystem::path(working_dir) / "screen").string()),
      program_("/bin/sh", {"-c", kLauncher, command}, "", working_dir) {
  const std::filesystem::path keys = std::filesystem::path(working_dir) / "keys";
  const auto until = std::chrono::steady_clock::now() + kScreenWait;
  while (!std::filesystem::is_fifo(keys) && std::chrono::steady_clock::now() < until) {
    std::this_thread::sleep_for(kPollSlice);
  }
  if (std::filesystem::is_fifo(keys)) keys_.open(keys, std::ios::binary);
}

void TerminalSession::Type(std::string_view keys) {
  keys_.write(keys.data(), static_cast<std::streamsize>(keys.size()));
  keys_.flush();
}

std::string TerminalSession::Screen() const {
  return std::filesystem::exists(screen_path_) ? ReadFile(screen_path_) : std::string();
}

bool TerminalSession::WaitFor(std::string_view text, size_t times) const {
  const auto until = std::chrono::steady_clock::now() + kScreenWait;
  while (CountOf(Screen(), text) < times) {
    if (std::chrono::steady_clock::now() >= until) return false;
    std::this_thread::sleep_for(kPollSlice);
  }
  return true;
}

ProgramRun TerminalSession::Finish(int timeout_ms) {
  ProgramRun run = program_.Finish(timeout_ms);
  run.output = Screen();
  return run;
}

size_t CountOf(std::string_view screen, std::string_view text) {
  size_t count = 0;
  for (size_t at = screen.find(text); at != std::string_view::npos;
       at = screen.find(text, at + text.size())) {
    ++count;
  }
  return count;
}

}  // namespace kel::testing
