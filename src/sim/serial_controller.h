#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "platform/poller.h"
#include "platform/pseudo_terminal.h"
#include "serial/line_codec.h"

namespace kel::sim {

/// The board controller's name and version, as its VER and BOOT lines give them.
inline constexpr const char* kControllerName = "KELCTRL";
inline constexpr const char* kControllerVersion = "1.0.0";
/// How long after a power-on reset the controller announces itself.
inline constexpr uint64_t kBootDelayMs = 500;

/// The board's controller on a serial line of its own: a pseudo-terminal whose slave
/// programs open as the controller's port. It answers the requests of docs/protocol.md one
/// line at a time, in the board's thread: it watches its terminal in the owner's poller
/// under the token it was given; the owner passes the events of that token to OnEvent and
/// calls FireDue when NextDueMs comes. An answer the terminal cannot take at once (nobody
/// has read the earlier ones) is lost, as on a real line. Not thread-safe.
class SerialController {
 public:
  /// What the controller does to the board it sits on.
  struct Hooks {
    std::function<uint16_t()> outputs;     ///< the output pins, bit n pin n
    std::function<void()> power_on_reset;  ///< cut every connection, back to power-on
  };

  SerialController(platform::Poller& poller, uint64_t token, Hooks hooks);
  /// Stops watching and closes the terminal (and its link).
  ~SerialController();
  SerialController(const SerialController&) = delete;
  SerialController& operator=(const SerialController&) = delete;

  /// Makes the terminal, links it from `link` when that is not empty, and starts watching
  /// it. False, with `error` saying why, when any of it fails.
  bool Open(const std::string& link, std::string* error);
  /// The path programs open ("/dev/pts/5").
  const std::string& Path() const { return terminal_.SlavePath(); }

  /// Handles what the poller reported for the terminal at monotonic time `now_ms`.
  void OnEvent(const platform::PollEvent& event, uint64_t now_ms);
  /// The monotonic time of the next timed step, or 0 when none is due.
  uint64_t NextDueMs() const;
  /// Takes the timed steps due at `now_ms`: the boot line after a reset, watching the
  /// terminal again after it failed.
  void FireDue(uint64_t now_ms);

 private:
  void Answer(const ReceivedLine& request, uint64_t now_ms);
  void Send(std::string_view body);
  void Unwatch(uint64_t now_ms);

  platform::Poller& poller_;
  const uint64_t token_;
  Hooks hooks_;
  platform::PseudoTerminal terminal_;
  LineSplitter splitter_;
  bool watched_ = false;
  uint64_t boot_due_ms_ = 0;     // 0: no boot line pending
  uint64_t rewatch_due_ms_ = 0;  // 0: watched, or never opened
};

}  // namespace kel::sim
