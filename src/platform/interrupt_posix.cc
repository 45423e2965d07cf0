#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>

#include "platform/interrupt.h"

namespace kel::platform {
namespace {

// The signal of the first request, 0 when none came. A lock-free atomic is safe to use
// from a signal handler.
std::atomic<int> g_request{0};
static_assert(std::atomic<int>::is_always_lock_free);

struct sigaction g_saved_interrupt {};
struct sigaction g_saved_terminate {};

void OnRequest(int signal) {
  int none = 0;
  g_request.compare_exchange_strong(none, signal);
}

}  // namespace

// No SA_RESTART: a blocking call of the thread that takes the signal returns with EINTR,
// which the socket and console layers treat as "nothing yet", so their loops look at the
// request at once.
InterruptRequests::InterruptRequests() {
  struct sigaction action {};
  action.sa_handler = OnRequest;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, &g_saved_interrupt);
  sigaction(SIGTERM, &action, &g_saved_terminate);
}

InterruptRequests::~InterruptRequests() {
  sigaction(SIGINT, &g_saved_interrupt, nullptr);
  sigaction(SIGTERM, &g_saved_terminate, nullptr);
}

bool InterruptRequested() { return g_request.load(std::memory_order_relaxed) != 0; }

void ClearInterrupt() { g_request.store(0); }

void EndByInterrupt() {
  std::fflush(stdout);
  std::fflush(stderr);
  const int signal = g_request.load() != 0 ? g_request.load() : SIGTERM;
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  sigemptyset(&action.sa_mask);
  sigaction(signal, &action, nullptr);
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, signal);
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
  raise(signal);
  _exit(128 + signal);  // not reached: the default action ends the process
}

}  // namespace kel::platform
