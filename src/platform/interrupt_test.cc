#include "platform/interrupt.h"

#include <gtest/gtest.h>

#include <vector>

#ifndef _WIN32
#include <signal.h>
#endif

namespace kel::platform {
namespace {

#ifndef _WIN32
// Which request stands after a run of signals: a Ctrl-C is the prompt's "stop this
// command" only while nothing that asks the program to end came with it.
TEST(InterruptRequestsTest, ARequestToEndOutranksCtrlC) {
  struct Case {
    std::vector<int> signals;
    bool requested;
    bool from_keyboard;
  };
  const Case cases[] = {
      {{}, false, false},
      {{SIGINT}, true, true},
      {{SIGINT, SIGINT}, true, true},
      {{SIGTERM}, true, false},
      {{SIGHUP}, true, false},
      {{SIGINT, SIGTERM}, true, false},
      {{SIGTERM, SIGINT}, true, false},
  };
  const InterruptRequests requests;
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.signals));
    ClearInterrupt();
    for (int signal : c.signals) raise(signal);
    EXPECT_EQ(c.requested, InterruptRequested());
    EXPECT_EQ(c.from_keyboard, InterruptFromKeyboard());
  }
  ClearInterrupt();
  EXPECT_FALSE(InterruptRequested());
}

// A program started to ignore hang-ups (nohup) goes on ignoring them.
TEST(InterruptRequestsTest, AnIgnoredHangUpStaysIgnored) {
  struct sigaction ignore {};
  struct sigaction saved {};
  ignore.sa_handler = SIG_IGN;
  sigaction(SIGHUP, &ignore, &saved);
  {
    const InterruptRequests requests;
    ClearInterrupt();
    raise(SIGHUP);
    EXPECT_FALSE(InterruptRequested());
  }
  sigaction(SIGHUP, &saved, nullptr);
}
#endif

}  // namespace
}  // namespace kel::platform
