#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/socket.h"
#include "platform/subprocess.h"
#include "support/temp_dir.h"

namespace kel::testing {

/// build/bin/kelsim as a process of its own on ports it picks, with `args` as further
/// options; ended when the object goes.
class KelsimProcess {
 public:
  explicit KelsimProcess(const std::vector<std::string>& args = {});
  ~KelsimProcess();
  KelsimProcess(const KelsimProcess&) = delete;
  KelsimProcess& operator=(const KelsimProcess&) = delete;

  /// 0 when kelsim did not start.
  uint16_t BasePort() const { return base_port_; }
  platform::SocketAddress Address(int channel) const;
  /// What kelsim printed so far.
  std::string Output() const;

  /// Waits until the board counts `count` clients on all channels together.
  bool WaitForClients(uint32_t count) const;

  /// Asks kelsim to end (SIGTERM on Linux; on Windows it is terminated) and waits for it.
  platform::ChildExit Stop();

 private:
  TempDir dir_;
  std::string output_;
  platform::ChildProcess process_;
  uint16_t base_port_ = 0;
  bool stopped_ = false;
};

}  // namespace kel::testing
