#include <errno.h>
#include <linux/netlink.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "platform/usb_events.h"

namespace kel::platform {
namespace {

constexpr size_t kMessageLimit = 8192;  // uevents are at most a few KiB
constexpr uint32_t kKernelGroup = 1;    // the kernel's own events (udev re-sends on group 2)

}  // namespace

struct UsbEventSource::Impl {
  Socket socket;
  bool netlink = false;
  bool failed = false;
};

UsbEventSource::UsbEventSource() : impl_(std::make_unique<Impl>()) {}

UsbEventSource::UsbEventSource(Socket socket) : UsbEventSource() {
  impl_->socket = std::move(socket);
}

UsbEventSource::~UsbEventSource() = default;

bool UsbEventSource::Open() {
  Close();
  Socket socket(::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT));
  if (!socket.Valid()) return false;
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = kKernelGroup;
  if (bind(static_cast<int>(socket.Handle()), reinterpret_cast<const sockaddr*>(&address),
           sizeof address) != 0) {
    return false;
  }
  impl_->socket = std::move(socket);
  impl_->netlink = true;
  return true;
}

bool UsbEventSource::Receive(UsbEvent& event, int timeout_ms) {
  if (!impl_->socket.Valid()) return false;
  const int fd = static_cast<int>(impl_->socket.Handle());
  pollfd p{fd, POLLIN, 0};
  const int ready = poll(&p, 1, timeout_ms);
  if (ready < 0 && errno != EINTR) impl_->failed = true;
  if (ready <= 0) return false;
  // An error (netlink's buffer ran over) is taken by the receive below; a hang-up with
  // nothing to read ends the source.
  if ((p.revents & (POLLIN | POLLERR)) == 0) {
    impl_->failed = true;
    return false;
  }
  std::string message(kMessageLimit, '\0');
  sockaddr_nl from{};
  socklen_t from_size = sizeof from;
  const ssize_t length = recvfrom(fd, message.data(), message.size(), MSG_DONTWAIT,
                                  reinterpret_cast<sockaddr*>(&from), &from_size);
  if (length < 0) {
    // ENOBUFS: notices were lost to a full buffer; the next ones come as before.
    impl_->failed = errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR && errno != ENOBUFS;
    return false;
  }
  if (length == 0) return false;
  // On netlink only the kernel (port 0) is believed; any process may send to the group.
  if (impl_->netlink && from.nl_pid != 0) return false;
  message.resize(static_cast<size_t>(length));
  const std::optional<UsbEvent> parsed = ParseUevent(message);
  if (!parsed) return false;
  event = *parsed;
  return true;
}

bool UsbEventSource::Failed() const { return !impl_->socket.Valid() || impl_->failed; }

void UsbEventSource::Close() {
  impl_->socket.Close();
  impl_->netlink = false;
  impl_->failed = false;
}

bool DatagramPair(Socket& first, Socket& second) {
  int fds[2];
  if (socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, fds) != 0) return false;
  first = Socket(fds[0]);
  second = Socket(fds[1]);
  return true;
}

}  // namespace kel::platform
