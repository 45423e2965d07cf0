#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

#include "core/command.h"

namespace kel {

// Version, status and counter queries: one transaction per word set, raw words always
// printed, decoded lines where docs/protocol.md defines the words. The counters are those
// of the settings' device channel.
ResultCode HandleVersion(const CommandEntry& entry, std::string_view& rest, Output& out);
ResultCode HandleStatus(const CommandEntry& entry, std::string_view& rest, Output& out);
ResultCode HandleCounters(const CommandEntry& entry, std::string_view& rest, Output& out);
ResultCode HandleErrorCounters(const CommandEntry& entry, std::string_view& rest, Output& out);
ResultCode HandleMessageCounters(const CommandEntry& entry, std::string_view& rest, Output& out);
ResultCode HandlePortStatus(const CommandEntry& entry, std::string_view& rest, Output& out);

/// A packed version (major << 24 | minor << 16 | patch) as "1.2.3 (0x01020003)";
/// 0xFFFFFFFF is "unknown (0xFFFFFFFF)".
std::string VersionText(uint32_t version);

/// The names of set bits joined by ", ", "bit%u" for bits without a name, or `none` when
/// no bit is set. `names[i]` names bit i.
///   (0b101, {"a", "b", "c"}, "none") -> "a, c"; (0x10, {"a"}, "none") -> "bit4"
std::string BitNames(uint32_t bits, std::initializer_list<const char*> names, const char* none);

}  // namespace kel
