#include "config/config_commands.h"

#include <string>

#include "config/settings.h"
#include "core/parse.h"

namespace kel {
namespace {

ResultCode WriteTarget(Output& out) {
  const Settings& s = CurrentSettings();
  return static_cast<ResultCode>(out.Printf("IP address %s:%d/%d\r\n", s.device_address.c_str(),
                                            s.device_port, s.device_channel));
}

}  // namespace

ResultCode HandleConf(const CommandEntry& entry, std::string_view& rest, Output& out) {
  // The action is the whole rest of the command, so "load other.ini" is no action:
  // only the default file can be loaded or saved from here.
  const std::string action = SplitWord(rest, kCommandSeparators, 1024);
  if (action.empty() || EqualsNoCase(action, "view")) {
    ShowSettings();
    return kOk;
  }
  const bool load = EqualsNoCase(action, "load");
  if (!load && !EqualsNoCase(action, "save")) return FormatResult(&entry, kErrBadArgs, out);
  const std::string name(TrimText(SplitWord(rest, kCommandSeparators, 1024)));
  const bool ok = load ? LoadSettings(name) : SaveSettings(name);
  return static_cast<ResultCode>(
      out.Printf(load ? "Loading configs %s\n" : "Saving configs %s\n", ok ? "OK" : "failed"));
}

ResultCode HandleAddr(const CommandEntry& entry, std::string_view& rest, Output& out) {
  const std::string argument = SplitWord(rest, kCommandSeparators, 128);
  if (argument.empty()) return WriteTarget(out);

  // "address:port/channel": each of ':' and '/' ends the part in front of it.
  const size_t colon = argument.find(':');
  const size_t slash = argument.find('/');
  const std::string_view text(argument);
  const std::string_view address = text.substr(0, std::min(colon, slash));
  auto part_after = [&text](size_t at, size_t other) -> std::string_view {
    if (at == std::string_view::npos) return {};
    const size_t end = (other != std::string_view::npos && other > at) ? other : text.size();
    return text.substr(at + 1, end - at - 1);
  };
  const std::string_view port_text = part_after(colon, slash);
  const std::string_view channel_text = part_after(slash, colon);

  Settings& s = CurrentSettings();
  bool changed = false;
  const uint32_t ip = InetAddr(address);
  if (ip != 0 && ip != kInetNone) {
    s.device_address = std::string(TrimText(address));
    changed = true;
  }
  if (!port_text.empty() && ParseDecimal(port_text) > 0) {
    s.device_port = ParseDecimal(port_text);
    changed = true;
  }
  if (!channel_text.empty()) {
    const int32_t channel = ParseDecimal(channel_text);
    if (channel >= 0 && channel <= 3) {
      s.device_channel = channel;
      return WriteTarget(out);
    }
  }
  if (!changed) return FormatResult(&entry, kErrBadArgs, out);
  return WriteTarget(out);
}

}  // namespace kel
