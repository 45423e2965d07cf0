#include <dirent.h>
#include <unistd.h>

#include "platform/process_info.h"

namespace kel::platform {
namespace {

// Entries of a /proc directory other than "." and "..".
int CountEntries(const char* path) {
  DIR* dir = opendir(path);
  if (dir == nullptr) return -1;
  int count = 0;
  while (const dirent* entry = readdir(dir)) {
    if (entry->d_name[0] != '.') ++count;
  }
  closedir(dir);
  return count;
}

}  // namespace

int CountThreads() { return CountEntries("/proc/self/task"); }

// The directory stream's own descriptor is among the entries, every time.
int CountOpenDescriptors() { return CountEntries("/proc/self/fd"); }

unsigned CurrentProcessId() { return static_cast<unsigned>(getpid()); }

}  // namespace kel::platform
