#include "shell/executor.h"

#include <exception>
#include <new>

#include "core/invocation.h"
#include "core/parse.h"
#include "device/device_link.h"
#include "platform/interrupt.h"
#include "shell/command_table.h"

namespace kel {
namespace {

// The pending text of the runner; grows as needed and is never shrunk.
std::string& PendingBuffer() {
  static std::string pending;
  return pending;
}

// Command words are cut at 63 characters, as the word buffer holds 64 bytes.
constexpr size_t kCommandWordSize = 64;

}  // namespace

ResultCode RunCommandLine(const DeviceTarget& target, std::string_view text, Output& out) {
  // The line ends at its first NUL, as a C string would.
  if (const size_t nul = text.find('\0'); nul != std::string_view::npos) text = text.substr(0, nul);
  std::string& pending = PendingBuffer();
  ResultCode result = kOk;
  try {
    pending.append(text);
  } catch (const std::bad_alloc&) {
    pending.clear();
    return FormatResult(nullptr, kErrMemory, out);
  }
  out.Clear();
  std::string_view view(pending);
  // An interrupt request ends the line after the command it stopped.
  while (!view.empty() && result >= 0 && !platform::InterruptRequested()) {
    result = ExecuteCommand(target, view, out);
  }
  pending.clear();
  Device().Disconnect();
  return result;
}

ResultCode ExecuteCommand(const DeviceTarget& target, std::string_view& pending, Output& out) {
  if (pending.empty()) return kErrNok;
  const std::string name = SplitWord(pending, kWordSeparators, kCommandWordSize);
  if (name.empty()) return FormatResult(nullptr, kErrSyntax, out);
  const ResultCode result = DispatchCommand(target, name, pending, out);
  if (result < 0) return result;
  // Arguments the handler left are ignored: drop the rest of this command, then the
  // separators in front of the next one.
  const size_t end = pending.find_first_of(kCommandSeparators);
  pending.remove_prefix(end == std::string_view::npos ? pending.size() : end);
  const size_t next = pending.find_first_not_of(" :;\r\n");
  pending.remove_prefix(next == std::string_view::npos ? pending.size() : next);
  return result;
}

ResultCode DispatchCommand(const DeviceTarget& target, std::string_view name,
                           std::string_view& rest, Output& out) {
  const CommandEntry* entry = FindCommand(name);
  if (entry == nullptr) return FormatResult(nullptr, kErrBadCommand, out);
  if (entry->needs_device && !Device().Connect(target.address, target.port)) {
    return FormatResult(entry, kErrConnect, out);
  }
  SetCalledName(name);
  ResultCode result = kOk;
  try {
    result = entry->handler(*entry, rest, out);
  } catch (const std::bad_alloc&) {
    result = FormatResult(entry, kErrMemory, out);
  } catch (const std::exception&) {
    result = FormatResult(entry, kErrNok, out);
  }
  SetCalledName({});
  return result;
}

}  // namespace kel
