// The executor over a whole command line against a virtual board in this process: every
// command that answers at once, with any arguments, in any order.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "config/settings.h"
#include "core/output.h"
#include "core/parse.h"
#include "shell/executor.h"
#include "sim/simulator.h"

namespace {

// Commands left out: they wait for seconds or hours, start threads, programs or listening
// ports, or write files (the others are safe to run any number of times).
constexpr std::array<std::string_view, 22> kLeftOut = {
    "test",   "rtest",  "delay", "log",     "logging", "proxy", "conf", "config",
    "yank",   "send",   "recv",  "receive", "mon",     "trace", "play", "buzz",
    "tetris", "serial", "ssend", "srecv",   "sver",    "rpor"};

// True when no command of `line` is one left out. Commands start the line or follow a
// separator, as the executor takes them.
bool Allowed(std::string_view line) {
  while (!line.empty()) {
    const size_t start = line.find_first_not_of(" :;\r\n");
    if (start == std::string_view::npos) return true;
    line.remove_prefix(start);
    std::string_view rest = line;
    const std::string name = kel::SplitWord(rest, kel::kWordSeparators, 64);
    for (std::string_view left_out : kLeftOut) {
      if (kel::EqualsNoCase(name, left_out)) return false;
    }
    const size_t end = line.find_first_of(";\r\n");
    if (end == std::string_view::npos) return true;
    line.remove_prefix(end);
  }
  return true;
}

kel::sim::Simulator& Board() {
  static const std::unique_ptr<kel::sim::Simulator> board = [] {
    kel::sim::Config config;
    config.base_port = 0;
    auto started = std::make_unique<kel::sim::Simulator>(config);
    if (!started->Start()) __builtin_trap();
    return started;
  }();
  return *board;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view line(reinterpret_cast<const char*>(data), size);
  if (const size_t nul = line.find('\0'); nul != std::string_view::npos) line = line.substr(0, nul);
  if (!Allowed(line)) return 0;
  kel::sim::Simulator& board = Board();
  kel::CurrentSettings() = kel::Settings();
  kel::CurrentSettings().device_port = board.BasePort();
  kel::Output out(8192);
  kel::RunCommandLine({"127.0.0.1", board.Port(0)}, line, out);
  return 0;
}
