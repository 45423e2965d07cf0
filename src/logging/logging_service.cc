#include "logging/logging_service.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "config/settings.h"
#include "core/parse.h"
#include "device/frame.h"
#include "platform/socket_options.h"
#include "platform/thread.h"

namespace kel {
namespace {

constexpr char kDetachedNoteFormat[] = "READER %d STILL RUNNING AT STOP, LEFT BEHIND";
constexpr char kDebugNoteFormat[] = "WINDBG: [%u-%s] %.*s";
constexpr char kUsbNoteFormat[] = "USBNTF: %.*s";

// A reader waits this long for data before it looks at its stop flag again; Stop wakes it
// at once by shutting the socket down, so this only bounds a wake-up that got lost.
constexpr int kReadWaitMs = 250;
// Rows reach the file at most this long after they were written into memory: a quiet
// board's rows are on disk at once, as far as a crash is concerned, while a busy board's
// rows go out in large writes.
constexpr int kFlushDelayMs = 10;
// Bytes taken off a connection per receive: a fast stream costs few system calls.
constexpr size_t kReadSize = 64 * 1024;
constexpr size_t kNoteSize = 8192;  // the note text, zero included
constexpr size_t kProcessNameSize = 255;
// A block of rows at least this long is written to the file from the reader's own memory
// rather than copied into the file's.
constexpr size_t kDirectWriteSize = 64 * 1024;
// While the readers wait for the board's end at a stop, the time limit is looked at this
// often.
constexpr int kCloseSliceMs = 20;

}  // namespace

struct LoggingService::Reader {
  int index = 0;  // the slot, 0-based; its rows show channel index + 1
  platform::SocketAddress peer;
  platform::Socket socket;
  std::atomic<bool> stop{false};
  platform::Thread thread;
};

// The rows of one receive, formatted outside the service's lock.
struct LoggingService::RowBlock {
  static constexpr size_t kMaxRows = kReadSize / kFrameSize;
  static_assert(kMaxRowSize <= UINT8_MAX);

