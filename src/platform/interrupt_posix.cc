#include <signal.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>

#include "platform/interrupt.h"

namespace kel::platform {
namespace {

constexpr std::array<int, 3> kRequestSignals{SIGINT, SIGTERM, SIGHUP};

// The signal of the request, 0 when none came: the first one, unless a request to end
// (anything but SIGINT) follows a Ctrl-C. A lock-free atomic is safe to use from a signal
// handler.
std::atomic<int> g_request{0};
static_assert(std::atomic<int>::is_always_lock_free);

std::array<struct sigaction, kRequestSignals.size()> g_saved{};

void OnRequest(int signal) {
  int seen = 0;
  if (!g_request.compare_exchange_strong(seen, signal) && seen == SIGINT) g_request = signal;
}

}  // namespace

// No SA_RESTART: a blocking call of the thread that takes the signal returns with EINTR,
// which the socket and console layers treat as "nothing yet", so their loops look at the
// request at once.
InterruptRequests::InterruptRequests() {
  struct sigaction action {};
  action.sa_handler = OnRequest;
  sigemptyset(&action.sa_mask);
  for (size_t i = 0; i < kRequestSignals.size(); ++i) {
    sigaction(kRequestSignals[i], nullptr, &g_saved[i]);
    // A hang-up the program was started to ignore (nohup) stays ignored.
    if (kRequestSignals[i] == SIGHUP && g_saved[i].sa_handler == SIG_IGN) continue;
    sigaction(kRequestSignals[i], &action, nullptr);
  }
}

InterruptRequests::~InterruptRequests() {
  for (size_t i = 0; i < kRequestSignals.size(); ++i) {
    sigaction(kRequestSignals[i], &g_saved[i], nullptr);
  }
}

bool InterruptRequested() { return g_request.load(std::memory_order_relaxed) != 0; }

bool InterruptFromKeyboard() { return g_request.load() == SIGINT; }

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
