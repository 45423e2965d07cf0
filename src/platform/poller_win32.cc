#include <winsock2.h>

#include <mutex>
#include <vector>

#include "platform/poller.h"

namespace kel::platform {
namespace {

// The wake-up socket's token never reaches the caller.
constexpr uint64_t kWakeToken = ~uint64_t{0};

SHORT PollBits(uint32_t interest) {
  SHORT bits = 0;
  if ((interest & kPollRead) != 0) bits |= POLLRDNORM;
  if ((interest & kPollWrite) != 0) bits |= POLLWRNORM;
  return bits;
}

}  // namespace

// Windows has no epoll: the watched sockets are kept in a list that every Wait hands to
// WSAPoll, and a loopback connection carries the wake-ups.
struct Poller::Impl {
  struct Entry {
    SOCKET socket;
    uint32_t interest;
    uint64_t token;
  };
  std::mutex mutex;
  std::vector<Entry> entries;
  Socket wake_in;   // Wait watches this end
  Socket wake_out;  // Wake writes a byte here
  size_t rotate = 0;

  bool MakeWakePair() {
    Socket listener = ListenTcp(SocketAddress{htonl(INADDR_LOOPBACK), 0}, 1);
    if (!listener.Valid()) return false;
    wake_out = NewTcpSocket();
    if (!wake_out.Valid() || !ConnectBlocking(wake_out, LocalAddress(listener))) return false;
    wake_in = Accept(listener);
    return wake_in.Valid() && SetNonBlocking(wake_in, true) && SetNonBlocking(wake_out, true);
  }
};

Poller::Poller() : impl_(std::make_unique<Impl>()) {
  if (!impl_->MakeWakePair()) {
    impl_->wake_in.Close();
    impl_->wake_out.Close();
  }
}

Poller::~Poller() = default;

bool Poller::Valid() const { return impl_->wake_in.Valid() && impl_->wake_out.Valid(); }

bool Poller::Add(const Socket& socket, uint32_t interest, uint64_t token) {
  return AddHandle(socket.Handle(), interest, token);
}

bool Poller::Modify(const Socket& socket, uint32_t interest, uint64_t token) {
  return ModifyHandle(socket.Handle(), interest, token);
}

void Poller::Remove(const Socket& socket) { RemoveHandle(socket.Handle()); }

bool Poller::AddHandle(intptr_t handle, uint32_t interest, uint64_t token) {
  std::lock_guard lock(impl_->mutex);
  impl_->entries.push_back({static_cast<SOCKET>(handle), interest, token});
  return true;
}

bool Poller::ModifyHandle(intptr_t handle, uint32_t interest, uint64_t token) {
  std::lock_guard lock(impl_->mutex);
  for (Impl::Entry& e : impl_->entries) {
    if (e.socket == static_cast<SOCKET>(handle)) {
      e.interest = interest;
      e.token = token;
      return true;
    }
  }
  return false;
}

void Poller::RemoveHandle(intptr_t handle) {
  std::lock_guard lock(impl_->mutex);
  std::erase_if(impl_->entries,
                [handle](const Impl::Entry& e) { return e.socket == static_cast<SOCKET>(handle); });
}

int Poller::Wait(std::span<PollEvent> events, int timeout_ms) {
  std::vector<WSAPOLLFD> fds;
  std::vector<uint64_t> tokens;
  {
    std::lock_guard lock(impl_->mutex);
    fds.reserve(impl_->entries.size() + 1);
    for (const Impl::Entry& e : impl_->entries) {
      fds.push_back(WSAPOLLFD{e.socket, PollBits(e.interest), 0});
      tokens.push_back(e.token);
    }
  }
  fds.push_back(WSAPOLLFD{static_cast<SOCKET>(impl_->wake_in.Handle()), POLLRDNORM, 0});
  tokens.push_back(kWakeToken);
  const int n =
      WSAPoll(fds.data(), static_cast<ULONG>(fds.size()), timeout_ms < 0 ? -1 : timeout_ms);
  if (n == SOCKET_ERROR) return -1;
  int filled = 0;
  // Start the scan at a different place each time, so that when more sockets are ready
  // than there is room for, none waits for ever.
  const size_t count = fds.size();
  const size_t start = impl_->rotate++ % count;
  for (size_t k = 0; k < count && static_cast<size_t>(filled) < events.size(); ++k) {
    const size_t i = (start + k) % count;
    const SHORT got = fds[i].revents;
    if (got == 0) continue;
    if (tokens[i] == kWakeToken) {
      char drain[64];
      while (recv(fds[i].fd, drain, sizeof drain, 0) > 0) {
      }
      continue;
    }
    PollEvent& out = events[static_cast<size_t>(filled++)];
    out.token = tokens[i];
    out.readable = (got & (POLLRDNORM | POLLHUP)) != 0;
    out.writable = (got & POLLWRNORM) != 0;
    out.failed = (got & (POLLERR | POLLHUP | POLLNVAL)) != 0;
  }
  return filled;
}

void Poller::Wake() {
  const char one = 1;
  // A full buffer already means a wake-up is pending.
  send(static_cast<SOCKET>(impl_->wake_out.Handle()), &one, 1, 0);
}

}  // namespace kel::platform
