#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kel {

struct CommandEntry;
class Output;

/// A command's result: zero or positive is success (by convention the length of the
/// command's output), negative values are the error codes below.
using ResultCode = int32_t;

inline constexpr ResultCode kOk = 0;
inline constexpr ResultCode kErrNok = -1;
inline constexpr ResultCode kErrMemory = -2;
inline constexpr ResultCode kErrSyntax = -3;
inline constexpr ResultCode kErrConnect = -10;
inline constexpr ResultCode kErrSend = -11;
inline constexpr ResultCode kErrSendAck = -12;
inline constexpr ResultCode kErrReceive = -13;
inline constexpr ResultCode kErrMatch = -14;
inline constexpr ResultCode kErrIntegrity = -15;
inline constexpr ResultCode kErrBadCommand = -100;
inline constexpr ResultCode kErrMsgIo = -101;
inline constexpr ResultCode kErrBadArgs = -102;
inline constexpr ResultCode kErrBadIo = -103;
inline constexpr ResultCode kErrBadBaud = -104;
inline constexpr ResultCode kErrLogging = -110;
inline constexpr ResultCode kErrTestFailed = -200;
/// The status of a child process that the user ended (0xC000013A).
inline constexpr ResultCode kUserTermination = static_cast<ResultCode>(0xC000013AU);

/// The message line of `code`: "ERROR %d: " and the code's message, with the help hint
/// of `entry` (may be null) for -102 and -104. Code 0 gives "Ok".
std::string ErrorText(const CommandEntry* entry, ResultCode code);

/// The choices that the -103 message offers between "(try " and ")": the names of the
/// board's pins, which the program sets once at start (core knows no pins).
void SetBadIoChoices(std::string_view choices);

/// For a negative `code`, appends ErrorText and CR LF to `out`; returns `code`.
ResultCode FormatResult(const CommandEntry* entry, ResultCode code, Output& out);

}  // namespace kel
