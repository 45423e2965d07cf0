#include "platform/socket.h"

#include <cstdio>

namespace kel::platform {

Socket& Socket::operator=(Socket&& other) noexcept {
  if (this != &other) {
    Close();
    handle_ = other.Release();
  }
  return *this;
}

SocketHandle Socket::Release() {
  const SocketHandle handle = handle_;
  handle_ = kInvalidSocket;
  return handle;
}

std::string DottedAddress(uint32_t ip) {
  const auto* b = reinterpret_cast<const unsigned char*>(&ip);
  char text[16];
  std::snprintf(text, sizeof text, "%u.%u.%u.%u", b[0], b[1], b[2], b[3]);
  return text;
}

}  // namespace kel::platform
