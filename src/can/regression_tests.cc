#include "can/regression_tests.h"

#include <memory>
#include <string>

#include "can/workers.h"
#include "config/settings.h"
#include "core/console.h"
#include "core/invocation.h"
#include "core/parse.h"
#include "core/wildcard.h"
#include "platform/console.h"
#include "platform/interrupt.h"
#include "platform/subprocess.h"

namespace kel {
namespace {

constexpr size_t kPatternSize = 128;
constexpr size_t kMaxWorkers = 512;
constexpr size_t kLabelMax = 255;
constexpr size_t kCommandLineMax = 1023;
constexpr int kWaitSliceMs = 333;

enum class RunEnd { kPassed, kFailed, kBroken };

void Describe(const TestEntry& test) {
  ConsolePrintf("Test '%.*s':\n\t%.*s\nCommands:\n", static_cast<int>(test.name.size()),
                test.name.data(), static_cast<int>(test.description.size()),
                test.description.data());
  for (std::string_view s : test.s_commands) {
    ConsolePrintf("\tS:%.*s\n", static_cast<int>(s.size()), s.data());
  }
  for (std::string_view m : test.m_commands) {
    ConsolePrintf("\tM:%.*s\n", static_cast<int>(m.size()), m.data());
  }
  ConsoleWrite("\n");
}

// The worker for one command line: this program, against the board of the settings, on
// the given channel.
std::shared_ptr<WorkerSlot> MakeWorker(char kind, std::string_view commands, int channel) {
  const Settings& s = CurrentSettings();
  std::string full = s.debug_socket ? "debug socket on;" : "";
  full.append(commands);
  auto slot = std::make_shared<WorkerSlot>();
  slot->label.append(1, kind).append(":").append(commands);
  if (slot->label.size() > kLabelMax) slot->label.resize(kLabelMax);
  std::string address = "-a";
  address.append(s.device_address);
  std::string port = "-p";
  port.append(std::to_string(s.proxy_port));
  std::string chan = "-c";
  chan.append(std::to_string(channel));
  std::string& line = slot->command_line;
  line.append("\"").append(ProgramPath()).append("\" ").append(address).append(" ").append(port);
  line.append(" ").append(chan).append(" \"").append(full).append("\"");
  if (line.size() > kCommandLineMax) line.resize(kCommandLineMax);
  slot->argv = {platform::SelfExecutablePath(), address, port, chan, full};
  slot->show_output = s.debug_worker;
  slot->capture_output = s.debug_capture;
  return slot;
}

RunEnd RunOne(const TestEntry& test, int number) {
  ConsolePrintf("%.*s - %.*s\n", static_cast<int>(test.name.size()), test.name.data(),
                static_cast<int>(test.description.size()), test.description.data());
  const Settings& settings = CurrentSettings();
  const bool verbose = settings.debug_worker;
  const int m_channel = settings.device_channel == 0 ? 2 : 0;
  const int s_channel = settings.device_channel == 0 ? 0 : 2;

  // Ctrl-C reaches the workers, which end as "User termination"; the run reports them.
  const platform::InterruptShield shield;
  WorkerPool pool(kMaxWorkers);
  std::vector<std::shared_ptr<WorkerSlot>> slots;
  auto launch = [&](char kind, std::string_view commands, int channel) {
    if (slots.size() >= kMaxWorkers) return;
    slots.push_back(MakeWorker(kind, commands, channel));
    if (verbose) ConsolePrintf("[%s]\n", slots.back()->command_line.c_str());
    pool.Launch(slots.back());
  };
  for (std::string_view m : test.m_commands) launch('M', m, m_channel);
  for (std::string_view s : test.s_commands) launch('S', s, s_channel);

  static constexpr char kSpinner[] = "\\|/-";
  bool broken = false;
  for (size_t turn = 0;; ++turn) {
    // A request to stop that is not the terminal's Ctrl-C (which the workers get from the
    // terminal themselves): the workers are told, and report it.
    if (platform::InterruptRequested()) pool.TerminateAll();
    if (platform::KeyPressed()) {
      platform::DiscardKeys();
      broken = true;
      break;
    }
    if (!verbose) {
      ConsolePrintf("  %s%u workers running ... %c  \r", "", static_cast<unsigned>(pool.Running()),
                    kSpinner[turn % 4]);
    }
    if (pool.WaitAll(kWaitSliceMs)) break;
  }

  bool passed = true;
  std::vector<WorkerOutcome> outcomes;
  for (size_t i = 0; i < slots.size(); ++i) {
    outcomes.push_back(pool.Outcome(i));
    if (outcomes.back().result < 0) passed = false;
    ConsolePrintf("  %s => %s\n", slots[i]->label.c_str(),
                  ErrorText(nullptr, outcomes.back().result).c_str());
  }
  for (size_t i = 0; i < slots.size(); ++i) {
    if (!slots[i]->capture_output || outcomes[i].captured.empty()) continue;
    std::string text = outcomes[i].captured;
    if (text.back() != '\n') text += '\n';
    ConsolePrintf("[%s]\n", slots[i]->label.c_str());
    ConsoleWrite(text);
  }
  const RunEnd end = broken ? RunEnd::kBroken : (passed ? RunEnd::kPassed : RunEnd::kFailed);
  ConsolePrintf(
      "Test %d result : %s\n\n", number,
      end == RunEnd::kBroken ? "breaked" : (end == RunEnd::kPassed ? "passed" : "failed"));
  return end;
}

}  // namespace

const std::vector<TestEntry>& RegressionTests() {
  static const std::vector<TestEntry> tests = {
      {"send", "Simple asynchronous sending", {"send 0x123:count@10ms*1000"}, {}},
      {"recv",
       "Simple asynchronous receive",
       {"recv 0x123:count*1000"},
       {"delay 1s;send 0x123:count@10ms*1000"}},
      {"sync", "Simple synchronous (EXTIO) sending", {"send 0x123:extio:count@10ms*1000"}, {}},
      {"sync2",
       "Multiple synchronous (EXTIO) sending",
       {"send 0x123:extio:count@10ms*1000", "send 0x124:extio:1234@10ms*1000",
        "send 0x125:extio:5678@10ms*1000"},
       {}},
      {"rank1",
       "Rankaise vastaanottoa ja synkkaa ja monsua",
       {"recv 0x123:count*10000"},
       {"delay 1s;send 0x123:extio:count@10ms*10000", "delay 1s;send 0x124:extio:123456@10ms*10000",
        "delay 2s;send 0x125:extio:time@10ms*10000", "delay 2s;send 0x125:123456@10ms*1",
        "delay 10s;mon curr 1ms 80s", "delay 5s;mon out 90s"}},
  };
  return tests;
}

ResultCode HandleTest(const CommandEntry& /*entry*/, std::string_view& rest, Output& /*out*/) {
  const std::string word = SplitWord(rest, kCommandSeparators, kPatternSize);
  const std::string_view trimmed = TrimText(word);
  const std::string_view pattern = trimmed.empty() ? std::string_view("?") : trimmed;
  const bool repeat = EqualsNoCase(CalledName(), "rtest");
  const std::vector<TestEntry>& tests = RegressionTests();

  if (pattern == "?") {
    for (const TestEntry& test : tests) {
      ConsolePrintf("Test '%.*s': %.*s\n", static_cast<int>(test.name.size()), test.name.data(),
                    static_cast<int>(test.description.size()), test.description.data());
    }
    return kOk;
  }
  if (pattern.front() == '?') {
    const std::string_view wanted = pattern.substr(1);
    for (const TestEntry& test : tests) {
      if (MatchWildcard(test.name, wanted)) Describe(test);
    }
    return kOk;
  }

  int number = 0;
  while (true) {
    bool ran = false;
    for (const TestEntry& test : tests) {
      if (!MatchWildcard(test.name, pattern)) continue;
      ran = true;
      const RunEnd end = RunOne(test, ++number);
      if (end == RunEnd::kFailed) return kErrTestFailed;
      if (end == RunEnd::kBroken) return kOk;
    }
    if (!repeat || !ran) return kOk;
  }
}

}  // namespace kel
