#include "board/buzzer_commands.h"

#include <algorithm>
#include <string>

#include "core/parse.h"
#include "device/command_codes.h"
#include "platform/console.h"
#include "platform/interrupt.h"

namespace kel {
namespace {

constexpr size_t kArgumentSize = 128;
// A tune is the rest of its command; the longest command line fits.
constexpr size_t kTuneSize = 64 * 1024;
constexpr uint64_t kStopPollMs = 20;

bool StartsWithDigit(std::string_view word) {
  return !word.empty() && word[0] >= '0' && word[0] <= '9';
}

bool SendSilence(DeviceLink& link) { return link.SendCommand(code::kBuzzer, 0, 0, 0); }

enum class WaitEnd { kReached, kStopped, kBroken };

// Waits until monotonic time `until`, taking what the board sends meanwhile.
WaitEnd WaitUntil(DeviceLink& link, uint64_t until, const std::function<bool()>& stop,
                  uint64_t* next_stop_check) {
  for (uint64_t now = NowMs(); now < until; now = NowMs()) {
    if (now >= *next_stop_check) {
      if (stop()) return WaitEnd::kStopped;
      *next_stop_check = now + kStopPollMs;
    }
    if (!link.Connected()) return WaitEnd::kBroken;
    const uint64_t slice = std::min(until, *next_stop_check) - now;
    FrameBytes ignored;
    if (!link.ReceiveFrame(ignored.data(), static_cast<int>(std::max<uint64_t>(slice, 1))) &&
        link.Broken()) {
      return WaitEnd::kBroken;
    }
  }
  return WaitEnd::kReached;
}

// Reads the frequency word of `buzz`: a number (0 is off) or a note name. False when it is
// neither or the number is out of range.
bool ParseFrequency(std::string_view word, uint32_t* hz) {
  if (EqualsNoCase(word, "off")) {
    *hz = 0;
    return true;
  }
  if (StartsWithDigit(word)) {
    *hz = ParseValue(word);
  } else if (const std::optional<uint32_t> note = NoteNameFrequency(word)) {
    *hz = *note;
  } else {
    return false;
  }
  return *hz == 0 || (*hz >= kBuzzMinHz && *hz <= kBuzzMaxHz);
}

}  // namespace

PlayOutcome PlayTune(DeviceLink& link, const Tune& tune, const std::function<bool()>& stop) {
  PlayOutcome outcome;
  bool sounding = false;
  uint64_t next_stop_check = 0;
  uint64_t step_start = NowMs();
  for (const TuneNote& note : tune.notes) {
    WaitEnd end = WaitEnd::kReached;
    if (note.frequency_hz != 0) {
      const uint32_t value2 = note.frequency_hz << 16 | kBuzzDefaultDuty;
      if (!link.SendCommand(code::kBuzzer, 0, value2, kBuzzerHeld)) {
        outcome.result = kErrMsgIo;
        sounding = true;  // part of the frame may have gone out
        break;
      }
      ++outcome.notes_played;
      sounding = true;
      end = WaitUntil(link, step_start + note.sound_ms, stop, &next_stop_check);
      if (end != WaitEnd::kReached) {
        if (end == WaitEnd::kBroken) outcome.result = kErrMsgIo;
        break;
      }
      sounding = false;
      if (!SendSilence(link)) {
        outcome.result = kErrMsgIo;
        break;
      }
    }
    step_start += note.length_ms;
    end = WaitUntil(link, step_start, stop, &next_stop_check);
    if (end == WaitEnd::kBroken) outcome.result = kErrMsgIo;
    if (end != WaitEnd::kReached) break;
  }
  if (sounding && !SendSilence(link)) outcome.result = kErrMsgIo;
  return outcome;
}

ResultCode HandleBuzz(const CommandEntry& entry, std::string_view& rest, Output& out) {
  const std::string word = SplitWord(rest, kWordSeparators, kArgumentSize);
  uint32_t hz = 0;
  if (word.empty() || !ParseFrequency(word, &hz)) return FormatResult(&entry, kErrBadArgs, out);
  uint32_t value2 = 0;
  uint32_t duration = 0;
  if (hz != 0) {
    const std::string time = SplitWord(rest, kWordSeparators, kArgumentSize);
    const std::string duty_word = SplitWord(rest, kWordSeparators, kArgumentSize);
    duration = time.empty() ? kBuzzDefaultMs : TruncateToU32(ParseDuration(time));
    const uint32_t duty = duty_word.empty() ? kBuzzDefaultDuty : ParseValue(duty_word);
    if (duration == 0 || (!duty_word.empty() && !StartsWithDigit(duty_word)) || duty < 1 ||
        duty > 99) {
      return FormatResult(&entry, kErrBadArgs, out);
    }
    // The longest duration the board counts means "until the next BUZZER frame".
    duration = std::min(duration, kBuzzerHeld);
    value2 = hz << 16 | duty;
  }
  if (!Device().SendCommand(code::kBuzzer, 0, value2, duration)) {
    return FormatResult(&entry, kErrMsgIo, out);
  }
  return kOk;
}

ResultCode HandlePlay(const CommandEntry& entry, std::string_view& rest, Output& out) {
  const std::string text = SplitWord(rest, kCommandSeparators, kTuneSize);
  const Tune tune = ParseTune(Unquote(text));
  if (TrimText(Unquote(text)).empty() || !tune.Ok()) return FormatResult(&entry, kErrBadArgs, out);
  // A request to stop ends the tune like a key, but the command reports it, once the
  // buzzer is silent.
  const PlayOutcome outcome = PlayTune(Device(), tune, [] {
    if (platform::InterruptRequested()) return true;
    if (!platform::KeyPressed()) return false;
    platform::DiscardKeys();
    return true;
  });
  if (outcome.result < 0) return FormatResult(&entry, outcome.result, out);
  if (platform::InterruptRequested()) return FormatResult(&entry, kUserTermination, out);
  return static_cast<ResultCode>(out.Printf("%u notes played\r\n", outcome.notes_played));
}

}  // namespace kel
