#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kel::platform {

/// The directory separator this system writes into paths.
#ifdef _WIN32
inline constexpr char kPathSeparator = '\\';
#else
inline constexpr char kPathSeparator = '/';
#endif

/// True when a status query of `path` succeeds (a file or a directory is there).
bool PathExists(const std::string& path);

/// Creates one directory (its parent must exist). False on failure, also when it exists.
bool MakeDirectory(const std::string& path);

/// Deletes one file. False on failure.
bool RemoveFile(const std::string& path);

/// Renames `from` to `to`, replacing a file of that name in one step: a reader finds the
/// old file or the new one, never a mix. Both must lie on one file system.
bool RenameReplacing(const std::string& from, const std::string& to);

/// Makes `content` the whole of the file `path` without ever leaving half a file: it is
/// written to a new file beside `path`, flushed to the disk, then renamed over `path`.
/// False on any failure; the old file (if any) then stays as it was and the new one is
/// removed.
bool WriteFileReplacing(const std::string& path, std::string_view content);

/// One directory entry a wildcard search found.
struct FoundFile {
  std::string name;           ///< the entry's name, without its directory
  int64_t write_time_ns = 0;  ///< last-write time, nanoseconds since the epoch
};

/// The entries of one directory whose names match a pattern: `pattern` is a directory part
/// (up to its last separator; none means the working directory) and a name with the
/// wildcards "*" (any run of characters) and "?" (any one character). Entries come in
/// ascending order of name, "." and ".." left out; a directory that cannot be read gives
/// none.
std::vector<FoundFile> FindFiles(const std::string& pattern);

/// The one owner of a file opened for writing. Created (or truncated) close-on-exec,
/// so child processes never inherit it; writes go straight to the system, unbuffered.
class OutputFile {
 public:
  OutputFile() = default;
  ~OutputFile() { Close(); }
  OutputFile(OutputFile&& other) noexcept : handle_(other.handle_) { other.handle_ = kNone; }
  OutputFile& operator=(OutputFile&& other) noexcept {
    if (this != &other) {
      Close();
      handle_ = other.handle_;
      other.handle_ = kNone;
    }
    return *this;
  }
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// Creates `path`, or truncates the file of that name, for writing. With `must_be_new`,
  /// an existing file is left alone and the call fails. False on failure; a file already
  /// open is closed first either way.
  bool Create(const std::string& path, bool must_be_new = false);
  bool Valid() const { return handle_ != kNone; }
  /// Writes all `size` bytes. False when the system refused some of them.
  bool Write(const void* data, size_t size);
  /// Sets the file's last-write time to now at the full resolution of the wall clock.
  /// File systems stamp writes with a coarse clock (a few milliseconds), so files written
  /// one after the other in quick succession would otherwise share their last-write time.
  bool StampWriteTime();
  /// Waits until what was written is on the disk. False when the system reports a failure.
  bool Sync();
  void Close();

 private:
  static constexpr intptr_t kNone = -1;
  intptr_t handle_ = kNone;
};

}  // namespace kel::platform
