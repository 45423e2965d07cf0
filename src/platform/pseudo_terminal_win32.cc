#include "platform/pseudo_terminal.h"

namespace kel::platform {

// Windows has no pseudo-terminal that a program could open as a COM port.

bool PseudoTerminal::Open() {
  error_ = "a pseudo-terminal serial line is not supported on Windows";
  return false;
}

bool PseudoTerminal::Link(const std::string& /*path*/) {
  error_ = "a pseudo-terminal serial line is not supported on Windows";
  return false;
}

void PseudoTerminal::Close() {}

SerialResult PseudoTerminal::Read(void* /*data*/, size_t /*size*/) {
  return {SerialStatus::kGone, 0};
}

SerialResult PseudoTerminal::Write(const void* /*data*/, size_t /*size*/) {
  return {SerialStatus::kGone, 0};
}

}  // namespace kel::platform
