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
constexpr int kRawWaitMs = 5000;
constexpr uint64_t kMessageWaitMs = 15000;
constexpr int kReceiveSliceMs = 1000;
// Second-word bits that must equal the expected ones: DLC (0-7), extended (15) and
// flag_r (16-23). Bits 24-31, the echo request and the echo, are not compared.
constexpr uint32_t kComparedInfoBits = 0x00FF80FF;

// The data bytes 0-7 of a frame as one little-endian number.
uint64_t DataOf(const uint8_t* frame) {
  return uint64_t{FrameWord(frame, 2)} | uint64_t{FrameWord(frame, 3)} << 32;
}

// The DLC's data bytes of DataOf: all eight for a DLC of 8 or more.
uint64_t DataMask(uint8_t dlc) { return dlc >= 8 ? ~uint64_t{0} : (uint64_t{1} << 8 * dlc) - 1; }

// Waits up to 15 s for the frame whose header matches `expected`, dropping every other
// frame, and compares its data; frames are checked where they lie in the link's buffer.
// kOk when it came whole; -15 when its data differs; -14 when frames came but none
// matched, -13 when the last second brought no frame (at once when the link breaks);
// user termination as soon as an interrupt is requested (looked at whenever the frames
// already received are used up, so a fast stream does not pay for it per frame).
ResultCode AwaitMessage(DeviceLink& link, const FrameBytes& expected) {
  const uint32_t id = FrameWord(expected.data(), 0);
  const uint32_t info = FrameWord(expected.data(), 1);
  const uint64_t mask = DataMask(expected[4]);
  const uint64_t data = DataOf(expected.data()) & mask;
  // Frames already received take no time to hand out, so the clock starts with the first
  // receive that may have to wait: a fast stream reads no clock per message.
  bool timing = false;
  uint64_t base = 0;
  bool got_frame = false;
  while (true) {
    if (!link.HasBufferedFrame()) {
      if (platform::InterruptRequested()) return kUserTermination;
      if (!timing) {
        base = NowMs();
        timing = true;
      } else if (NowMs() - base >= kMessageWaitMs) {
        break;
      }
    }
    const uint8_t* const frame = link.NextFrame(kReceiveSliceMs);
    got_frame = frame != nullptr;
    if (!got_frame) {
      if (link.Broken()) break;
      continue;
    }
    if (IsCommandFrame(frame) || FrameWord(frame, 0) != id) continue;
    if (((FrameWord(frame, 1) ^ info) & kComparedInfoBits) != 0) continue;
    return (DataOf(frame) & mask) == data ? kOk : kErrIntegrity;
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
  const auto receive = [&](const FrameBytes& expected) {
    failure = AwaitMessage(link, expected);
    if (failure != kOk) return false;
    ++received;
    return true;
  };
  // While received frames wait in the link, the clock waits too: no clock read per message.
  const auto after_repetition = [&] { progress.Update(link.HasBufferedFrame()); };
  const bool done = ForEachMessage(spec, receive, after_repetition);
  if (!done) {
    out.Printf(text::kReceivedSoFar, static_cast<int>(received), static_cast<int>(total));
    return FormatResult(&entry, failure, out);
  }
  return static_cast<ResultCode>(out.Printf(text::kMessagesReceived, received));
}

}  // namespace kel
