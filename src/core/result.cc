#include "core/result.h"

#include <cstdio>

#include "core/command.h"
#include "core/output.h"

namespace kel {
namespace {

// The message buffer of the original holds 8192 bytes, so texts are cut at 8191.
constexpr size_t kErrorTextMax = 8191;

std::string& BadIoChoices() {
  static std::string choices;
  return choices;
}

const char* MessageOf(ResultCode code) {
  switch (code) {
    case kErrNok: return "Nok";
    case kErrMemory: return "Memory allocation error";
    case kErrSyntax: return "Syntax error";
    case kErrConnect: return "Connect failed";
    case kErrSend: return "Sending failed";
    case kErrSendAck: return "SendAck failed";
    case kErrReceive: return "Receiving failed";
    case kErrMatch: return "Matching failed";
    case kErrIntegrity: return "Integrity failed";
    case kErrBadCommand: return "Bad or invalid command";
    case kErrMsgIo: return "MsgIO failed";
    case kErrBadArgs: return "Bad or missing arguments\n";
    case kErrBadBaud: return "Invalid baudrate\n";
    case kErrLogging: return "Logging not active";
    default: return "Unknown error code";
  }
}

}  // namespace

std::string ErrorText(const CommandEntry* entry, ResultCode code) {
  if (code == kOk) return "Ok";
  if (code == kUserTermination) return "0xC000013A: User termination";

  char prefix[32];
  std::snprintf(prefix, sizeof prefix, "ERROR %d: ", code);
  std::string text = prefix;
  if (code == kErrBadIo) {
    text += "Bad or missing io argument (try ";
    text += BadIoChoices();
    text += ")";
  } else {
    text += MessageOf(code);
    const bool hinted = code == kErrBadArgs || code == kErrBadBaud;
    if (hinted && entry != nullptr && !entry->Name().empty()) {
      text.pop_back();  // the hint takes the place of the final line end
      text += " (try 'help ";
      text += entry->Name();
      text += "')";
    }
  }
  if (text.size() > kErrorTextMax) text.resize(kErrorTextMax);
  return text;
}

void SetBadIoChoices(std::string_view choices) { BadIoChoices() = std::string(choices); }

ResultCode FormatResult(const CommandEntry* entry, ResultCode code, Output& out) {
  if (code < 0) {
    out.Append(ErrorText(entry, code));
    out.Append("\r\n");
  }
  return code;
}

}  // namespace kel
