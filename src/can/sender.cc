#include <string>

#include "can/can_commands.h"
#include "can/send_text.h"
#include "can/texts.h"
#include "can/traffic.h"
#include "core/parse.h"
#include "device/device_link.h"
#include "platform/interrupt.h"

namespace kel {
namespace {

constexpr size_t kArgumentSize = 1024;
constexpr uint64_t kEchoWaitMs = 15000;
constexpr int kReceiveSliceMs = 1000;

// True when `frame` is the board's echo of `sent`: a CAN data frame with the identifier
// just sent, the echo bit and the DLC sent.
bool IsEchoOf(const uint8_t* frame, const FrameBytes& sent) {
  return !IsCommandFrame(frame) && FrameWord(frame, 0) == FrameWord(sent.data(), 0) &&
         (FrameWord(frame, 1) & kInfoEcho) != 0 && frame[4] == sent[4];
}

// Waits up to 15 s for the echo of `sent`, dropping every other frame; a broken link or an
// interrupt request ends the wait at once.
bool WaitForEcho(DeviceLink& link, const FrameBytes& sent) {
  const uint64_t base = NowMs();
  FrameBytes frame;
  while (NowMs() - base < kEchoWaitMs && !platform::InterruptRequested()) {
    if (link.ReceiveFrame(frame.data(), kReceiveSliceMs)) {
      if (IsEchoOf(frame.data(), sent)) return true;
    } else if (link.Broken()) {
      return false;
    }
  }
  return false;
}

}  // namespace

ResultCode HandleSend(const CommandEntry& entry, std::string_view& rest, Output& out) {
  const std::string argument = SplitWord(rest, kCommandSeparators, kArgumentSize);
  if (argument.empty()) return FormatResult(&entry, kErrBadArgs, out);
  DeviceLink& link = Device();
  if (IsRawArgument(argument)) {
    uint8_t bytes[kRawCapacity] = {};
    const size_t length = ParseHexBytes(argument, bytes, kRawCapacity, false);
    const unsigned sent = link.SendCanData(bytes, length) ? 1 : 0;
    return static_cast<ResultCode>(out.Printf(text::kMessagesSent, sent));
  }

  SendSpec spec;
  ParseSendSpec(argument, spec);  // a bad identifier ends parsing; what was parsed is sent
  const uint32_t total = TotalMessages(spec);
  uint32_t sent = 0;
  ResultCode failure = kOk;
  ProgressLine progress(text::kSendingProgress, total);
  const auto send = [&](const MessageWords& message) {
    const FrameBytes frame = message.Bytes();
    if (platform::InterruptRequested()) {
      failure = kUserTermination;
      return false;
    }
    if (!link.SendCanData(frame.data(), frame.size())) {
      failure = kErrSend;
      return false;
    }
    ++sent;
    // Any of bits 24-31 of the second word asks for the echo.
    if (frame[7] != 0 && !WaitForEcho(link, frame)) {
      failure = platform::InterruptRequested() ? kUserTermination : kErrSendAck;
      return false;
    }
    return true;
  };
  const bool done = ForEachMessage(spec, send, [&] { progress.Update(sent); });
  if (!done) {
    out.Printf(text::kSentSoFar, static_cast<int>(sent), static_cast<int>(total));
    return FormatResult(&entry, failure, out);
  }
  return static_cast<ResultCode>(out.Printf(text::kMessagesSent, sent));
}

}  // namespace kel
