#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>

#include "core/parse.h"
#include "device/device_link.h"
#include "monitor/console_rows.h"
#include "platform/console.h"
#include "platform/interrupt.h"

namespace kel {

/// Why a live view ended.
enum class LiveEnd {
  kDuration,  ///< its time was up
  kKey,       ///< a key was pressed at the terminal
  kClosed,    ///< the board closed the connection (or the link failed)
  kFailed,    ///< a tick failed
  kStopped,   ///< an interrupt request (Ctrl-C) came
};

/// When a live view ends by itself, and how often it does something of its own.
struct LiveTiming {
  std::optional<uint32_t> duration_ms;  ///< nothing: until a key or the board's end
  uint32_t tick_ms = 0;                 ///< 0: no ticks
};

/// How often a terminal is asked for a key, and the longest single wait for a frame.
inline constexpr uint64_t kKeyCheckMs = 50;
inline constexpr uint64_t kLiveSliceMs = 100;
inline constexpr uint64_t kPartialFrameMs = 1000;

/// The live loop of the monitors: receives frames from `link` and calls
/// `on_frame(frame, elapsed_ms)` for each, and `on_tick(elapsed_ms)` at the start and every
/// tick (false from it ends the loop as kFailed), until the duration has passed, a key is
/// pressed (at a terminal only), an interrupt is requested or the board closes the
/// connection, which ends it at once.
/// Frames already received are handed on without a clock reading or a system call; the
/// elapsed time is read once per receive that reaches the socket, and `rows` is flushed
/// before every wait, so rows go out in blocks under a flood and at once when it is quiet.
template <typename OnFrame, typename OnTick>
LiveEnd RunLive(DeviceLink& link, ConsoleRows& rows, const LiveTiming& timing, OnFrame on_frame,
                OnTick on_tick) {
  const uint64_t start = NowMs();
  const bool keys = platform::StdinIsTerminal();
  uint64_t now = start;
  uint64_t next_key = start;
  uint64_t next_tick = start;
  FrameBytes frame{};
  while (true) {
    if (link.HasBufferedFrame()) {
      link.ReceiveFrame(frame.data(), 0);
      on_frame(frame.data(), static_cast<uint32_t>(now - start));
      continue;
    }
    rows.Flush();
    if (platform::InterruptRequested()) return LiveEnd::kStopped;
    now = NowMs();
    if (timing.duration_ms && now - start >= *timing.duration_ms) return LiveEnd::kDuration;
    if (timing.tick_ms != 0 && now >= next_tick) {
      if (!on_tick(static_cast<uint32_t>(now - start))) return LiveEnd::kFailed;
      next_tick += timing.tick_ms;
      if (next_tick <= now) next_tick = now + timing.tick_ms;  // late: no catching up
      rows.Flush();
      now = NowMs();
    }
    if (keys && now >= next_key) {
      if (platform::KeyPressed()) {
        platform::DiscardKeys();
        return LiveEnd::kKey;
      }
      next_key = now + kKeyCheckMs;
    }
    uint64_t wait = kLiveSliceMs;
    if (timing.duration_ms) {
      const uint64_t end = start + *timing.duration_ms;
      wait = std::min(wait, end > now ? end - now : 0);
    }
    if (timing.tick_ms != 0) wait = std::min(wait, next_tick > now ? next_tick - now : 0);
    if (keys) wait = std::min(wait, kKeyCheckMs);
    // A receive that runs into its limit drops a frame begun: give its rest the time a
    // transaction gives a frame.
    if (link.HasPartialFrame()) wait = kPartialFrameMs;
    if (!link.ReceiveFrame(frame.data(), static_cast<int>(wait))) {
      if (link.Broken()) return LiveEnd::kClosed;
      continue;
    }
    now = NowMs();
    on_frame(frame.data(), static_cast<uint32_t>(now - start));
  }
}

}  // namespace kel
