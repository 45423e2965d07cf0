#include <algorithm>
#include <string>

#include "can/can_commands.h"
#include "can/send_spec.h"
#include "can/texts.h"
#include "can/traffic.h"
#include "device/device_link.h"
#include "shell/parse.h"

namespace kel {
namespace {

constexpr size_t kArgumentSize = 1024;
constexpr int kRawWaitMs = 5000;
constexpr uint64_t kMessageWaitMs = 15000;
constexpr int kReceiveSliceMs = 1000;
// Second-word bits that must equal the expected ones: DLC (0-7), extended (15) and
// flag_r (16-23). Bits 24-31, the echo request and the echo, are not compared.
constexpr uint32_t kComparedInfoBits = 0x00FF80FF;

// Waits up to 15 s for the frame whose header matches `expected`, dropping every other
// frame, and compares its data. kOk when it came whole; -15 when its data differs; -14
// when frames came but none matched, -13 when the last second brought no frame (at once
// when the link breaks).
ResultCode AwaitMessage(DeviceLink& link, const FrameBytes& expected, FrameBytes& frame) {
  const uint32_t id = FrameWord(expected.data(), 0);
  const uint32_t info = FrameWord(expected.data(), 1);
  const uint64_t base = NowMs();
  bool got_frame = false;
  while (NowMs() - base < kMessageWaitMs) {
    got_frame = link.ReceiveFrame(frame.data(), kReceiveSliceMs);
    if (!got_frame) {
      if (link.Broken()) break;
      continue;
    }
    if (IsCommandFrame(frame.data()) || FrameWord(frame.data(), 0) != id) continue;
    if (((FrameWord(frame.data(), 1) ^ info) & kComparedInfoBits) != 0) continue;
    const size_t dlc = std::min<size_t>(expected[4], kDataCapacity);
    return std::equal(frame.begin() + 8, frame.begin() + 8 + dlc, expected.begin() + 8)
               ? kOk
               : kErrIntegrity;
  }
  return got_frame ? kErrMatch : kErrReceive;
}

}  // namespace

ResultCode HandleReceive(const CommandEntry& entry, std::string_view& rest, Output& out) {
  const std::string argument = SplitWord(rest, kCommandSeparators, kArgumentSize);
  if (argument.empty()) return FormatResult(&entry, kErrBadArgs, out);
  DeviceLink& link = Device();
  FrameBytes frame{};
  if (IsRawArgument(argument)) {
    const unsigned received = link.ReceiveFrame(frame.data(), kRawWaitMs) ? 1 : 0;
    return static_cast<ResultCode>(out.Printf(text::kMessagesReceived, received));
  }

  SendSpec spec;
  ParseSendSpec(argument, spec);  // as the sender reads it, so both agree on every message
  const uint32_t total = TotalMessages(spec);
  uint32_t received = 0;
  ResultCode failure = kOk;
  ProgressLine progress(text::kReceivingProgress, total, received);
  const bool done = ForEachMessage(spec, progress, [&](const FrameBytes& expected) {
    failure = AwaitMessage(link, expected, frame);
    if (failure != kOk) return false;
    ++received;
    return true;
  });
  if (!done) {
    out.Printf(text::kReceivedSoFar, static_cast<int>(received), static_cast<int>(total));
    return FormatResult(&entry, failure, out);
  }
  return static_cast<ResultCode>(out.Printf(text::kMessagesReceived, received));
}

}  // namespace kel
