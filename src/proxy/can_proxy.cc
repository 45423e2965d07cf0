#include "proxy/can_proxy.h"

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <set>

#include "config/settings.h"
#include "core/parse.h"
#include "platform/clock.h"
#include "platform/socket.h"
#include "platform/socket_options.h"
#include "platform/thread.h"

namespace kel {
namespace {

// The proxy's texts.
constexpr const char* kOverlapText =
    "IP and port overlapping - check the device address and ports!\n";
constexpr const char* kLaunchFailedText =
    "Failed to launch proxy - check the device address and ports!\n";
constexpr const char* kStatusFormat = "Proxy is %s\n";
constexpr const char* kSelfRelayText =
    "***ERROR : port %u would relay into the proxy itself - client refused\n";
constexpr const char* kUpstreamFailedText = "***ERROR : device %s:%lld not reached\n";
constexpr const char* kCreateThreadFailedText = "***ERROR : create_thread failed\n";
constexpr const char* kLeftRunningText = "Thread still running after %d ms - detached\n";

constexpr uint32_t kOverlapAddress = 0x7F000001U;
constexpr size_t kRelayBlock = 8192;
constexpr int64_t kPortLimit = 0x10000;
// While a closing device connection waits for the device's end, the time limit is looked
// at this often.
constexpr int kCloseSliceMs = 20;

// True when connections to `ip` stay on this host: it can be bound to.
bool IsLocalAddress(uint32_t ip) { return platform::ListenTcp({ip, 0}, 1).Valid(); }

}  // namespace

bool ProxyOverlaps(std::string_view device_address, int32_t device_port, int32_t proxy_port) {
  return InetAddr(device_address) == kOverlapAddress && proxy_port == device_port;
}

int64_t UpstreamPort(int32_t device_port, int32_t proxy_port, int32_t local_port) {
  return int64_t{device_port} + (int64_t{local_port} - proxy_port);
}

std::string ProxyStatusText(bool running) {
  char text[64];
  std::snprintf(text, sizeof text, kStatusFormat, running ? "running." : "not running.");
  return text;
}

namespace {

// One client's connection to the device and the thread that relays the device's bytes back.
struct Upstream {
  platform::Socket socket;
  platform::Thread relay;
};

}  // namespace

// What the proxy's callbacks and relay threads share; a new one for every start.
struct CanProxy::Core {
  Core(MessageSink& message_sink, const ProxyConfig& config)
      : sink(message_sink),
        device_ip(InetAddr(config.device_address)),
        device_address(config.device_address),
        device_port(config.device_port),
        proxy_port(config.proxy_port),
        device_is_local(IsLocalAddress(device_ip)) {}

  MessageSink& sink;
  const uint32_t device_ip;
  const std::string device_address;
  const int32_t device_port;
  const int32_t proxy_port;
  const bool device_is_local;

  std::mutex mutex;  // guards what follows
  bool stopping = false;
  std::set<std::shared_ptr<Upstream>> upstreams;

