#pragma once

#include <string_view>

#include "core/command.h"

namespace kel {

// The commands of the board controller's serial line (docs/protocol.md). Each opens the
// port named in the settings for itself and closes it again at its end.

/// `serial [<port>|none|off]`: sets the controller's port (none and off forget it), then
/// shows it: "Serial port '%s'\r\n".
ResultCode HandleSerial(const CommandEntry& entry, std::string_view& rest, Output& out);

/// `ssend <text>`: the rest of the command, C escapes read; "$..." goes as it is, anything
/// else framed as "$<text>*HH", both with CR LF. "%u bytes sent\r\n"; -102 for no text, a
/// bad escape or a line over 128 bytes; -10 when the port does not open; -11 when the line
/// does not take the bytes.
ResultCode HandleSerialSend(const CommandEntry& entry, std::string_view& rest, Output& out);

/// `srecv [<time>]`: every line that arrives until <time> (default 1 s) passes without a
/// byte, or a key is pressed; each line "%s\r\n", then "%u lines received\r\n". -10 when the
/// port does not open; -13 when nothing arrives or the port vanishes.
ResultCode HandleSerialReceive(const CommandEntry& entry, std::string_view& rest, Output& out);

/// `sver`: asks the controller for its version: "Board controller %s %s\r\n" (name,
/// version). -10, -11, then -13 without an answer within 1 s, -15 for a broken answer,
/// -101 for an error answer.
ResultCode HandleSerialVersion(const CommandEntry& entry, std::string_view& rest, Output& out);

/// `rpor`: power-on reset of the board through its controller; waits for the controller's
/// OK (1 s) and its boot line (3 s): "Power on reset done, controller %s\r\n". The board's
/// TCP link is dropped either way, so that the line's later commands reach the board that
/// came back. Failures as sver's.
ResultCode HandlePowerOnReset(const CommandEntry& entry, std::string_view& rest, Output& out);

}  // namespace kel