  // Room for every row at its longest, and for the fixed-size copy of the last time stamp.
  std::unique_ptr<char[]> text =
      std::make_unique_for_overwrite<char[]>((kMaxRows + 1) * kMaxRowSize);
  std::array<uint8_t, kMaxRows> lengths;
  size_t rows = 0;
  uint64_t turn = 0;                // its place in the file's order; guarded by lock_
  std::atomic<bool> queued{false};  // waits to be appended; written under lock_
};

LoggingConfig LoggingConfigFromSettings() {
  const Settings& s = CurrentSettings();
  LoggingConfig config;
  config.address = s.device_address;
  config.base_port = s.proxy_port;
  config.path = s.log_file_path;
  config.name = s.log_file_name;
  config.size_limit = s.log_slice_size;
  config.max_count = s.log_slice_count;
  config.debug_monitor = s.log_win_debug != 0;
  config.usb_monitor = s.log_usb_notify != 0;
  return config;
}

LoggingService::~LoggingService() { Stop(); }

void LoggingService::Start(const LoggingConfig& config) {
  active_ = false;
  Stop();
  {
    const std::lock_guard<std::mutex> hold(lock_);
    path_ = config.path;
    name_ = config.name;
    size_limit_ = config.size_limit;
    max_count_ = config.max_count;
    files_opened_ = 0;
    bytes_written_ = 0;
    rows_written_ = 0;
  }
  lock_ready_ = true;
  running_ = true;
  {
    std::unique_lock<std::mutex> hold(lock_);
    Rotate(hold);
  }

  const uint32_t ip = InetAddr(config.address);
  for (int i = 0; i < kMaxConnections; ++i) {
    const int port = config.base_port + i;
    if (port <= 0 || port > 0xFFFF) break;
    auto reader = std::make_shared<Reader>();
    reader->index = i;
    reader->peer = platform::SocketAddress{ip, static_cast<uint16_t>(port)};
    reader->socket = platform::NewTcpSocket();
    if (!reader->socket.Valid() || !platform::ConnectBlocking(reader->socket, reader->peer) ||
        !platform::SetNonBlocking(reader->socket, true)) {
      break;
    }
    if (!reader->thread.Start([this, reader] { ReadLoop(*reader); })) break;
    readers_.push_back(std::move(reader));
  }
  active_ = true;
  StartMonitors(config);
}

void LoggingService::StartMonitors(const LoggingConfig& config) {
  // What other programs write goes into the file as one line each, however it looks.
  if (config.debug_monitor) {
    debug_monitor_.Start([this](uint32_t pid, const std::string& name, std::string_view text) {
      const std::string line = LoggableText(text, kNoteSize);
      Note(kDebugNoteFormat, pid, name.substr(0, kProcessNameSize).c_str(),
           static_cast<int>(line.size()), line.data());
    });
  }
  if (config.usb_monitor) {
    usb_monitor_.Start(
        [this](std::string_view text) {
          const std::string line = LoggableText(text, kNoteSize);
          Note(kUsbNoteFormat, static_cast<int>(line.size()), line.data());
        },
        usb_source_);
  }
}

void LoggingService::Stop() {
  active_ = false;
  running_ = false;
  usb_monitor_.Stop();
  debug_monitor_.Stop();
  // The board sends what it still owes each reader, then closes: the readers log up to
  // that end (or until the closing wait is over), and nothing is reset on its way.
  for (const std::shared_ptr<Reader>& reader : readers_) platform::ShutdownSend(reader->socket);
  const uint64_t start = platform::MonotonicMs();
  for (const std::shared_ptr<Reader>& reader : readers_) {
    while (!reader->thread.WaitFor(kCloseSliceMs) &&
           !platform::CloseWaitOver(reader->socket, platform::MonotonicMs() - start)) {
    }
  }
  for (const std::shared_ptr<Reader>& reader : readers_) {
    reader->stop = true;
    reader->socket.Shutdown();
  }
  for (const std::shared_ptr<Reader>& reader : readers_) {
    // A reader still running at the limit is left to end on its own; it keeps its own
    // reference to its slot and socket.
    if (!reader->thread.JoinFor(platform::kThreadJoinLimitMs)) {
      Note(kDetachedNoteFormat, reader->index + 1);
    }
  }
  readers_.clear();
  {
    const std::lock_guard<std::mutex> hold(lock_);
    const std::lock_guard<std::mutex> io(io_lock_);
    file_.Close();
  }
  lock_ready_ = false;
}

void LoggingService::SetLimits(uint64_t size_limit, int64_t max_count) {
  const std::lock_guard<std::mutex> hold(lock_);
  size_limit_ = size_limit;
  max_count_ = max_count;
}

size_t LoggingService::Note(const char* format, ...) {
  if (!lock_ready_) return 0;
  char text[kNoteSize];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  const std::lock_guard<std::mutex> hold(lock_);
  const std::lock_guard<std::mutex> io(io_lock_);
  const size_t written = file_.WriteNote(text);
  file_.Flush();
  return written;
}

LoggingStatus LoggingService::Status() const {
  LoggingStatus status;
  status.active = active_;
  status.running = running_;
  {
    const std::lock_guard<std::mutex> hold(lock_);
    status.files_opened = files_opened_;
    status.bytes_written = bytes_written_;
    status.rows_written = rows_written_;
  }
  for (const std::shared_ptr<Reader>& reader : readers_) status.peers.push_back(reader->peer);
  status.debug_monitor = debug_monitor_.Running();
  status.usb_monitor = usb_monitor_.Running();
  return status;
}

void LoggingService::ReadLoop(Reader& reader) {
  const auto buffer = std::make_unique<uint8_t[]>(kReadSize);
  // Two blocks: while one waits for its turn, the next receive is formatted into the other.
  const std::array<std::unique_ptr<RowBlock>, 2> blocks = {std::make_unique<RowBlock>(),
                                                           std::make_unique<RowBlock>()};
  size_t next_block = 0;
  size_t held = 0;  // bytes of a record not yet whole
  bool unflushed = false;
  while (!reader.stop) {
    const platform::IoResult got =
        platform::Receive(reader.socket, buffer.get() + held, kReadSize - held);
    if (got.status == platform::IoStatus::kOk) {
      held += got.bytes;
      const size_t whole = held - held % kFrameSize;
      if (whole > 0) {
        LogRecords(reader.index + 1, buffer.get(), whole, *blocks[next_block]);
        next_block ^= 1;
        std::memmove(buffer.get(), buffer.get() + whole, held - whole);
        held -= whole;
        unflushed = true;
      }
      continue;
    }
    // The board closed the connection or it failed: nothing more comes on it.
    if (got.status != platform::IoStatus::kWouldBlock) break;
    // Nothing waits now. Rows this reader wrote go to the file once no more data came for
    // kFlushDelayMs (or sooner, when a receive finds them older than that).
    const platform::WaitStatus wait =
        platform::WaitReadable(reader.socket, unflushed ? kFlushDelayMs : kReadWaitMs);
    if (wait == platform::WaitStatus::kTimeout && unflushed) {
      Flush();
      unflushed = false;
    }
    if (wait == platform::WaitStatus::kError) break;
    if (wait == platform::WaitStatus::kException) platform::SleepMs(1);
  }
  for (const std::unique_ptr<RowBlock>& block : blocks) AwaitAppended(*block);
  if (unflushed) Flush();
}

void LoggingService::AwaitAppended(const RowBlock& block) {
  if (!block.queued) return;
  std::unique_lock<std::mutex> hold(lock_);
  block_appended_.wait(hold, [&block] { return !block.queued; });
}

void LoggingService::LogRecords(int channel, const uint8_t* bytes, size_t size, RowBlock& block) {
  AwaitAppended(block);
  const uint8_t* const end = bytes + size - size % kFrameSize;
  block.rows = 0;
  for (const uint8_t* record = bytes; record < end; record += kFrameSize) {
    if ((FrameWord(record, 0) & 0x80000000U) == 0) ++block.rows;  // negative: not a CAN record
  }
  uint64_t turn = 0;
  if (block.rows > 0) {
    // The block's stamps and its turn are taken in one step; the records of one receive
    // arrived together, so one reading of the clock serves them all.
    RowClock clock;
    platform::WallTime now;
    {
      const std::lock_guard<std::mutex> stamps(stamp_lock_);
      now = platform::WallNow();
      clock = LogRowClock();
      LogRowClock().Skip(now, block.rows);
      turn = next_block_++;
    }
    char* out = block.text.get();
    size_t n = 0;
    for (const uint8_t* record = bytes; record < end; record += kFrameSize) {
      const uint32_t id = FrameWord(record, 0);
      if ((id & 0x80000000U) != 0) continue;
      const uint32_t flags = FrameWord(record, 1);
      CanRow row;
      row.channel = channel;
      row.id = id;
      row.extended = (flags & kInfoExtended) != 0;
      row.dlc = static_cast<int>(flags & 0xFF);
      std::memcpy(row.data.data(), record + 8, 8);
      const size_t time_length = clock.Stamp(now, out);
      const size_t length = time_length + FormatRowFields(row, out + time_length);
      block.lengths[n++] = static_cast<uint8_t>(length);
      out += length;
    }
  }
  std::unique_lock<std::mutex> hold(lock_);
  if (block.rows > 0) {
    // The block waits for its turn; whoever appends the block before it appends it too,
    // so no reader waits for another's turn.
    block.turn = turn;
    block.queued = true;
    queued_.push_back(&block);
    for (;;) {
      const auto next = std::find_if(queued_.begin(), queued_.end(),
                                     [this](const RowBlock* b) { return b->turn == next_append_; });
      if (next == queued_.end()) break;
      RowBlock& appended = **next;
      queued_.erase(next);
      AppendRows(hold, appended);
      ++next_append_;
      appended.queued = false;
      block_appended_.notify_all();
    }
  }
  const uint64_t since = file_.BufferedSinceMs();
  if (since != 0 && platform::MonotonicMs() - since >= kFlushDelayMs) {
    const std::lock_guard<std::mutex> io(io_lock_);
    file_.Flush();
  }
}

void LoggingService::AppendRows(std::unique_lock<std::mutex>& hold, const RowBlock& block) {
  const char* text = block.text.get();
  size_t i = 0;
  while (i < block.rows) {
    if (file_.Full()) WriteOutsideLock(hold);
    if (static_cast<uint64_t>(file_.Size()) >= size_limit_) Rotate(hold);
    if (!file_.IsOpen()) return;  // no file: the rows are lost, and not counted
    // The rows up to the one that brings the file to its limit: a flood's large block goes
    // to the file as it is, a small one is copied behind the rows held in memory (as far
    // as they may grow).
    const auto size = static_cast<uint64_t>(file_.Size());
    size_t bytes = 0;
    size_t j = i;
    do {
      bytes += block.lengths[j++];
    } while (j < block.rows && size + bytes < size_limit_);
    if (bytes >= kDirectWriteSize) {
      WriteOutsideLock(hold, text, bytes);
    } else {
      const size_t room = file_.Unfilled();
      while (bytes > room && j > i + 1) bytes -= block.lengths[--j];
      file_.AppendRows(text, bytes);
    }
    bytes_written_ += bytes;
    rows_written_ += j - i;
    text += bytes;
    i = j;
  }
  if (file_.Full()) WriteOutsideLock(hold);
}

void LoggingService::WriteOutsideLock(std::unique_lock<std::mutex>& hold, const char* rows,
                                      size_t length) {
  LogFile::TakenRows held = file_.TakeRows();
  file_.AddDirect(length);
  // Taking the file's write lock before the service's lock is let go keeps the writes in
  // the order the rows were taken; meanwhile the other readers go on formatting rows.
  std::unique_lock<std::mutex> io(io_lock_);
  hold.unlock();
  file_.WriteTaken(held);
  file_.WriteDirect(rows, length);
  io.unlock();
  hold.lock();
  file_.Recycle(std::move(held));
}

void LoggingService::Flush() {
  const std::lock_guard<std::mutex> hold(lock_);
  const std::lock_guard<std::mutex> io(io_lock_);
  file_.Flush();
}

void LoggingService::Rotate(std::unique_lock<std::mutex>& hold) {
  std::unique_lock<std::mutex> io(io_lock_);
  file_.Close();
  RotationPlan plan = PlanRotation(path_, name_, max_count_);
  const std::string next = LogFileName(path_, name_, {}, plan.next_index);
  if (std::find(plan.doomed.begin(), plan.doomed.end(), next) != plan.doomed.end()) {
    DeleteLogFiles(plan);  // the next file takes the name of one to delete: delete first
    plan.doomed.clear();
  }
  file_ = OpenLogFile(path_, name_, plan.next_index);
  if (file_.IsOpen()) ++files_opened_;
  // Deleting a large file takes a while: the other readers write rows meanwhile. The
  // write lock keeps the next rotation and every write waiting until it is done.
  hold.unlock();
  DeleteLogFiles(plan);
  io.unlock();
  hold.lock();
}

LoggingService& Logging() {
  static LoggingService service;
  return service;
}

void StartLogging() { Logging().Start(LoggingConfigFromSettings()); }

void StopLogging() { Logging().Stop(); }

void StopUsbNotifyMonitor() { Logging().StopUsbMonitor(); }

}  // namespace kel
