#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "platform/files.h"

namespace kel::platform {

bool PathExists(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0;
}

bool MakeDirectory(const std::string& path) { return mkdir(path.c_str(), 0777) == 0; }

bool RemoveFile(const std::string& path) { return unlink(path.c_str()) == 0; }

bool RenameReplacing(const std::string& from, const std::string& to) {
  return rename(from.c_str(), to.c_str()) == 0;
}

std::vector<FoundFile> FindFiles(const std::string& pattern) {
  std::vector<FoundFile> found;
  const size_t slash = pattern.rfind('/');
  const std::string directory =
      slash == std::string::npos ? std::string() : pattern.substr(0, slash + 1);
  const std::string name_pattern = slash == std::string::npos ? pattern : pattern.substr(slash + 1);
  DIR* dir = opendir(directory.empty() ? "." : directory.c_str());
  if (dir == nullptr) return found;
  while (const dirent* entry = readdir(dir)) {
    const std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    if (fnmatch(name_pattern.c_str(), name.c_str(), 0) != 0) continue;
    struct stat status {};
    if (stat((directory + name).c_str(), &status) != 0) continue;  // gone meanwhile
    const int64_t ns = static_cast<int64_t>(status.st_mtim.tv_sec) * 1000000000 +
                       static_cast<int64_t>(status.st_mtim.tv_nsec);
    found.push_back(FoundFile{name, ns});
  }
  closedir(dir);
  // Directory order is arbitrary on most file systems; name order makes "the first one
  // found" the same on every run.
  std::sort(found.begin(), found.end(),
            [](const FoundFile& a, const FoundFile& b) { return a.name < b.name; });
  return found;
}

bool OutputFile::Create(const std::string& path, bool must_be_new) {
  Close();
  int fd = -1;
  const int flags = O_WRONLY | O_CREAT | O_CLOEXEC | (must_be_new ? O_EXCL : O_TRUNC);
  do {
    fd = open(path.c_str(), flags, 0666);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) return false;
  handle_ = fd;
  return true;
}

bool OutputFile::Write(const void* data, size_t size) {
  if (handle_ == kNone) return false;
  const auto* bytes = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t n = write(static_cast<int>(handle_), bytes, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    bytes += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

bool OutputFile::StampWriteTime() {
  if (handle_ == kNone) return false;
  timespec times[2] = {};
  times[0].tv_nsec = UTIME_OMIT;  // access time unchanged
  clock_gettime(CLOCK_REALTIME, &times[1]);
  return futimens(static_cast<int>(handle_), times) == 0;
}

bool OutputFile::Sync() {
  if (handle_ == kNone) return false;
  int rc = 0;
  do {
    rc = fsync(static_cast<int>(handle_));
  } while (rc != 0 && errno == EINTR);
  return rc == 0;
}

void OutputFile::Close() {
  if (handle_ != kNone) close(static_cast<int>(handle_));
  handle_ = kNone;
}

}  // namespace kel::platform
