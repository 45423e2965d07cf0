#include <errno.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "platform/poller.h"

namespace kel::platform {
namespace {

// The wake-up descriptor's token: never a valid socket token because it never reaches the
// caller.
constexpr uint64_t kWakeToken = ~uint64_t{0};

uint32_t EpollBits(uint32_t interest) {
  uint32_t bits = 0;
  if ((interest & kPollRead) != 0) bits |= EPOLLIN;
  if ((interest & kPollWrite) != 0) bits |= EPOLLOUT;
  return bits;
}

}  // namespace

struct Poller::Impl {
  int epoll_fd = -1;
  int wake_fd = -1;

  ~Impl() {
    if (wake_fd >= 0) close(wake_fd);
    if (epoll_fd >= 0) close(epoll_fd);
  }

  bool Control(int op, intptr_t handle, uint32_t interest, uint64_t token) {
    epoll_event event{};
    event.events = EpollBits(interest);
    event.data.u64 = token;
    return epoll_ctl(epoll_fd, op, static_cast<int>(handle), &event) == 0;
  }
};

Poller::Poller() : impl_(std::make_unique<Impl>()) {
  impl_->epoll_fd = epoll_create1(EPOLL_CLOEXEC);
  impl_->wake_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (impl_->epoll_fd < 0 || impl_->wake_fd < 0) return;
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = kWakeToken;
  if (epoll_ctl(impl_->epoll_fd, EPOLL_CTL_ADD, impl_->wake_fd, &event) != 0) {
    close(impl_->wake_fd);
    impl_->wake_fd = -1;
  }
}

Poller::~Poller() = default;

bool Poller::Valid() const { return impl_->epoll_fd >= 0 && impl_->wake_fd >= 0; }

bool Poller::Add(const Socket& socket, uint32_t interest, uint64_t token) {
  return AddHandle(socket.Handle(), interest, token);
}

bool Poller::Modify(const Socket& socket, uint32_t interest, uint64_t token) {
  return ModifyHandle(socket.Handle(), interest, token);
}

void Poller::Remove(const Socket& socket) { RemoveHandle(socket.Handle()); }

bool Poller::AddHandle(intptr_t handle, uint32_t interest, uint64_t token) {
  return impl_->Control(EPOLL_CTL_ADD, handle, interest, token);
}

bool Poller::ModifyHandle(intptr_t handle, uint32_t interest, uint64_t token) {
  return impl_->Control(EPOLL_CTL_MOD, handle, interest, token);
}

void Poller::RemoveHandle(intptr_t handle) {
  epoll_event unused{};
  epoll_ctl(impl_->epoll_fd, EPOLL_CTL_DEL, static_cast<int>(handle), &unused);
}

int Poller::Wait(std::span<PollEvent> events, int timeout_ms) {
  std::array<epoll_event, 128> ready;
  const int capacity = static_cast<int>(std::min(events.size(), ready.size()));
  const int n =
      epoll_wait(impl_->epoll_fd, ready.data(), capacity, timeout_ms < 0 ? -1 : timeout_ms);
  if (n < 0) return errno == EINTR ? 0 : -1;
  int filled = 0;
  for (int i = 0; i < n; ++i) {
    const epoll_event& e = ready[static_cast<size_t>(i)];
    if (e.data.u64 == kWakeToken) {
      uint64_t count = 0;
      while (read(impl_->wake_fd, &count, sizeof count) > 0) {
      }
      continue;
    }
    PollEvent& out = events[static_cast<size_t>(filled++)];
    out.token = e.data.u64;
    out.readable = (e.events & EPOLLIN) != 0;
    out.writable = (e.events & EPOLLOUT) != 0;
    out.failed = (e.events & (EPOLLERR | EPOLLHUP)) != 0;
  }
  return filled;
}

void Poller::Wake() {
  const uint64_t one = 1;
  // A full counter already means a wake-up is pending, so a failed write loses nothing.
  [[maybe_unused]] const ssize_t written = write(impl_->wake_fd, &one, sizeof one);
}

}  // namespace kel::platform
