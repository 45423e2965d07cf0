#include "logging/log_files.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "platform/clock.h"
#include "shell/parse.h"

namespace kel {
namespace {

// Up to 31 characters of an extension ("." included) are carried over when the text
// behind the first dot is rewritten.
constexpr size_t kExtensionKeep = 31;

void CutToNameSize(std::string& name) {
  if (name.size() > kLogNameSize - 1) name.resize(kLogNameSize - 1);
}

std::string CurrentDateTimeText() {
  return DateTimeText(platform::ToLocalTime(platform::WallNow()));
}

}  // namespace

std::string LogFileName(std::string_view path, std::string_view base, std::string_view extension,
                        int64_t index) {
  std::string name;
  if (!path.empty()) {
    name.assign(path);
    while (!name.empty() && (name.back() == '\\' || name.back() == '/')) name.pop_back();
    name += platform::kPathSeparator;
  }
  if (!base.empty()) {
    size_t cut = base.rfind('\\');
    if (cut == std::string_view::npos) cut = base.rfind('/');
    name.append(cut == std::string_view::npos ? base : base.substr(cut + 1));
  }
  CutToNameSize(name);
  if (index >= 0) {
    const size_t dot = std::min(name.find('.'), name.size());
    const std::string kept = name.substr(dot, kExtensionKeep);
    char number[16];
    std::snprintf(number, sizeof number, "_%05u", static_cast<unsigned>(index % kLogIndexModulo));
    name.resize(dot);
    name += number;
    name += kept;
    CutToNameSize(name);
  }
  if (!extension.empty()) {
    name.resize(std::min(name.find('.'), name.size()));
    name += '.';
    name.append(extension);
    CutToNameSize(name);
  }
  return name;
}

std::string LogSearchPattern(std::string_view path, std::string_view base) {
  std::string pattern = LogFileName(path, base, {}, 0);
  const std::string extension =
      pattern.substr(std::min(pattern.find('.'), pattern.size()), kExtensionKeep);
  const size_t underscore = pattern.find('_');
  if (underscore == std::string::npos) return pattern;  // cut off by the size limit
  pattern.resize(underscore);
  pattern += "_*";
  pattern += extension;
  CutToNameSize(pattern);
  return pattern;
}

int64_t LogIndexOfName(std::string_view name) {
  const size_t underscore = name.find('_');
  if (underscore == std::string_view::npos) return -1;
  return ParseDecimal(name.substr(underscore + 1));
}

bool MakeDirectoryPath(const std::string& path) {
  if (path.empty() || platform::PathExists(path)) return true;
  const size_t separator = path.rfind(platform::kPathSeparator);
  if (separator == std::string::npos) return true;
  MakeDirectoryPath(path.substr(0, separator));
  return platform::MakeDirectory(path);
}

bool ScanLogFiles(std::string_view path, std::string_view base, LogScan& scan) {
  scan = LogScan();
  int64_t oldest_time = 0;
  int64_t newest_time = 0;
  const platform::FoundFile* oldest = nullptr;
  const std::vector<platform::FoundFile> found = platform::FindFiles(LogSearchPattern(path, base));
  for (const platform::FoundFile& entry : found) {
    const int64_t index = LogIndexOfName(entry.name);
    if (scan.count == 0 || index < scan.lowest) scan.lowest = index;
    if (scan.count == 0 || index > scan.highest) scan.highest = index;
    if (scan.count == 0 || entry.write_time_ns < oldest_time) {
      oldest_time = entry.write_time_ns;
      scan.oldest = index;
      oldest = &entry;
    }
    if (scan.count == 0 || entry.write_time_ns > newest_time) {
      newest_time = entry.write_time_ns;
      scan.newest = index;
    }
    ++scan.count;
  }
  if (oldest != nullptr) scan.oldest_name = LogFileName(path, oldest->name, {}, -1);
  return scan.count > 0;
}

int64_t NextLogIndex(const LogScan& scan, int64_t remaining) {
  if (remaining <= 0) return 0;
  if (scan.newest + 1 >= 1) return scan.newest + 1;
  if (scan.highest + 1 >= 1) return scan.highest + 1;
  return remaining + 1;
}

LogFile& LogFile::operator=(LogFile&& other) noexcept {
  if (this != &other) {
    Close();
    file_ = std::move(other.file_);
    buffer_ = std::move(other.buffer_);
    spare_ = std::move(other.spare_);
    used_ = std::exchange(other.used_, 0);
    size_ = std::exchange(other.size_, 0);
  }
  return *this;
}

LogFile LogFile::Create(const std::string& name) {
  LogFile log;
  if (!log.file_.Create(name)) return log;
  log.buffer_ = std::make_unique<char[]>(kFlushSize + kMaxRowSize);
  const std::string header = HeaderText(CurrentDateTimeText());
  log.Append(header.data(), header.size());
  log.Flush();  // a file always begins with its whole header
  return log;
}

void LogFile::Append(const char* text, size_t length) {
  size_ += static_cast<int64_t>(length);
  if (used_ + length > kFlushSize + kMaxRowSize) {
    Flush();
    if (length > kFlushSize) {  // a long note goes out by itself
      file_.Write(text, length);
      return;
    }
  }
  if (used_ == 0) buffered_since_ms_ = platform::MonotonicMs();
  std::memcpy(buffer_.get() + used_, text, length);
  used_ += length;
  if (used_ >= kFlushSize) Flush();
}

size_t LogFile::WriteRow(const CanRow& row, const platform::WallTime& received) {
  if (!IsOpen()) return 0;
  // A full buffer goes out before the row, so a row always fits behind what is held.
  if (Full()) Flush();
  if (used_ == 0) buffered_since_ms_ = platform::MonotonicMs();
  char* const text = buffer_.get() + used_;
  const size_t time_length = LogRowClock().Stamp(received, text);
  const size_t length = time_length + FormatRowFields(row, text + time_length);
  used_ += length;
  size_ += static_cast<int64_t>(length);
  return length;
}

size_t LogFile::WriteNote(const char* text) {
  if (!IsOpen()) return 0;
  const std::string note = NoteText(text);
  Append(note.data(), note.size());
  return note.size();
}

void LogFile::Flush() {
  if (!IsOpen() || used_ == 0) return;
  file_.Write(buffer_.get(), used_);  // a failed write loses its rows, silently
  used_ = 0;
}

LogFile::TakenRows LogFile::TakeRows() {
  TakenRows rows;
  if (!IsOpen() || used_ == 0) return rows;
  rows.size = std::exchange(used_, 0);
  rows.buffer = std::exchange(
      buffer_, spare_ ? std::move(spare_) : std::make_unique<char[]>(kFlushSize + kMaxRowSize));
  return rows;
}

void LogFile::WriteTaken(const TakenRows& rows) {
  if (IsOpen() && rows.size > 0) file_.Write(rows.buffer.get(), rows.size);
}

void LogFile::Recycle(TakenRows&& rows) {
  if (IsOpen() && !spare_) spare_ = std::move(rows.buffer);
}

void LogFile::Close() {
  if (!IsOpen()) return;
  const std::string footer = FooterText(CurrentDateTimeText());
  Append(footer.data(), footer.size());
  Flush();
  // Rotation finds the newest file by its last-write time: files closed within the file
  // system's clock tick must still differ.
  file_.StampWriteTime();
  file_.Close();
  buffer_.reset();
  spare_.reset();
  used_ = 0;
  size_ = 0;
}

RowClock& LogRowClock() {
  static RowClock clock;
  return clock;
}

LogFile OpenLogFile(std::string_view path, std::string_view base, int64_t index) {
  MakeDirectoryPath(std::string(path));  // a failure shows when the file cannot be created
  return LogFile::Create(LogFileName(path, base, {}, index));
}

void RotateLogFile(LogFile& file, std::string_view path, std::string_view base, int64_t max_count) {
  file.Close();
  LogScan scan;
  int64_t remaining = 0;
  int64_t first_count = -1;
  int64_t deletions = 0;
  while (true) {
    if (!ScanLogFiles(path, base, scan)) {
      remaining = 0;
      break;
    }
    remaining = scan.count;
    if (remaining < max_count) break;
    if (first_count < 0) first_count = scan.count;
    platform::RemoveFile(scan.oldest_name);  // a failure still counts as a deletion
    --remaining;
    ++deletions;
    if (remaining < max_count || deletions >= first_count) break;
  }
  file = OpenLogFile(path, base, NextLogIndex(scan, remaining));
}

}  // namespace kel
