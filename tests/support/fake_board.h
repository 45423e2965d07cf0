#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "device/frame.h"
#include "platform/socket.h"

namespace kel::testing {

/// A scripted peer for the shell's device link: listens on a free loopback port, accepts
/// clients one after the other and runs the script with each, on its own thread.
class FakeBoard {
 public:
  using Script = std::function<void(platform::Socket& client)>;

  explicit FakeBoard(Script script);
  ~FakeBoard();
  FakeBoard(const FakeBoard&) = delete;
  FakeBoard& operator=(const FakeBoard&) = delete;

  uint16_t Port() const { return port_; }
  int Accepted() const { return accepted_.load(); }

  /// Reads one whole frame from `client` within `timeout_ms`.
  static bool ReadFrame(platform::Socket& client, FrameBytes& frame, int timeout_ms = 10000);
  /// Writes all of `bytes`.
  static void Write(platform::Socket& client, const uint8_t* bytes, size_t size);
  static void Write(platform::Socket& client, const FrameBytes& frame) {
    Write(client, frame.data(), frame.size());
  }

 private:
  Script script_;
  platform::Socket listener_;
  uint16_t port_ = 0;
  std::atomic<bool> stop_{false};
  std::atomic<int> accepted_{0};
  std::thread thread_;
};

}  // namespace kel::testing
