#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace kel::platform {

/// One message a program wrote as debug output.
struct DebugMessage {
  uint32_t pid = 0;  ///< the writer's process id
  std::string text;  ///< as written, at most 64 KiB
};

/// Where this system's programs write debug output for a reader to take:
/// Linux: a Unix datagram socket at $XDG_RUNTIME_DIR/kelcmd-debug.sock, or
/// /tmp/kelcmd-debug-<uid>.sock when that variable is not set; any program can write to it
/// (`logger -u <path> text`, `socat - UNIX-SENDTO:<path>`). Windows: "DBWIN", the system's
/// debug-output buffer that OutputDebugString writes to.
std::string DebugOutputPath();

/// The one reader of the debug output at `path`. Only one reader of a path can be open on
/// the machine at a time: the first one keeps it.
class DebugOutputReader {
 public:
  DebugOutputReader();
  ~DebugOutputReader();
  DebugOutputReader(const DebugOutputReader&) = delete;
  DebugOutputReader& operator=(const DebugOutputReader&) = delete;

  /// Takes the endpoint. False when another reader holds it or the system refused. On
  /// Linux a socket file nobody answers on any more is taken over.
  bool Open(const std::string& path);
  /// Waits up to `timeout_ms` for one message. False on time-out or when not open.
  bool Receive(DebugMessage& message, int timeout_ms);
  /// True once the endpoint has failed for good (or is not open): no message comes any
  /// more and Receive returns at once.
  bool Failed() const;
  /// Gives the endpoint up (Linux: removes the socket file).
  void Close();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

/// The name of a running process: Linux /proc/<pid>/comm, Windows its program file's base
/// name; "" when the process is gone or may not be asked.
std::string ProcessName(uint32_t pid);

/// Writes `text` as this process's debug output: Linux one datagram to `path`, Windows
/// OutputDebugString (`path` is not used). False when it could not be sent.
bool WriteDebugOutput(const std::string& path, std::string_view text);

}  // namespace kel::platform
