#include <signal.h>

#include "platform/signals.h"

namespace kel::platform {
namespace {

sigset_t TerminationSet() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  return set;
}

}  // namespace

struct TerminationSignals::Saved {
  sigset_t mask;
};

// The signals stay blocked in every thread and are taken by sigwait, so no handler runs
// at an arbitrary point and no thread is interrupted in a system call.
TerminationSignals::TerminationSignals() : saved_(std::make_unique<Saved>()) {
  const sigset_t set = TerminationSet();
  pthread_sigmask(SIG_BLOCK, &set, &saved_->mask);
}

TerminationSignals::~TerminationSignals() {
  // A request that came after Wait returned would end the process as soon as the mask is
  // restored; take it first.
  const sigset_t set = TerminationSet();
  sigset_t pending;
  while (sigpending(&pending) == 0 &&
         (sigismember(&pending, SIGINT) == 1 || sigismember(&pending, SIGTERM) == 1)) {
    int ignored = 0;
    sigwait(&set, &ignored);
  }
  pthread_sigmask(SIG_SETMASK, &saved_->mask, nullptr);
}

const char* TerminationSignals::Wait() {
  const sigset_t set = TerminationSet();
  int signal = 0;
  while (sigwait(&set, &signal) != 0) {
  }
  return signal == SIGINT ? "SIGINT" : "SIGTERM";
}

}  // namespace kel::platform
