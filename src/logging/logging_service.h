#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "logging/debug_monitor.h"
#include "logging/log_files.h"
#include "logging/usb_monitor.h"
#include "platform/socket.h"

namespace kel {

/// What one logging run uses: where the board's ports are and where the files go.
struct LoggingConfig {
  std::string address = "127.0.0.1";  ///< the board's address
  int base_port = 27015;              ///< connection i goes to base_port + i
  std::string path;                   ///< directory of the files (may be empty)
  std::string name = "kelcmd.log";    ///< base name of the files
  uint64_t size_limit = 0xA00000;     ///< a file is rotated once it holds this many bytes
  int64_t max_count = 10;             ///< files kept, the open one included
  bool debug_monitor = false;         ///< notes of every program's debug output
  bool usb_monitor = false;           ///< notes of USB devices that come and go
};

/// The logging settings as they stand: the device address, the proxy port as the base
/// port, the file path, name, size and count.
LoggingConfig LoggingConfigFromSettings();

/// What the status of the service shows.
struct LoggingStatus {
  bool active = false;
  bool running = false;
  uint32_t files_opened = 0;
  uint64_t bytes_written = 0;
  uint64_t rows_written = 0;
  std::vector<platform::SocketAddress> peers;  ///< one per connection, in slot order
  bool debug_monitor = false;                  ///< the debug-output monitor runs
  bool usb_monitor = false;                    ///< the USB-notify monitor runs
};

/// Records the CAN traffic of the board's ports into rotating BUSMASTER files. A run opens
/// its own connections, one per port from the base port up (at most kMaxConnections, up
/// to the first port that refuses), and reads 16-byte frame records on one thread per
/// connection; every CAN record (identifier not negative) becomes a row. Each reader
/// formats the rows of a receive into a block of its own, with time stamps it takes from
/// the row clock in one step, and appends the block under the service's lock in the order
/// the stamps were taken, so that the suffixes grow along the file across readers; the
/// notes and the rotation (exact to the row) go under the same lock.
///
/// Start, Stop, SetLimits and Status are called from one thread (the command thread);
/// Note may be called from any thread.
class LoggingService {
 public:
  static constexpr int kMaxConnections = 16;

  LoggingService() = default;
  /// Stops a run still going.
  ~LoggingService();
  LoggingService(const LoggingService&) = delete;
  LoggingService& operator=(const LoggingService&) = delete;

  /// Starts a run, stopping the one before first: opens the next file of the family
  /// (which counts as a file written), then connects and starts the readers, then the
  /// monitors the config asks for, whose messages become notes:
  ///   "WINDBG: [<pid>-<process name>] <text>", "USBNTF: <text>"
  /// The run is active even when no port answers, no file could be opened or a monitor
  /// could not start (then it is not shown running).
  void Start(const LoggingConfig& config);
  /// Ends the run: ends the sending direction of every connection, so that the board
  /// sends what it still owes and closes, and lets the readers log up to that end (within
  /// the closing wait of platform::CloseGracefully); then wakes every reader still running
  /// by shutting its socket down, waits up to
  /// platform::kThreadJoinLimitMs for each (one that still runs is left to end by itself,
  /// with a note in the log), then closes the file with its footer. Harmless when stopped.
  /// The USB-notify and debug-output monitors stop before all that.
  void Stop();

  /// Changes the size limit and the file count of the run going on (and of later ones).
  void SetLimits(uint64_t size_limit, int64_t max_count);

  /// Writes "***NOTE: <text>***" into the current file, the text made from `format` and
  /// its arguments (at most 8191 characters). Returns the characters written: 0 when the
  /// service is stopped or no file is open.
  size_t Note(const char* format, ...) __attribute__((format(printf, 2, 3)));

  /// Stops the USB-notify monitor alone, as shutdown does before it stops the service.
  void StopUsbMonitor() { usb_monitor_.Stop(); }

  /// Where later starts take USB device notices from (tests: one end of a datagram pair);
  /// by default the system's own.
  void SetUsbEventSource(UsbNotifyMonitor::SourceFactory open) { usb_source_ = std::move(open); }

  LoggingStatus Status() const;
  bool Active() const { return active_; }
  bool Running() const { return running_; }

 private:
  struct Reader;
  struct RowBlock;

  void ReadLoop(Reader& reader);
  void StartMonitors(const LoggingConfig& config);
  // Writes the whole records of `bytes` as rows of `channel`, formatted in `block`, rotating
  // by size.
  void LogRecords(int channel, const uint8_t* bytes, size_t size, RowBlock& block);
  // Returns once `block` is no longer queued for its turn.
  void AwaitAppended(const RowBlock& block);
  // Appends the formatted rows of `block` to the file, rotating before every row that
  // finds the file at its size limit; `hold` is held on entry and on return.
  void AppendRows(std::unique_lock<std::mutex>& hold, const RowBlock& block);
  void Flush();
  // Closes the file, opens the next one and deletes the oldest, the last with only
  // io_lock_ held; `hold` is held again on return.
  void Rotate(std::unique_lock<std::mutex>& hold);
  // Writes the rows held in memory (a full buffer), then `length` bytes of `rows` straight
  // from the caller's block, with only io_lock_ held; then takes `hold` again.
  void WriteOutsideLock(std::unique_lock<std::mutex>& hold, const char* rows = nullptr,
                        size_t length = 0);

  std::atomic<bool> lock_ready_{false};  // notes are taken
  std::atomic<bool> running_{false};
  std::atomic<bool> active_{false};
  std::vector<std::shared_ptr<Reader>> readers_;  // the command thread's only
  DebugOutputMonitor debug_monitor_;
  UsbNotifyMonitor usb_monitor_;
  UsbNotifyMonitor::SourceFactory usb_source_ = UsbNotifyMonitor::OpenSystemSource;

  // Guards the row clock (LogRowClock) and next_block_: a block's stamps and its place
  // in the file's order are taken together.
  std::mutex stamp_lock_;
  uint64_t next_block_ = 0;
  // Writes to the file: taken after lock_ by every call that may write, and alone by the
  // write of a full buffer, so that rows go on being written meanwhile.
  std::mutex io_lock_;
  mutable std::mutex lock_;  // guards everything below
  std::condition_variable block_appended_;
  uint64_t next_append_ = 0;       // the turn of the block to be appended next
  std::vector<RowBlock*> queued_;  // formatted blocks waiting for their turn
  LogFile file_;
  std::string path_;
  std::string name_;
  uint64_t size_limit_ = 0xA00000;
  int64_t max_count_ = 10;
  uint32_t files_opened_ = 0;
  uint64_t bytes_written_ = 0;
  uint64_t rows_written_ = 0;
};

/// The process-wide logging service.
LoggingService& Logging();

/// Starts the process-wide service with the current settings, as start-up does when
/// logging is active, and as "log start" does.
void StartLogging();
/// Stops the process-wide service, as shutdown does.
void StopLogging();
/// Stops the process-wide service's USB-notify monitor, the first step of shutdown.
void StopUsbNotifyMonitor();

}  // namespace kel
