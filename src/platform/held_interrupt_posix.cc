#include <signal.h>

#include <array>

#include "platform/signals.h"

namespace kel::platform {
namespace {

constexpr std::array<int, 3> kHeldSignals{SIGINT, SIGTERM, SIGHUP};

// The signal that came while held; 0 for none.
volatile sig_atomic_t g_held_signal = 0;

// Without SA_RESTART, so that a wait in progress returns and sees the request.
void OnHeldSignal(int signal) { g_held_signal = signal; }

}  // namespace

struct HeldInterrupt::Saved {
  std::array<struct sigaction, kHeldSignals.size()> previous{};
};

HeldInterrupt::HeldInterrupt() : saved_(std::make_unique<Saved>()) {
  g_held_signal = 0;
  for (size_t i = 0; i < kHeldSignals.size(); ++i) {
    sigaction(kHeldSignals[i], nullptr, &saved_->previous[i]);
    if (saved_->previous[i].sa_handler == SIG_IGN) continue;
    struct sigaction action {};
    action.sa_handler = OnHeldSignal;
    sigemptyset(&action.sa_mask);
    sigaction(kHeldSignals[i], &action, nullptr);
  }
}

HeldInterrupt::~HeldInterrupt() {
  for (size_t i = 0; i < kHeldSignals.size(); ++i) {
    sigaction(kHeldSignals[i], &saved_->previous[i], nullptr);
  }
  if (g_held_signal != 0) raise(g_held_signal);
}

bool HeldInterrupt::Requested() const { return g_held_signal != 0; }

}  // namespace kel::platform
