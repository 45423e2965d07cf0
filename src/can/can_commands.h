#pragma once

#include <string_view>

#include "core/command.h"

namespace kel {

/// `send <hexa>` or `send <text>`: sends raw bytes as one frame, or the messages of a send
/// text (can/send_text.h), pacing, echo waits and progress included.
ResultCode HandleSend(const CommandEntry& entry, std::string_view& rest, Output& out);

/// `recv <hexa>` or `recv <spec>`: waits for one frame, or for every message that
/// `send <spec>` sends, in order, and checks each.
ResultCode HandleReceive(const CommandEntry& entry, std::string_view& rest, Output& out);

/// `filt [get|clr|set|add|del|tst] [items]`: reads, writes, widens, narrows or lists the
/// acceptance filter of the current channel.
ResultCode HandleFilter(const CommandEntry& entry, std::string_view& rest, Output& out);

}  // namespace kel
