#include "proxy/tcp_server.h"

#include <atomic>
#include <list>
#include <mutex>
#include <utility>
#include <vector>

#include "core/parse.h"
#include "platform/clock.h"
#include "platform/socket_options.h"
#include "platform/thread.h"

namespace kel {
namespace {

// The server's texts.
constexpr const char* kListeningText = "Listening port %u\n";
constexpr const char* kSocketFailedText = "***ERROR : socket() failed\n";
constexpr const char* kCreateThreadFailedText = "***ERROR : create_thread failed\n";
constexpr const char* kClientConnectionText = "Client connection\n";
constexpr const char* kReceivedText = "[%u] Received data (%d bytes)\n";
constexpr const char* kClientDisconnectedText = "Client disconnected\n";
constexpr const char* kDataSentText = "[%u] Data sent (%d bytes)\n";
constexpr const char* kSendFailedText = "[%u] Failed to send (%d bytes)\n";
constexpr const char* kLeftRunningText = "Thread still running after %d ms - detached\n";

constexpr int kBacklog = 0x7fffffff;  // the system cuts it to its own limit
constexpr size_t kBlockSize = 8192;
// A failed accept that is not the stop (a full descriptor table, say) is retried after a
// pause rather than at once.
constexpr uint32_t kAcceptRetryMs = 10;
constexpr int kAcceptSliceMs = 200;

int ByteCount(size_t size) { return static_cast<int>(size); }

}  // namespace

TcpClient::TcpClient(uint32_t id, platform::Socket socket, platform::SocketAddress peer,
                     platform::SocketAddress local, MessageSink& sink)
    : id_(id), socket_(std::move(socket)), peer_(peer), local_(local), sink_(sink) {}

bool TcpClient::Send(const void* data, size_t size) {
  const bool sent = SendAll(socket_, data, size);
  Report(sink_, MessageLevel::kTrace, sent ? kDataSentText : kSendFailedText, id_, ByteCount(size));
  return sent;
}

void TcpClient::ShutdownSend() const { platform::ShutdownSend(socket_); }

struct TcpServer::Slot {
  uint32_t ip = 0;
  int port = 0;
  DataCallback on_data;
  platform::Socket listener;
  std::atomic<bool> stopping{false};
  platform::Thread accept_thread;
};

// What the server's threads share with it; a thread left running after a stop keeps it.
struct TcpServer::Core {
  explicit Core(MessageSink& message_sink) : sink(message_sink) {}

  struct Client {
    std::weak_ptr<TcpClient> client;
    platform::Thread thread;
  };

  MessageSink& sink;
  ConnectCallback on_connect;
  DisconnectCallback on_disconnect;
  std::vector<std::shared_ptr<Slot>> slots;  // touched only by the owner's thread

  std::mutex mutex;  // the server lock: everything below
  std::list<Client> clients;
  uint32_t next_id = 1;
  bool closing = false;

  void NoteLeftRunning() {
    Report(sink, MessageLevel::kError, kLeftRunningText, platform::kThreadJoinLimitMs);
  }

