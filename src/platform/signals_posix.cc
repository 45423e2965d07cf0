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
  struct sigaction interrupt;
  struct sigaction terminate;
};

// The signals stay blocked in every thread and are taken by sigwait, so no handler runs
// at an arbitrary point and no thread is interrupted in a system call. A shell starts
// background jobs with SIGINT ignored, and whether an ignored signal stays pending for
// sigwait while blocked is the system's choice; so both get their default action back,
// which never runs while they are blocked.
TerminationSignals::TerminationSignals() : saved_(std::make_unique<Saved>()) {
  const sigset_t set = TerminationSet();
  pthread_sigmask(SIG_BLOCK, &set, &saved_->mask);
  struct sigaction default_action {};
  default_action.sa_handler = SIG_DFL;
  sigemptyset(&default_action.sa_mask);
  sigaction(SIGINT, &default_action, &saved_->interrupt);
  sigaction(SIGTERM, &default_action, &saved_->terminate);
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
  sigaction(SIGINT, &saved_->interrupt, nullptr);
  sigaction(SIGTERM, &saved_->terminate, nullptr);
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
