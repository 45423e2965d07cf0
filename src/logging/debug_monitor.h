#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "logging/source_watcher.h"
#include "platform/debug_output.h"

namespace kel {

/// Drops a syslog header from the front of a message, so that `logger` can write to the
/// debug output like any other program: "<PRI>" and an RFC 3164 time stamp
/// ("Mmm dd hh:mm:ss "), each only when present.
///   "<13>Nov 24 16:41:04 root: text" -> "root: text", "<5>text" -> "text", "text" -> "text"
std::string_view StripSyslogHeader(std::string_view text);

/// A message made fit for one line of a log file: at most `limit` bytes of it, line ends
/// at its end dropped, every other control byte written "\xNN".
std::string LoggableText(std::string_view text, size_t limit);

/// Watches the debug output of every program (platform::DebugOutputReader) on a thread of
/// its own and hands each message to a callback with the writer's process id and name.
class DebugOutputMonitor {
 public:
  using Callback =
      std::function<void(uint32_t pid, const std::string& name, std::string_view text)>;

  /// Takes the debug output at `path` and starts watching. False, and not running, when
  /// another reader holds it (another kelcmd, a debugger) or no thread could be started.
  bool Start(Callback callback, const std::string& path = platform::DebugOutputPath());
  /// Stops watching and gives the endpoint up. Harmless when not running.
  void Stop() { watcher_.Stop(); }
  bool Running() const { return watcher_.Running(); }

 private:
  SourceWatcher<platform::DebugOutputReader> watcher_;
};

}  // namespace kel
