#include <windows.h>

#include <condition_variable>
#include <mutex>

#include "platform/signals.h"

namespace kel::platform {
namespace {

// The console's control handler runs on a thread of its own; it hands the request over.
std::mutex g_mutex;
std::condition_variable g_arrived;
const char* g_request = nullptr;

BOOL WINAPI OnControl(DWORD type) {
  const char* name = nullptr;
  switch (type) {
    case CTRL_C_EVENT: name = "CTRL_C"; break;
    case CTRL_BREAK_EVENT: name = "CTRL_BREAK"; break;
    case CTRL_CLOSE_EVENT: name = "CLOSE"; break;
    default: return FALSE;
  }
  std::lock_guard lock(g_mutex);
  g_request = name;
  g_arrived.notify_all();
  return TRUE;
}

}  // namespace

struct TerminationSignals::Saved {};

TerminationSignals::TerminationSignals() : saved_(std::make_unique<Saved>()) {
  SetConsoleCtrlHandler(OnControl, TRUE);
}

TerminationSignals::~TerminationSignals() { SetConsoleCtrlHandler(OnControl, FALSE); }

const char* TerminationSignals::Wait() {
  std::unique_lock lock(g_mutex);
  g_arrived.wait(lock, [] { return g_request != nullptr; });
  return g_request;
}

}  // namespace kel::platform
