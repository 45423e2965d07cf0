#include "logging/log_files.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "core/parse.h"
#include "platform/clock.h"

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

namespace {

// The summary of a scan over `entries` (in the order found), skipping those marked.
LogScan Summarize(std::string_view path, const std::vector<platform::FoundFile>& entries,
                  const std::vector<bool>& skipped) {
  LogScan scan;
  int64_t oldest_time = 0;
  int64_t newest_time = 0;
  const platform::FoundFile* oldest = nullptr;
  for (size_t i = 0; i < entries.size(); ++i) {
    if (skipped[i]) continue;
    const platform::FoundFile& entry = entries[i];
    const int64_t index = LogIndexOfName(entry.name);
    if (scan.count == 0 || index < scan.lowest) scan.lowest = index;
    if (scan.count == 0 || index > scan.highest) scan.highest = index;
    // Strictly older or newer replaces: of equal times the first found counts.
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
  return scan;
}

}  // namespace

bool ScanLogFiles(std::string_view path, std::string_view base, LogScan& scan) {
  const std::vector<platform::FoundFile> found = platform::FindFiles(LogSearchPattern(path, base));
  scan = Summarize(path, found, std::vector<bool>(found.size(), false));
  return scan.count > 0;
}

RotationPlan PlanRotation(std::string_view path, std::string_view base, int64_t max_count) {
  const std::vector<platform::FoundFile> found = platform::FindFiles(LogSearchPattern(path, base));
  const auto count = static_cast<int64_t>(found.size());
  // As often as max_count or more files are there, the oldest goes; a scan after each
  // deletion would find the next oldest the same way.
  const int64_t deletions = count < max_count ? 0 : std::min(count, count - max_count + 1);
  std::vector<size_t> by_age(found.size());
  for (size_t i = 0; i < by_age.size(); ++i) by_age[i] = i;
  std::stable_sort(by_age.begin(), by_age.end(), [&found](size_t a, size_t b) {
    return found[a].write_time_ns < found[b].write_time_ns;
  });
  RotationPlan plan;
  std::vector<bool> deleted(found.size(), false);
  for (int64_t i = 0; i < deletions; ++i) {
    const size_t entry = by_age[static_cast<size_t>(i)];
    plan.doomed.push_back(LogFileName(path, found[entry].name, {}, -1));
    // The next index comes from the last scan, the one before the last deletion.
    if (i + 1 < deletions) deleted[entry] = true;
  }
  plan.next_index = NextLogIndex(Summarize(path, found, deleted), count - deletions);
  return plan;
}

void DeleteLogFiles(const RotationPlan& plan) {
  for (const std::string& name : plan.doomed) {
    // A file that cannot be deleted would be the oldest again and again: the others stay.
    if (!platform::RemoveFile(name)) break;
  }
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
  // Everything is ready before the file exists, so that the header follows its creation
  // at once: a process that dies in between leaves an empty file, never a partial header.
  LogFile log;
  const std::string header = HeaderText(CurrentDateTimeText());
  log.buffer_ = std::make_unique_for_overwrite<char[]>(kFlushSize + kMaxRowSize);
  if (!log.file_.Create(name)) {
    log.buffer_.reset();
    return log;
  }
  log.Append(header.data(), header.size());
  log.Flush();
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

void LogFile::AppendRows(const char* rows, size_t length) {
  if (!IsOpen()) return;
  if (used_ == 0) buffered_since_ms_ = platform::MonotonicMs();
  std::memcpy(buffer_.get() + used_, rows, length);
  used_ += length;
  size_ += static_cast<int64_t>(length);
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

void LogFile::WriteDirect(const char* rows, size_t length) {
  if (IsOpen() && length > 0) file_.Write(rows, length);
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
  const RotationPlan plan = PlanRotation(path, base, max_count);
  DeleteLogFiles(plan);
  file = OpenLogFile(path, base, plan.next_index);
}

}  // namespace kel
