#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "logging/busmaster_format.h"
#include "platform/files.h"

namespace kel {

/// Names are cut to the 1023 characters of the buffer they were always built in.
inline constexpr size_t kLogNameSize = 1024;
/// Indexes are written with five digits, modulo this.
inline constexpr int64_t kLogIndexModulo = 100000;

/// The name of a log file, from a directory `path` (may be empty), a `base` name, a
/// replacement `extension` (empty: none) and a rotation `index` (negative: none):
///   1. a non-empty path loses its trailing "\" and "/" and gets one separator;
///   2. of the base name only the text after its last "\" (or, without one, after its
///      last "/") is appended;
///   3. with an index, "_%05u" (index modulo 100000) goes in at the first "." of the
///      whole text, path included, or at its end: "logs" + "kelcmd.log" + 7 ->
///      "logs/kelcmd_00007.log", but "my.logs" + "k.log" + 7 -> "my_00007.logs/k.log";
///   4. with an extension, the text from the first "." on becomes "." and the extension.
std::string LogFileName(std::string_view path, std::string_view base, std::string_view extension,
                        int64_t index);

/// The wildcard pattern of a family of log files: the name for index 0 with everything
/// from its first "_" replaced by "_*" and the extension ("logs/kelcmd_*.log").
std::string LogSearchPattern(std::string_view path, std::string_view base);

/// The index in a log file's name: the decimal number after its first "_", or -1 when the
/// name has none ("kelcmd_00042.log" -> 42).
int64_t LogIndexOfName(std::string_view name);

/// Creates the directory `path` and the missing directories above it. True when the path
/// is empty or exists; a path without any separator ("logs") is deliberately not created
/// here. False only when creating the last level fails.
bool MakeDirectoryPath(const std::string& path);

/// What a scan of a family of log files found.
struct LogScan {
  int64_t lowest = -1;      ///< lowest index
  int64_t highest = -1;     ///< highest index
  int64_t count = 0;        ///< files found
  int64_t oldest = -1;      ///< index of the file written least recently
  int64_t newest = -1;      ///< index of the file written most recently
  std::string oldest_name;  ///< path and name of the oldest file
};

/// Looks for the files of the family of `base` in `path`. The oldest and the newest file
/// go by last-write time; of files written at the same time the first found (in name
/// order) counts. False when there is none.
bool ScanLogFiles(std::string_view path, std::string_view base, LogScan& scan);

/// The index of the file that follows a pruning which left `remaining` files of a family
/// last scanned as `scan`: 0 when none remains, else the one after the newest file (so the
/// sequence continues across the wrap from 99999 to 00000), else after the highest, else
/// after the count.
int64_t NextLogIndex(const LogScan& scan, int64_t remaining);

/// What rotating a family of log files does to it.
struct RotationPlan {
  std::vector<std::string> doomed;  ///< path and name of the files to delete, oldest first
  int64_t next_index = 0;           ///< the index of the file to open next
};

/// Plans a rotation from one scan of the family of `base` in `path`: as long as
/// `max_count` or more files would remain, the oldest goes (by last-write time; of files
/// written at the same time the first in name order), so that with the next file at most
/// `max_count` remain; the next index follows NextLogIndex over the files the last
/// deletion found.
RotationPlan PlanRotation(std::string_view path, std::string_view base, int64_t max_count);

/// Deletes the planned files in order, up to the first that cannot be deleted.
void DeleteLogFiles(const RotationPlan& plan);

/// An open BUSMASTER log, or none. A log with no file is legal everywhere: every writer
/// then writes nothing and returns 0. Rows are collected in memory and reach the file in
/// whole rows only (once the buffer is full, on Flush and on Close), so a file cut off by
/// a crash still ends with a whole row.
class LogFile {
 public:
  LogFile() = default;
  /// Closes the file with its footer.
  ~LogFile() { Close(); }
  LogFile(LogFile&& other) noexcept = default;
  LogFile& operator=(LogFile&& other) noexcept;
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;

