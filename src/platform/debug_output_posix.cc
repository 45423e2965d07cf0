#include <errno.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <fstream>

#include "platform/debug_output.h"
#include "platform/environment.h"

namespace kel::platform {
namespace {

constexpr size_t kMessageLimit = 64 * 1024;
constexpr size_t kNameLimit = 255;

bool ToAddress(const std::string& path, sockaddr_un& address) {
  address = sockaddr_un{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) return false;
  std::memcpy(address.sun_path, path.data(), path.size());
  return true;
}

int NewDatagramSocket() { return socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0); }

// True when a reader answers at `address`: a datagram socket connects only to a bound one.
bool SomeoneListens(const sockaddr_un& address) {
  const int probe = NewDatagramSocket();
  if (probe < 0) return true;  // cannot tell: leave the file alone
  const bool answered =
      connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ||
      errno != ECONNREFUSED;
  close(probe);
  return answered;
}

}  // namespace

struct DebugOutputReader::Impl {
  int fd = -1;
  std::string path;
  bool failed = false;
};

std::string DebugOutputPath() {
  const std::string runtime = GetEnvironment("XDG_RUNTIME_DIR");
  if (!runtime.empty()) return runtime + "/kelcmd-debug.sock";
  return "/tmp/kelcmd-debug-" + std::to_string(getuid()) + ".sock";
}

DebugOutputReader::DebugOutputReader() : impl_(std::make_unique<Impl>()) {}

DebugOutputReader::~DebugOutputReader() { Close(); }

bool DebugOutputReader::Open(const std::string& path) {
  Close();
  sockaddr_un address;
  if (!ToAddress(path, address)) return false;
  const int fd = NewDatagramSocket();
  if (fd < 0) return false;
  // Every datagram then comes with its sender's credentials, whether it sends them or not.
  const int on = 1;
  bool bound = setsockopt(fd, SOL_SOCKET, SO_PASSCRED, &on, sizeof on) == 0 &&
               bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  if (!bound && errno == EADDRINUSE && !SomeoneListens(address)) {
    unlink(path.c_str());  // left behind by a reader that ended without closing
    bound = bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  }
  if (!bound) {
    close(fd);
    return false;
  }
  impl_->fd = fd;
  impl_->path = path;
  impl_->failed = false;
  return true;
}

bool DebugOutputReader::Receive(DebugMessage& message, int timeout_ms) {
  if (impl_->fd < 0) return false;
  pollfd p{impl_->fd, POLLIN, 0};
  const int ready = poll(&p, 1, timeout_ms);
  if (ready < 0 && errno != EINTR) impl_->failed = true;
  if (ready <= 0) return false;
  if ((p.revents & POLLIN) == 0) {
    impl_->failed = true;  // an error or hang-up and nothing to read
    return false;
  }
  message.text.resize(kMessageLimit);
  iovec data{message.text.data(), message.text.size()};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))];
  msghdr header{};
  header.msg_iov = &data;
  header.msg_iovlen = 1;
  header.msg_control = control;
  header.msg_controllen = sizeof control;
  const ssize_t length = recvmsg(impl_->fd, &header, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
  if (length < 0) {
    impl_->failed = errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR;
    return false;
  }
  message.text.resize(static_cast<size_t>(length));  // a longer datagram was cut
  message.pid = 0;
  for (cmsghdr* c = CMSG_FIRSTHDR(&header); c != nullptr; c = CMSG_NXTHDR(&header, c)) {
    if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SCM_CREDENTIALS) {
      ucred credentials;
      std::memcpy(&credentials, CMSG_DATA(c), sizeof credentials);
      message.pid = static_cast<uint32_t>(credentials.pid);
    }
  }
  return true;
}

bool DebugOutputReader::Failed() const { return impl_->fd < 0 || impl_->failed; }

void DebugOutputReader::Close() {
  if (impl_->fd < 0) return;
  close(impl_->fd);
  unlink(impl_->path.c_str());
  impl_->fd = -1;
}

std::string ProcessName(uint32_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/comm", std::ios::binary);
  std::string name;
  if (!in || !std::getline(in, name)) return "";
  return name.substr(0, kNameLimit);
}

bool WriteDebugOutput(const std::string& path, std::string_view text) {
  sockaddr_un address;
  if (!ToAddress(path, address)) return false;
  const int fd = NewDatagramSocket();
  if (fd < 0) return false;
  const ssize_t sent = sendto(fd, text.data(), text.size(), MSG_NOSIGNAL,
                              reinterpret_cast<const sockaddr*>(&address), sizeof address);
  close(fd);
  return sent == static_cast<ssize_t>(text.size());
}

}  // namespace kel::platform