  void AcceptLoop(const std::shared_ptr<Core>& self, const std::shared_ptr<Slot>& slot);
  void AddClient(const std::shared_ptr<Core>& self, const std::shared_ptr<Slot>& slot,
                 platform::Socket socket, platform::SocketAddress peer);
  void ServeClient(const DataCallback& on_data, const std::shared_ptr<TcpClient>& client);
};

void TcpServer::Core::AcceptLoop(const std::shared_ptr<Core>& self,
                                 const std::shared_ptr<Slot>& slot) {
  while (!slot->stopping) {
    // Shutting a listener down does not wake an accept everywhere, so the loop waits for
    // a client in slices and looks at its stop flag between them.
    if (platform::WaitReadable(slot->listener, kAcceptSliceMs) != platform::WaitStatus::kReadable) {
      continue;
    }
    platform::SocketAddress peer;
    platform::Socket socket = platform::Accept(slot->listener, &peer);
    if (!socket.Valid()) {
      if (!slot->stopping) platform::SleepMs(kAcceptRetryMs);
      continue;
    }
    platform::SetNoDelay(socket);
    Report(sink, MessageLevel::kTrace, kClientConnectionText);
    AddClient(self, slot, std::move(socket), peer);
  }
}

void TcpServer::Core::AddClient(const std::shared_ptr<Core>& self,
                                const std::shared_ptr<Slot>& slot, platform::Socket socket,
                                platform::SocketAddress peer) {
  std::list<Client> ended;  // joined (at once: their bodies are over) outside the lock
  std::lock_guard lock(mutex);
  for (auto it = clients.begin(); it != clients.end();) {
    const auto next = std::next(it);
    if (it->thread.Finished()) ended.splice(ended.end(), clients, it);
    it = next;
  }
  if (closing) return;
  const platform::SocketAddress local = platform::LocalAddress(socket);
  auto client = std::make_shared<TcpClient>(next_id++, std::move(socket), peer, local, sink);
  Client& entry = clients.emplace_back();
  entry.client = client;
  if (!entry.thread.Start(
          [self, on_data = slot->on_data, client] { self->ServeClient(on_data, client); })) {
    Report(sink, MessageLevel::kError, kCreateThreadFailedText);
    clients.pop_back();
  }
}

void TcpServer::Core::ServeClient(const DataCallback& on_data,
                                  const std::shared_ptr<TcpClient>& client) {
  if (on_connect && on_connect(client) != 0) {
    client->Shutdown();
    return;
  }
  uint8_t block[kBlockSize];
  while (true) {
    const platform::IoResult r = platform::Receive(client->Socket(), block, sizeof block);
    if (r.status == platform::IoStatus::kWouldBlock) continue;
    if (r.status != platform::IoStatus::kOk) break;
    Report(sink, MessageLevel::kTrace, kReceivedText, client->Id(), ByteCount(r.bytes));
    if (on_data) on_data(*client, block, r.bytes);
    if (r.bytes < kSmallReceive) platform::YieldThread();
  }
  Report(sink, MessageLevel::kTrace, kClientDisconnectedText);
  // The disconnect callback comes before the shutdown, so that what is still on its way to
  // the client can reach it (the proxy relays the device's rest); then the client reads
  // the end.
  if (on_disconnect) on_disconnect(*client);
  client->Shutdown();
}

TcpServer::TcpServer(MessageSink& sink) : core_(std::make_shared<Core>(sink)) {}

TcpServer::~TcpServer() { Stop(); }

void TcpServer::Configure(std::string_view bind_address, int first_port, int last_port,
                          DataCallback on_data, ConnectCallback on_connect,
                          DisconnectCallback on_disconnect) {
  core_->on_connect = std::move(on_connect);
  core_->on_disconnect = std::move(on_disconnect);
  const uint32_t ip = bind_address.empty() ? 0 : InetAddr(bind_address);
  for (int port = first_port; port <= last_port; ++port) {
    auto slot = std::make_shared<Slot>();
    slot->ip = ip;
    slot->port = port;
    slot->on_data = on_data;
    core_->slots.push_back(std::move(slot));
  }
}

bool TcpServer::Start() {
  {
    std::lock_guard lock(core_->mutex);
    core_->closing = false;
  }
  for (const std::shared_ptr<Slot>& slot : core_->slots) {
    if (slot->listener.Valid()) continue;
    if (slot->port > 0 && slot->port <= 0xFFFF) {
      slot->listener = platform::ListenTcp({slot->ip, static_cast<uint16_t>(slot->port)}, kBacklog);
    }
    if (!slot->listener.Valid()) {
      Report(core_->sink, MessageLevel::kError, kSocketFailedText);
      return false;
    }
    slot->stopping = false;
    if (!slot->accept_thread.Start([core = core_, slot] { core->AcceptLoop(core, slot); })) {
      Report(core_->sink, MessageLevel::kError, kCreateThreadFailedText);
      slot->listener.Close();
      return false;
    }
    Report(core_->sink, MessageLevel::kInfo, kListeningText, static_cast<unsigned>(slot->port));
  }
  return true;
}

void TcpServer::Stop() {
  // Listening sockets first, so that no client joins while the clients are closed.
  for (const std::shared_ptr<Slot>& slot : core_->slots) {
    slot->stopping = true;
    slot->listener.Shutdown();
    if (!slot->accept_thread.JoinFor(platform::kThreadJoinLimitMs)) core_->NoteLeftRunning();
  }
  core_->slots.clear();

  std::list<Core::Client> clients;
  {
    std::lock_guard lock(core_->mutex);
    core_->closing = true;
    for (Core::Client& entry : core_->clients) {
      if (const std::shared_ptr<TcpClient> client = entry.client.lock()) client->Shutdown();
    }
    clients.swap(core_->clients);
  }
  // Each thread needs the lock no more: it ends once its socket is shut down.
  for (Core::Client& entry : clients) {
    if (!entry.thread.JoinFor(platform::kThreadJoinLimitMs)) core_->NoteLeftRunning();
  }
}

size_t TcpServer::ClientCount() const {
  std::lock_guard lock(core_->mutex);
  size_t count = 0;
  for (const Core::Client& entry : core_->clients) count += entry.thread.Finished() ? 0 : 1;
  return count;
}

bool SendAll(const platform::Socket& socket, const void* data, size_t size) {
  const auto* bytes = static_cast<const uint8_t*>(data);
  while (size > 0) {
    const platform::IoResult r = platform::Send(socket, bytes, size);
    if (r.status == platform::IoStatus::kOk) {
      bytes += r.bytes;
      size -= r.bytes;
    } else if (r.status != platform::IoStatus::kWouldBlock) {
      return false;
    }
  }
  return true;
}

}  // namespace kel
