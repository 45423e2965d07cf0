#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cstring>

#include "platform/pseudo_terminal.h"

namespace kel::platform {
namespace {

std::string SystemError(const char* what) {
  return std::string(what) + ": " + std::strerror(errno);
}

}  // namespace

bool PseudoTerminal::Open() {
  Close();
  error_.clear();
  const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (master < 0) {
    error_ = SystemError("no pseudo-terminal");
    return false;
  }
  master_ = master;
  std::array<char, 128> name{};
  if (grantpt(master) != 0 || unlockpt(master) != 0 ||
      ptsname_r(master, name.data(), name.size()) != 0) {
    error_ = SystemError("the pseudo-terminal's slave is not available");
    Close();
    return false;
  }
  const int flags = fcntl(master, F_GETFL);
  if (flags < 0 || fcntl(master, F_SETFL, flags | O_NONBLOCK) != 0) {
    error_ = SystemError("the pseudo-terminal refuses non-blocking mode");
    Close();
    return false;
  }
  slave_path_ = name.data();
  const int slave = open(slave_path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (slave < 0) {
    error_ = SystemError(("cannot open " + slave_path_).c_str());
    Close();
    return false;
  }
  slave_ = slave;
  // Raw, as a serial line: in particular nothing written to the master comes back to it as
  // an echo, and CR and LF pass untranslated.
  termios tio{};
  if (tcgetattr(slave, &tio) == 0) {
    cfmakeraw(&tio);
    cfsetispeed(&tio, B115200);
    cfsetospeed(&tio, B115200);
    tio.c_cflag |= CLOCAL | CREAD;
    tcsetattr(slave, TCSANOW, &tio);
  }
  return true;
}

bool PseudoTerminal::Link(const std::string& path) {
  if (!IsOpen()) {
    error_ = "no pseudo-terminal to link to";
    return false;
  }
  struct stat status {};
  if (lstat(path.c_str(), &status) == 0) {
    if (!S_ISLNK(status.st_mode)) {
      error_ = path + " exists and is not a symbolic link";
      return false;
    }
    unlink(path.c_str());
  }
  if (symlink(slave_path_.c_str(), path.c_str()) != 0) {
    error_ = SystemError(("cannot link " + path).c_str());
    return false;
  }
  link_path_ = path;
  return true;
}

void PseudoTerminal::Close() {
  if (!link_path_.empty()) {
    // Only the link this object made, should something else have taken its place.
    std::array<char, 256> target{};
    const ssize_t n = readlink(link_path_.c_str(), target.data(), target.size() - 1);
    if (n > 0 && slave_path_ == std::string(target.data(), static_cast<size_t>(n))) {
      unlink(link_path_.c_str());
    }
    link_path_.clear();
  }
  if (slave_ != kNone) close(static_cast<int>(slave_));
  if (master_ != kNone) close(static_cast<int>(master_));
  slave_ = master_ = kNone;
}

SerialResult PseudoTerminal::Read(void* data, size_t size) {
  if (master_ == kNone) return {SerialStatus::kGone, 0};
  while (true) {
    const ssize_t n = read(static_cast<int>(master_), data, size);
    if (n > 0) return {SerialStatus::kOk, static_cast<size_t>(n)};
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return {SerialStatus::kTimeout, 0};
    // EIO: no slave is open (cannot happen while this object holds one) or the terminal
    // failed.
    return {SerialStatus::kGone, 0};
  }
}

SerialResult PseudoTerminal::Write(const void* data, size_t size) {
  if (master_ == kNone) return {SerialStatus::kGone, 0};
  while (true) {
    const ssize_t n = write(static_cast<int>(master_), data, size);
    if (n >= 0) return {n > 0 ? SerialStatus::kOk : SerialStatus::kTimeout, static_cast<size_t>(n)};
    if (errno == EINTR) continue;
    if (errno == EAGAIN || errno == EWOULDBLOCK) return {SerialStatus::kTimeout, 0};
    return {SerialStatus::kGone, 0};
  }
}

}  // namespace kel::platform
