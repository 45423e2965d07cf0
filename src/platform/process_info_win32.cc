#include <windows.h>
// tlhelp32.h needs the types of windows.h first.
#include <tlhelp32.h>

#include "platform/process_info.h"

namespace kel::platform {

int CountThreads() {
  const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  if (snapshot == INVALID_HANDLE_VALUE) return -1;
  const DWORD self = GetCurrentProcessId();
  THREADENTRY32 entry{};
  entry.dwSize = sizeof entry;
  int count = 0;
  for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
    if (entry.th32OwnerProcessID == self) ++count;
  }
  CloseHandle(snapshot);
  return count;
}

int CountOpenDescriptors() {
  DWORD count = 0;
  if (!GetProcessHandleCount(GetCurrentProcess(), &count)) return -1;
  return static_cast<int>(count);
}

unsigned CurrentProcessId() { return GetCurrentProcessId(); }

}  // namespace kel::platform
