#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "proxy/message_sink.h"
#include "proxy/tcp_server.h"

namespace kel {

/// Where the proxy listens and where it relays to.
struct ProxyConfig {
  std::string device_address = "127.0.0.1";
  int32_t device_port = 27015;
  int32_t proxy_port = 27015;
};

/// The proxy listens on this many consecutive ports, from the device port up.
inline constexpr int kProxyPortCount = 5;

/// True when the proxy would listen where the device is: the device address reads as
/// 0x7F000001 with its bytes as they lie in memory, and the proxy port is the device port.
/// On a little-endian host only the text "1.0.0.127" reads so, not "127.0.0.1"; the
/// board's tools have always compared this way.
bool ProxyOverlaps(std::string_view device_address, int32_t device_port, int32_t proxy_port);

/// The device port that a client accepted at `local_port` is relayed to:
/// device port + (local port - proxy port).
int64_t UpstreamPort(int32_t device_port, int32_t proxy_port, int32_t local_port);

/// The CAN proxy: listens on kProxyPortCount local ports and relays every client byte for
/// byte to its own connection to the device, in both directions, one thread each way.
class CanProxy {
 public:
  /// `sink` gets every text of the proxy and its server; it must outlive the proxy.
  explicit CanProxy(MessageSink& sink);
  /// Stops the proxy.
  ~CanProxy();
  CanProxy(const CanProxy&) = delete;
  CanProxy& operator=(const CanProxy&) = delete;

  /// Starts listening. False, with everything undone and the reason written to the sink,
  /// when the ports overlap the device or a port cannot listen. A running proxy stays as
  /// it is: true.
  bool Start(const ProxyConfig& config);
  /// Closes the listening ports and every client and device connection, and joins every
  /// thread.
  void Stop();
  bool Running() const { return running_; }
  /// How many clients are connected now.
  size_t ClientCount() const { return server_.ClientCount(); }

 private:
  struct Core;
  MessageSink& sink_;
  std::shared_ptr<Core> core_;
  TcpServer server_;
  bool running_ = false;
};

/// The process-wide proxy, set up from the current settings (device address and port,
/// proxy port); its texts go to the console.
bool StartProxy();
void StopProxy();
bool ProxyRunning();

/// "Proxy is running.\n" or "Proxy is not running.\n"
std::string ProxyStatusText(bool running);

}  // namespace kel