  int OpenUpstream(const std::shared_ptr<Core>& self, const std::shared_ptr<TcpClient>& client);
  int Forward(TcpClient& client, const uint8_t* data, size_t size);
  void CloseUpstream(TcpClient& client);
  void Relay(Upstream& upstream, TcpClient& client);
  // Wakes and forgets a device connection; returns whether the proxy is stopping.
  bool Unregister(const std::shared_ptr<Upstream>& upstream);
  // Wakes every thread that waits on a device connection, and refuses new ones.
  void BeginStop();
};

int CanProxy::Core::OpenUpstream(const std::shared_ptr<Core>& self,
                                 const std::shared_ptr<TcpClient>& client) {
  const int64_t port = UpstreamPort(device_port, proxy_port, client->Local().port);
  // With the device on this host, a port of the proxy's own would have every connection
  // accepted again and relayed once more, without end.
  if (device_is_local && port >= device_port && port < int64_t{device_port} + kProxyPortCount) {
    Report(sink, MessageLevel::kError, kSelfRelayText, static_cast<unsigned>(client->Local().port));
    return -1;
  }
  if (port <= 0 || port >= kPortLimit) {
    Report(sink, MessageLevel::kError, kUpstreamFailedText, device_address.c_str(),
           static_cast<long long>(port));
    return -1;
  }
  auto upstream = std::make_shared<Upstream>();
  {
    std::lock_guard lock(mutex);
    if (stopping) return -1;
    upstream->socket = platform::NewTcpSocket();
    upstreams.insert(upstream);
  }
  if (!upstream->socket.Valid() ||
      !platform::ConnectBlocking(upstream->socket, {device_ip, static_cast<uint16_t>(port)})) {
    // A connect that the stop broke off is no failure of the device.
    if (!Unregister(upstream)) {
      Report(sink, MessageLevel::kError, kUpstreamFailedText, device_address.c_str(),
             static_cast<long long>(port));
    }
    return -1;
  }
  if (!upstream->relay.Start([self, upstream, client] { self->Relay(*upstream, *client); })) {
    Report(sink, MessageLevel::kError, kCreateThreadFailedText);
    Unregister(upstream);
    return -1;
  }
  client->state = upstream;
  return 0;
}

int CanProxy::Core::Forward(TcpClient& client, const uint8_t* data, size_t size) {
  const auto* upstream = static_cast<const Upstream*>(client.state.get());
  if (upstream == nullptr || !upstream->socket.Valid()) return -1;
  return SendAll(upstream->socket, data, size) ? 0 : -1;
}

void CanProxy::Core::Relay(Upstream& upstream, TcpClient& client) {
  uint8_t block[kRelayBlock];
  while (true) {
    const platform::IoResult r = platform::Receive(upstream.socket, block, sizeof block);
    if (r.status == platform::IoStatus::kWouldBlock) continue;
    if (r.status != platform::IoStatus::kOk) break;
    if (!client.Send(block, r.bytes)) return;
    if (r.bytes < kSmallReceive) platform::YieldThread();
  }
  // The device's end reaches the client as the end of its stream, so that a reader there
  // fails at once instead of waiting for its time limit.
  client.ShutdownSend();
}

void CanProxy::Core::CloseUpstream(TcpClient& client) {
  const auto upstream = std::static_pointer_cast<Upstream>(client.state);
  client.state.reset();
  if (!upstream) return;
  // The client sends no more: the device reads everything relayed to it, then the end, and
  // what it still sends goes on to the client until it closes (the relay then ends) or
  // the closing wait is over. Shutting both directions at once would reset the device's
  // connection and lose the frames still on their way to it.
  platform::ShutdownSend(upstream->socket);
  const uint64_t start = platform::MonotonicMs();
  while (!upstream->relay.WaitFor(kCloseSliceMs) &&
         !platform::CloseWaitOver(upstream->socket, platform::MonotonicMs() - start)) {
  }
  Unregister(upstream);
  if (!upstream->relay.JoinFor(platform::kThreadJoinLimitMs)) {
    Report(sink, MessageLevel::kError, kLeftRunningText, platform::kThreadJoinLimitMs);
  }
}

bool CanProxy::Core::Unregister(const std::shared_ptr<Upstream>& upstream) {
  std::lock_guard lock(mutex);
  upstream->socket.Shutdown();
  upstreams.erase(upstream);
  return stopping;
}

void CanProxy::Core::BeginStop() {
  std::lock_guard lock(mutex);
  stopping = true;
  for (const std::shared_ptr<Upstream>& upstream : upstreams) upstream->socket.Shutdown();
}

CanProxy::CanProxy(MessageSink& sink) : sink_(sink), server_(sink) {}

CanProxy::~CanProxy() { Stop(); }

bool CanProxy::Start(const ProxyConfig& config) {
  if (running_) return true;
  if (ProxyOverlaps(config.device_address, config.device_port, config.proxy_port)) {
    Report(sink_, MessageLevel::kError, kOverlapText);
    return false;
  }
  auto core = std::make_shared<Core>(sink_, config);
  core_ = core;
  // Ports past the last one fail to listen; the range is cut so that the count is small.
  const int first = static_cast<int>(std::min<int64_t>(config.device_port, kPortLimit));
  const int last = static_cast<int>(
      std::min<int64_t>(int64_t{config.device_port} + kProxyPortCount - 1, kPortLimit));
  server_.Configure(
      "", first, last,
      [core](TcpClient& client, const uint8_t* data, size_t size) {
        return core->Forward(client, data, size);
      },
      [core](const std::shared_ptr<TcpClient>& client) { return core->OpenUpstream(core, client); },
      [core](TcpClient& client) { core->CloseUpstream(client); });
  if (!server_.Start()) {
    Stop();
    Report(sink_, MessageLevel::kError, kLaunchFailedText);
    return false;
  }
  running_ = true;
  return true;
}

void CanProxy::Stop() {
  running_ = false;
  if (core_) core_->BeginStop();
  server_.Stop();
  core_.reset();
}

namespace {

CanProxy& TheProxy() {
  static CanProxy proxy(ConsoleMessageSink());
  return proxy;
}

}  // namespace

bool StartProxy() {
  const Settings& s = CurrentSettings();
  return TheProxy().Start(ProxyConfig{s.device_address, s.device_port, s.proxy_port});
}

void StopProxy() { TheProxy().Stop(); }

bool ProxyRunning() { return TheProxy().Running(); }

}  // namespace kel
