#include <span>
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

// The frames received and not checked yet, where they lie in the link's buffer: taken
// from the link a buffer at a time, so the check of a fast stream runs over plain memory.
struct PendingFrames {
  const uint8_t* next = nullptr;
  const uint8_t* end = nullptr;
  bool Empty() const { return next == end; }
};

// What a message must look like: its header words and its data under the DLC's mask.
struct ExpectedMessage {
  uint32_t id;
  uint32_t info;
  uint64_t data;
  uint64_t mask;
};

// Drops frames from the front of `pending` up to the one whose header matches `expected`
// and compares its data: kOk when they match, -15 when they differ; false when the frames
// ran out first.
bool CheckPending(PendingFrames& pending, const ExpectedMessage& expected, ResultCode& result) {
  while (!pending.Empty()) {
    const uint8_t* const frame = pending.next;
    pending.next += kFrameSize;
    if (IsCommandFrame(frame) || FrameWord(frame, 0) != expected.id) continue;
    if (((FrameWord(frame, 1) ^ expected.info) & kComparedInfoBits) != 0) continue;
    result = (DataOf(frame) & expected.mask) == expected.data ? kOk : kErrIntegrity;
    return true;
  }
  return false;
}

// A message's outcome and the frames received after it.
struct Awaited {
  ResultCode result;
  PendingFrames pending;
};

// Waits for the message once the frames received before it are used up: up to 15 s, a
// second per receive. -14 when frames came but none matched, -13 when the last second
// brought none (at once when the link breaks), user termination as soon as an interrupt
// is requested. Out of line: a fast stream comes here once per buffer, and the per-frame
// check stays small.
[[gnu::noinline]] Awaited AwaitMessageWaiting(DeviceLink& link, ExpectedMessage expected) {
  const uint64_t base = NowMs();
  bool got_frame = false;
  for (bool first = true;; first = false) {
    if (platform::InterruptRequested()) return {kUserTermination, {}};
    if (!first && NowMs() - base >= kMessageWaitMs) {
      return {got_frame ? kErrMatch : kErrReceive, {}};
    }
    const std::span<const uint8_t> frames = link.NextFrames(kReceiveSliceMs);
    got_frame = !frames.empty();
    if (!got_frame && link.Broken()) return {kErrReceive, {}};
    PendingFrames pending{frames.data(), frames.data() + frames.size()};
    ResultCode result = kOk;
    if (CheckPending(pending, expected, result)) return {result, pending};
  }
}

// The frame a message must match, its data under the DLC's mask.
ExpectedMessage Expect(const MessageWords& message, uint64_t mask) {
  return {message.id, message.info, message.Data() & mask, mask};
}

// Takes the next message from `pending`, waiting for more frames when they run out.
ResultCode NextMessage(DeviceLink& link, PendingFrames& pending, const ExpectedMessage& expected) {
  ResultCode result = kOk;
  if (CheckPending(pending, expected, result)) return result;
  const Awaited awaited = AwaitMessageWaiting(link, expected);
  pending = awaited.pending;
  return awaited.result;
}

// ReceiveMessages for a walk whose messages differ in their counter payload at most: one
// identifier (a CAN one, bit 31 clear), no pause, no time payload; `recv ID:count*N` has
// this shape. While received frames wait, they are checked where they lie, message after
// message, with the expected data kept at hand and the progress line deferred; a frame
// that matches the identifier is a CAN data frame, as command frames have bit 31 set. Out
// of line, so that its registers are its own.
[[gnu::noinline]] ResultCode ReceiveRun(DeviceLink& link, const SendSpec& spec,
                                        ProgressLine& progress, uint32_t& received) {
  const MessageWords first = FirstMessage(spec);
  const uint64_t mask = DataMask(static_cast<uint8_t>(first.info));
  const uint64_t high = uint64_t{first.data_high} << 32;
  const bool counter = spec.count;
  const uint32_t repeat = RepeatCount(spec);
  ExpectedMessage expected = Expect(first, mask);
  PendingFrames pending;
  ResultCode result = kOk;
  uint32_t count = 0;
  while (result == kOk && count < repeat) {
    // The first message, and any that has to wait for frames.
    if (count == 0 || pending.Empty()) {
      result = NextMessage(link, pending, expected);
      if (result != kOk) break;
      ++count;
      progress.Update(count, !pending.Empty());
      if (counter) expected.data = (high | count) & mask;
      continue;
    }
    const uint8_t* frame = pending.next;
    const uint8_t* const end = pending.end;
    for (; frame != end; frame += kFrameSize) {
      if (FrameWord(frame, 0) != expected.id ||
          ((FrameWord(frame, 1) ^ expected.info) & kComparedInfoBits) != 0) {
        continue;
      }
      if ((DataOf(frame) & mask) != expected.data) {
        result = kErrIntegrity;
        frame += kFrameSize;
        break;
      }
      ++count;
      const bool last_frame = frame + kFrameSize == end;
      if (last_frame || count == repeat) progress.Update(count, !last_frame);
      if (count == repeat) {
        frame += kFrameSize;
        break;
      }
      if (counter) expected.data = (high | count) & mask;
    }
    pending.next = frame;
  }
  received = count;
  return result;
}

// Receives the messages of `spec` in the walk's order. Each waits up to 15 s for the frame
// whose header matches, dropping every other frame, and compares its data: -15 when its
// data differs; -14 when frames came but none matched, -13 when the last second brought
// no frame (at once when the link breaks); user termination as soon as an interrupt is
// requested (looked at whenever the frames already received are used up, so a fast stream
// does not pay for it per frame). `received` counts the messages that came whole.
// Frames already received take no time to hand out: the clock starts with the first
// receive that may have to wait, and the progress line waits while frames do.
ResultCode ReceiveMessages(DeviceLink& link, const SendSpec& spec, ProgressLine& progress,
                           uint32_t& received) {
  if (spec.first_id == spec.last_id && (spec.first_id & 0x80000000U) == 0 &&
      spec.interval_ms == 0 && !spec.time) {
    return ReceiveRun(link, spec, progress, received);
  }
  const uint64_t mask = DataMask(static_cast<uint8_t>(FirstMessage(spec).info));
  PendingFrames pending;
  uint32_t count = 0;
  ResultCode result = kOk;
  const auto receive = [&](const MessageWords& message) {
    result = NextMessage(link, pending, Expect(message, mask));
    if (result != kOk) return false;
    ++count;
    return true;
  };
  ForEachMessage(spec, receive, [&] { progress.Update(count, !pending.Empty()); });
  received = count;
  return result;
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
  ProgressLine progress(text::kReceivingProgress, total);
  const ResultCode failure = ReceiveMessages(link, spec, progress, received);
  const bool done = failure == kOk;
  if (!done) {
    out.Printf(text::kReceivedSoFar, static_cast<int>(received), static_cast<int>(total));
    return FormatResult(&entry, failure, out);
  }
  return static_cast<ResultCode>(out.Printf(text::kMessagesReceived, received));
}

}  // namespace kel
