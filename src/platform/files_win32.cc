#include <windows.h>

#include <algorithm>

#include "platform/files.h"

namespace kel::platform {
namespace {

HANDLE Handle(intptr_t handle) { return reinterpret_cast<HANDLE>(handle); }

// 100-nanosecond intervals between 1601-01-01 and 1970-01-01.
constexpr int64_t kEpochDifference = 116444736000000000LL;

int64_t UnixNs(const FILETIME& time) {
  const int64_t ticks =
      static_cast<int64_t>(uint64_t{time.dwHighDateTime} << 32 | uint64_t{time.dwLowDateTime});
  return (ticks - kEpochDifference) * 100;
}

}  // namespace

bool PathExists(const std::string& path) {
  return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

bool MakeDirectory(const std::string& path) { return CreateDirectoryA(path.c_str(), nullptr) != 0; }

bool RemoveFile(const std::string& path) { return DeleteFileA(path.c_str()) != 0; }

std::vector<FoundFile> FindFiles(const std::string& pattern) {
  std::vector<FoundFile> found;
  WIN32_FIND_DATAA entry{};
  HANDLE search = FindFirstFileA(pattern.c_str(), &entry);
  if (search == INVALID_HANDLE_VALUE) return found;
  do {
    const std::string name = entry.cFileName;
    if (name == "." || name == "..") continue;
    found.push_back(FoundFile{name, UnixNs(entry.ftLastWriteTime)});
  } while (FindNextFileA(search, &entry) != 0);
  FindClose(search);
  // NTFS lists in name order already; other file systems may not.
  std::sort(found.begin(), found.end(),
            [](const FoundFile& a, const FoundFile& b) { return a.name < b.name; });
  return found;
}

bool RenameReplacing(const std::string& from, const std::string& to) {
  return MoveFileExA(from.c_str(), to.c_str(),
                     MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
}

bool OutputFile::Create(const std::string& path, bool must_be_new) {
  Close();
  // No security attributes: the handle is not inherited by child processes.
  HANDLE file =
      CreateFileA(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                  must_be_new ? CREATE_NEW : CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  handle_ = reinterpret_cast<intptr_t>(file);
  return true;
}

bool OutputFile::Write(const void* data, size_t size) {
  if (handle_ == kNone) return false;
  const auto* bytes = static_cast<const char*>(data);
  while (size > 0) {
    const DWORD chunk = static_cast<DWORD>(std::min<size_t>(size, 1U << 30));
    DWORD written = 0;
    if (!WriteFile(Handle(handle_), bytes, chunk, &written, nullptr) || written == 0) return false;
    bytes += written;
    size -= written;
  }
  return true;
}

bool OutputFile::StampWriteTime() {
  if (handle_ == kNone) return false;
  FILETIME now{};
  GetSystemTimePreciseAsFileTime(&now);
  return SetFileTime(Handle(handle_), nullptr, nullptr, &now) != 0;
}

bool OutputFile::Sync() { return handle_ != kNone && FlushFileBuffers(Handle(handle_)) != 0; }

void OutputFile::Close() {
  if (handle_ != kNone) CloseHandle(Handle(handle_));
  handle_ = kNone;
}

}  // namespace kel::platform
