#include "logging/log_command.h"

#include "core/parse.h"

namespace kel {
namespace {

constexpr char kStatusFormat[] = "Logging is %s and %s (%uMiB * %u files)\n";
constexpr char kWrittenFormat[] = " + %d files / %d MiB written\n";
constexpr char kNameFormat[] = " + name '%s'\n";
constexpr char kPathFormat[] = " + path '%s'\n";
constexpr char kSocketFormat[] = " + socket %d: %s:%u\n";
constexpr char kDebugMonitorLine[] = " + WinDebug monitor activated\n";
constexpr char kUsbMonitorLine[] = " + USB-notify monitor activated\n";
constexpr char kCommentFormat[] = "COMMENT '%s'";

constexpr size_t kActionSize = 256;    // the action word
constexpr size_t kNameSize = 1024;     // a file name or path
constexpr size_t kMessageSize = 8192;  // a comment
constexpr size_t kStatusSize = 4096;

enum class LogAction {
  kStatus,
  kStart,
  kStop,
  kComment,
  kFile,
  kPath,
  kSize,
  kCount,
  kUsb,
  kDebug
};

struct ActionWord {
  std::string_view word;
  LogAction action;
};

// Matched as written (case matters), first match first.
constexpr ActionWord kActionWords[] = {
    {"", LogAction::kStatus},     {"view", LogAction::kStatus},     {"status", LogAction::kStatus},
    {"start", LogAction::kStart}, {"on", LogAction::kStart},        {"stop", LogAction::kStop},
    {"off", LogAction::kStop},    {"comment", LogAction::kComment}, {"note", LogAction::kComment},
    {"file", LogAction::kFile},   {"path", LogAction::kPath},       {"size", LogAction::kSize},
    {"count", LogAction::kCount}, {"usb", LogAction::kUsb},         {"usbntf", LogAction::kUsb},
    {"debug", LogAction::kDebug}, {"windbg", LogAction::kDebug},    {"windebug", LogAction::kDebug},
};

// The rest of the line, up to CR or LF (";" included), trimmed and cut to `size` - 1.
std::string TakeLine(std::string_view& rest, size_t size) {
  const std::string_view line = rest.substr(0, rest.find_first_of("\r\n"));
  rest.remove_prefix(line.size());
  return std::string(TrimText(line).substr(0, size - 1));
}

uint32_t TakeValue(std::string_view& rest) {
  return ParseValue(SplitWord(rest, kWordSeparators, kActionSize));
}

void ApplyLimits(const Settings& settings) {
  Logging().SetLimits(settings.log_slice_size, settings.log_slice_count);
}

}  // namespace

std::string LoggingStatusText(const LoggingStatus& status, const Settings& settings) {
  Output text(kStatusSize);
  text.Printf(kStatusFormat, status.active ? "active" : "not active",
              status.running ? "running" : "not running",
              static_cast<unsigned>(settings.log_slice_size / 1048576), settings.log_slice_count);
  text.Printf(kWrittenFormat, static_cast<int>(status.files_opened),
              static_cast<int>(status.bytes_written / 1048576));
  text.Printf(kNameFormat, settings.log_file_name.c_str());
  text.Printf(kPathFormat, settings.log_file_path.c_str());
  int number = 0;
  for (const platform::SocketAddress& peer : status.peers) {
    text.Printf(kSocketFormat, ++number, platform::DottedAddress(peer.ip).c_str(),
                static_cast<unsigned>(peer.port));
  }
  if (status.debug_monitor) text.Append(kDebugMonitorLine);
  if (status.usb_monitor) text.Append(kUsbMonitorLine);
  return std::string(text.Text());
}

ResultCode HandleLog(const CommandEntry& entry, std::string_view& rest, Output& out) {
  const std::string word = SplitWord(rest, kWordSeparators, kActionSize);
  const ActionWord* found = nullptr;
  for (const ActionWord& candidate : kActionWords) {
    if (candidate.word == word) {
      found = &candidate;
      break;
    }
  }
  if (found == nullptr) return FormatResult(&entry, kErrBadArgs, out);

  Settings& settings = CurrentSettings();
  switch (found->action) {
    case LogAction::kStatus: break;
    case LogAction::kStart: StartLogging(); break;
    case LogAction::kStop: StopLogging(); break;
    case LogAction::kComment: {
      const std::string message = TakeLine(rest, kMessageSize);
      if (Logging().Note(kCommentFormat, message.c_str()) == 0) {
        return FormatResult(&entry, kErrLogging, out);
      }
      return kOk;
    }
    case LogAction::kFile: settings.log_file_name = TakeLine(rest, kNameSize); break;
    case LogAction::kPath: settings.log_file_path = TakeLine(rest, kNameSize); break;
    case LogAction::kSize:
      settings.log_slice_size = uint64_t{TakeValue(rest)} << 20;
      ApplyLimits(settings);
      break;
    case LogAction::kCount:
      settings.log_slice_count = TakeValue(rest);
      ApplyLimits(settings);
      break;
    case LogAction::kUsb: settings.log_usb_notify = TakeValue(rest); break;
    case LogAction::kDebug: settings.log_win_debug = TakeValue(rest); break;
  }
  out.Append(LoggingStatusText(Logging().Status(), settings));
  return kOk;
}

}  // namespace kel
