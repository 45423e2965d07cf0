#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cstring>

#include "platform/clock.h"
#include "platform/serial_port.h"

namespace kel::platform {
namespace {

// Waits until `fd` has `events` or `deadline_ms` (MonotonicMs) passes; the revents, or 0 at
// the limit. A signal does not shorten the wait.
short WaitFor(int fd, short events, uint64_t deadline_ms) {
  while (true) {
    const uint64_t now = MonotonicMs();
    const int timeout = deadline_ms > now ? static_cast<int>(deadline_ms - now) : 0;
    pollfd p{fd, events, 0};
    const int n = poll(&p, 1, timeout);
    if (n > 0) return p.revents;
    if (n == 0) return 0;
    if (errno != EINTR) return POLLERR;
  }
}

}  // namespace

bool SerialPort::Open(const std::string& name) {
  Close();
  error_.clear();
  if (name.empty()) {
    error_ = "no port named";
    return false;
  }
  // Non-blocking, so that neither the open nor a read waits for a carrier.
  int fd = -1;
  do {
    fd = open(name.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) {
    error_ = std::strerror(errno);
    return false;
  }
  termios tio{};
  if (isatty(fd) == 0 || tcgetattr(fd, &tio) != 0) {
    close(fd);
    error_ = "not a terminal";
    return false;
  }
  cfmakeraw(&tio);
  cfsetispeed(&tio, B115200);
  cfsetospeed(&tio, B115200);
  tio.c_cflag |= CLOCAL | CREAD;
  // One stop bit, no parity, no hardware flow control; closing leaves DTR as it is, so that
  // a board which resets on DTR is not reset by every command.
  tio.c_cflag &= ~static_cast<tcflag_t>(CSTOPB | PARENB | CRTSCTS | HUPCL);
  tio.c_iflag &= ~static_cast<tcflag_t>(IXON | IXOFF | IXANY);
  tio.c_cc[VMIN] = 0;
  tio.c_cc[VTIME] = 0;
  if (tcsetattr(fd, TCSANOW, &tio) != 0) {
    error_ = std::string("refuses the line settings: ") + std::strerror(errno);
    close(fd);
    return false;
  }
  handle_ = fd;
  return true;
}

void SerialPort::Close() {
  if (handle_ == kNone) return;
  close(static_cast<int>(handle_));
  handle_ = kNone;
}

void SerialPort::DiscardInput() {
  if (handle_ != kNone) tcflush(static_cast<int>(handle_), TCIFLUSH);
}

SerialResult SerialPort::Write(const void* data, size_t size, int timeout_ms) {
  SerialResult result{SerialStatus::kOk, 0};
  if (handle_ == kNone) return {SerialStatus::kGone, 0};
  const int fd = static_cast<int>(handle_);
  const uint64_t deadline = MonotonicMs() + static_cast<uint64_t>(timeout_ms < 0 ? 0 : timeout_ms);
  const auto* bytes = static_cast<const char*>(data);
  while (result.bytes < size) {
    const ssize_t n = write(fd, bytes + result.bytes, size - result.bytes);
    if (n > 0) {
      result.bytes += static_cast<size_t>(n);
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK)
      return {SerialStatus::kGone, result.bytes};
    const short ready = WaitFor(fd, POLLOUT, deadline);
    if (ready == 0) return {SerialStatus::kTimeout, result.bytes};
    if ((ready & POLLOUT) == 0) return {SerialStatus::kGone, result.bytes};
  }
  return result;
}

SerialResult SerialPort::Read(void* data, size_t size, int timeout_ms) {
  if (handle_ == kNone) return {SerialStatus::kGone, 0};
  const int fd = static_cast<int>(handle_);
  const uint64_t deadline = MonotonicMs() + static_cast<uint64_t>(timeout_ms < 0 ? 0 : timeout_ms);
  while (true) {
    const short ready = WaitFor(fd, POLLIN, deadline);
    if (ready == 0) return {SerialStatus::kTimeout, 0};
    if ((ready & POLLIN) == 0) return {SerialStatus::kGone, 0};  // hang-up or error alone
    const ssize_t n = read(fd, data, size);
    if (n > 0) return {SerialStatus::kOk, static_cast<size_t>(n)};
    // Readable but nothing to read is the end of the line: a vanished USB adapter reads EIO,
    // a terminal whose other end closed reads 0 or EIO.
    if (n == 0 || (errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK)) {
      return {SerialStatus::kGone, 0};
    }
  }
}

}  // namespace kel::platform
