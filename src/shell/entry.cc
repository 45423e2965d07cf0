#include "shell/entry.h"

#include <cstdio>
#include <string>

#include "config/serial_lookup.h"
#include "config/settings.h"
#include "core/invocation.h"
#include "core/output.h"
#include "core/parse.h"
#include "core/safe_format.h"
#include "device/device_link.h"
#include "logging/logging_service.h"
#include "platform/console.h"
#include "platform/interrupt.h"
#include "platform/process.h"
#include "platform/socket.h"
#include "ports/discovery.h"
#include "proxy/can_proxy.h"
#include "shell/command_table.h"
#include "shell/executor.h"

namespace kel {
namespace {

constexpr size_t kJoinedLineSize = 0x4000;   // the joined command line and batch output
constexpr size_t kConsoleLineSize = 0x2000;  // one console line and its output
enum class OptionOutcome { kContinue, kExit };

// Applies one "-<letter><value>" argument to the settings.
OptionOutcome ApplyOption(std::string_view argument) {
  Settings& s = CurrentSettings();
  const char letter = argument.size() > 1 ? argument[1] : '\0';
  const std::string_view value = argument.size() > 2 ? argument.substr(2) : std::string_view();
  switch (letter) {
    case 'a': s.device_address = std::string(value); break;
    case 'c': s.device_channel = ParseDecimal(value); break;
    case 'i': LoadSettings(value); break;
    case 'p': s.device_port = ParseDecimal(value); break;
    case 's': s.serial_port = std::string(value); break;
    case 'x':
      // A non-zero port given with -x is replaced by the device port as it stands now;
      // -x alone leaves the proxy port 0. The board's tools have always done this.
      s.proxy_mode = true;
      s.proxy_port = ParseDecimal(value);
      if (s.proxy_port != 0) s.proxy_port = s.device_port;
      break;
    case 'm': {
      std::fputs("Scanning network ... ", stdout);
      std::fflush(stdout);
      const std::optional<FoundDevice> found = DiscoverDevice(value);
      if (!found) {
        std::fputs("device not found!\n", stdout);
        return OptionOutcome::kExit;
      }
      std::printf("found %s, IP %s\n", found->mac.c_str(), found->address.c_str());
      s.device_address = found->address;
      break;
    }
    default: std::fputs(UsageText().c_str(), stdout); return OptionOutcome::kExit;
  }
  return OptionOutcome::kContinue;
}

DeviceTarget CurrentTarget() {
  const Settings& s = CurrentSettings();
  return DeviceTarget{s.device_address, s.DeviceTcpPort()};
}

// Runs one command line with the terminal's keys kept off the screen.
ResultCode RunQuietly(std::string_view line, Output& out) {
  const platform::QuietKeys quiet;
  return RunCommandLine(CurrentTarget(), line, out);
}

// The ~> prompt. A person at a terminal stops the running command with Ctrl-C and gets the
// prompt back; from anywhere else, and for any other request to stop, the loop ends and
// with it the program.
void ConsoleLoop() {
  std::vector<std::string> names;
  for (const CommandEntry& entry : CommandTable()) {
    if (entry.description.empty()) continue;  // hidden rows are not offered
    for (std::string_view name : entry.names) names.emplace_back(name);
  }
  platform::LineInput input(std::move(names));
  while (true) {
    const std::optional<std::string> line = input.ReadLine("~>", kConsoleLineSize - 1);
    if (!line) {
      if (platform::StdinIsTerminal()) std::fputs("\n", stdout);
      break;
    }
    const std::string_view command = TrimText(*line);
    if (EqualsNoCase(command, "exit") || EqualsNoCase(command, "quit")) break;
    Output out(kConsoleLineSize);
    RunQuietly(command, out);
    if (input.Interactive() && platform::InterruptRequested() &&
        platform::InterruptFromKeyboard()) {
      platform::ClearInterrupt();
      std::fputs("^C\n", stdout);
    }
    if (!out.Empty()) PrintOutput(out.Text());
    if (platform::InterruptRequested()) break;
  }
}

}  // namespace

std::string UsageText() {
  const Settings& s = CurrentSettings();
  std::string text =
      "syntax:  kelcmd -a<address> -p<port> {cmd} ... {cmd}\n"
      "\n";
  char line[1200];
  std::snprintf(line, sizeof line, "options: -a<address>   device ip addres (default:%s)\n",
                s.device_address.c_str());
  text += line;
  std::snprintf(line, sizeof line, "         -c<channel>   device can channel (default:%d)\n",
                s.device_channel);
  text += line;
  text += "         -i<inifile>   ini-filename (default:kelcmd.ini)\n";
  std::snprintf(line, sizeof line, "         -p<port>      device port (default:%d)\n",
                s.device_port);
  text += line;
  text += "         -m<filter>    search device IP with MAC address\n";
  std::snprintf(line, sizeof line,
                "         -s<serial>    serial communication port (default:%s)\n",
                s.serial_port.c_str());
  text += line;
  std::snprintf(line, sizeof line,
                "         -x<port>      start proxy mode (use <port> or default:%d)\n",
                s.proxy_port);
  text += line;
  text +=
      "\n"
      "params:  {cmd}         command or command to be executed,\n"
      "                       multiple command needs to separate with ';'\n"
      "                       characted.\n"
      "                       (if not defined, use console mode)\n"
      "         {cmd} {cmd}   multiple command will be joined to one\n"
      "\n";
  return text;
}

std::string BannerText() {
  const Settings& s = CurrentSettings();
  std::string text = "========================================\n";
  char line[256];
  std::snprintf(line, sizeof line, "==         KELCommander v%s         ==\n", kVersion);
  text += line;
  std::snprintf(line, sizeof line, "== Address %-16s           ==\n", s.device_address.c_str());
  text += line;
  if (s.proxy_mode) {
    std::snprintf(line, sizeof line, "== Port    %5u / Ch %u (Proxy %5u) ==\n",
                  static_cast<unsigned>(s.device_port), static_cast<unsigned>(s.device_channel),
                  static_cast<unsigned>(s.proxy_port));
  } else {
    std::snprintf(line, sizeof line, "== Port    %5u / Ch %u               ==\n",
                  static_cast<unsigned>(s.device_port), static_cast<unsigned>(s.device_channel));
  }
  text += line;
  if (s.logging_active != 0) {
    std::snprintf(line, sizeof line, "== Logging %5u MiB * %5u slice    ==\n",
                  static_cast<unsigned>(s.log_slice_size / 1048576), s.log_slice_count);
    text += line;
  }
  text +=
      "== Quit kills, Help help gives hope   ==\n"
      "========================================\n"
      "\n";
  return text;
}

int KelcmdMain(int argc, char** argv) {
  const platform::SocketLibrary sockets;  // started first, cleaned up last
  // Ctrl-C, SIGINT, SIGTERM and SIGHUP stop the command running; the program then ends
  // below, after the connection, the log files and the proxy are closed (Ctrl-C at the
  // prompt of a terminal only stops the command: see ConsoleLoop).
  const platform::InterruptRequests interrupts;
  platform::UseBinaryStandardStreams();
  std::string joined;
  LoadSettings("");
  if (argc > 0 && argv[0] != nullptr) {
    SetProgramPath(argv[0]);
  }
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument(argv[i]);
    if (!argument.empty() && argument.front() == '-') {
      if (ApplyOption(argument) == OptionOutcome::kExit) {
        std::fflush(stdout);
        return 0;
      }
      continue;
    }
    if (!joined.empty() && joined.size() < kJoinedLineSize - 1) joined += ' ';
    joined.append(argument.substr(0, kJoinedLineSize - 1 - joined.size()));
  }
  // The PC's first UART, when no serial port was given; none found leaves it empty.
  if (CurrentSettings().serial_port.empty()) {
    CurrentSettings().serial_port = LookupStartupSerialPort();
  }
  if (CurrentSettings().proxy_mode) StartProxy();
  if (CurrentSettings().logging_active != 0) StartLogging();

  ResultCode kept = kOk;
  if (!joined.empty()) {
    Output out(kJoinedLineSize);
    kept = RunQuietly(joined, out);
    if (!out.Empty()) PrintOutput(out.Text());
  } else {
    std::fputs(BannerText().c_str(), stdout);
    ConsoleLoop();
  }
  // Shutdown: the board's last connection ends, then the USB-notify monitor, then the
  // services.
  Device().FinishClosing();
  StopUsbNotifyMonitor();
  StopLogging();
  StopProxy();
  std::fflush(stdout);
  if (platform::InterruptRequested()) platform::EndByInterrupt();
  return platform::ExitStatusForResult(kept < 0 ? kept : kOk);
}

}  // namespace kel