  /// Creates (or truncates) the file `name` and writes the header. On failure the log
  /// stays without a file.
  static LogFile Create(const std::string& name);

  bool IsOpen() const { return file_.Valid(); }

  /// Writes one data row, stamped by the process-wide row clock with the wall time the
  /// frame was `received` (rows taken from the board in one go share one reading of the
  /// clock). Returns its length.
  size_t WriteRow(const CanRow& row, const platform::WallTime& received);
  /// Appends rows formatted elsewhere (whole rows, `length` bytes in all). At most one row
  /// may go past Unfilled(): call it only when the rows held are not Full().
  void AppendRows(const char* rows, size_t length);
  /// Bytes that rows in memory may still grow by before they are Full().
  size_t Unfilled() const { return used_ < kFlushSize ? kFlushSize - used_ : 0; }
  /// Writes a note line (a null text is "<null>"). Returns its length.
  size_t WriteNote(const char* text);
  /// Bytes written so far, those still in memory included; 0 without a file.
  int64_t Size() const { return IsOpen() ? size_ : 0; }
  /// Hands the rows held in memory to the file.
  void Flush();

  /// Rows taken out of memory, for the caller to write to the file (WriteTaken) while
  /// other rows are written.
  struct TakenRows {
    std::unique_ptr<char[]> buffer;
    size_t size = 0;
  };
  /// True once the rows in memory have reached kFlushSize. WriteRow hands them to the file
  /// itself before the next row, unless they were taken first.
  bool Full() const { return used_ >= kFlushSize; }
  /// Takes the rows out of memory; another buffer takes their place.
  TakenRows TakeRows();
  /// Writes rows taken before. Calls must come in the order the rows were taken, one at a
  /// time, never while Flush, Close, WriteNote or a WriteRow that finds the buffer full
  /// runs; every other call may run meanwhile.
  void WriteTaken(const TakenRows& rows);
  /// Counts `length` bytes of rows that the caller writes itself (WriteDirect) behind those
  /// held in memory, which it has taken first (TakeRows).
  void AddDirect(size_t length) {
    if (IsOpen()) size_ += static_cast<int64_t>(length);
  }
  /// Writes rows counted by AddDirect, by the rules of WriteTaken.
  void WriteDirect(const char* rows, size_t length);
  /// Keeps the buffer of written rows for the next TakeRows.
  void Recycle(TakenRows&& rows);
  /// The monotonic time (platform::MonotonicMs) at which the oldest row still held in
  /// memory was written; 0 when none is held.
  uint64_t BufferedSinceMs() const { return used_ > 0 ? buffered_since_ms_ : 0; }
  /// Writes the footer and closes the file; nothing without a file.
  void Close();

  /// Rows are handed to the file once this many bytes wait in memory: large writes keep
  /// a flood cheap, and a flood fills this in a few milliseconds.
  static constexpr size_t kFlushSize = 1024 * 1024;

 private:
  void Append(const char* text, size_t length);

  platform::OutputFile file_;
  std::unique_ptr<char[]> buffer_;  // kFlushSize + kMaxRowSize bytes
  std::unique_ptr<char[]> spare_;   // the same size, or null
  size_t used_ = 0;
  uint64_t buffered_since_ms_ = 0;
  int64_t size_ = 0;
};

/// The process-wide clock of row time stamps (see RowClock): WriteRow's, and the logging
/// service's, which takes its stamps under a lock of its own. Not thread-safe.
RowClock& LogRowClock();

/// Opens the log file `index` of the family of `base` in `path`, creating the directory
/// first; without a file when that fails.
LogFile OpenLogFile(std::string_view path, std::string_view base, int64_t index);

/// Closes `file` (footer), deletes the oldest files of the family until fewer than
/// `max_count` remain (PlanRotation), then opens the next file into `file`.
void RotateLogFile(LogFile& file, std::string_view path, std::string_view base, int64_t max_count);

}  // namespace kel
