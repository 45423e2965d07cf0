#include "proxy/proxy_command.h"

#include <string>

#include "core/parse.h"
#include "proxy/can_proxy.h"

namespace kel {
namespace {

enum class ProxyAction { kStatus, kStart, kStop };

struct ActionWord {
  std::string_view word;
  ProxyAction action;
};

constexpr ActionWord kActionWords[] = {
    {"", ProxyAction::kStatus},       {"view", ProxyAction::kStatus},
    {"status", ProxyAction::kStatus}, {"start", ProxyAction::kStart},
    {"on", ProxyAction::kStart},      {"stop", ProxyAction::kStop},
    {"off", ProxyAction::kStop},
};

constexpr size_t kWordSize = 128;

}  // namespace

ResultCode HandleProxy(const CommandEntry& entry, std::string_view& rest, Output& out) {
  // The word runs to the end of the command, as with `conf`: "start now" is no action.
  const std::string word = SplitWord(rest, kCommandSeparators, kWordSize);
  const ActionWord* found = nullptr;
  for (const ActionWord& candidate : kActionWords) {
    if (EqualsNoCase(word, candidate.word)) found = &candidate;
  }
  if (found == nullptr) return FormatResult(&entry, kErrBadArgs, out);
  if (found->action == ProxyAction::kStart) StartProxy();
  if (found->action == ProxyAction::kStop) StopProxy();
  return static_cast<ResultCode>(out.Append(ProxyStatusText(ProxyRunning())));
}

}  // namespace kel
