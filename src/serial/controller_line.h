#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

#include "core/result.h"
#include "platform/serial_port.h"
#include "serial/line_codec.h"

namespace kel {

/// The time limit of one write to the controller's line.
inline constexpr int kSerialWriteLimitMs = 1000;

/// The board controller's serial line as one command uses it: the port named in the
/// settings, opened by Open and closed when the object goes. With the serial debug flag on,
/// every line sent is traced as "[SerSend %s]\n" and every line received as
/// "[SerRecv %s]\n" (VisibleText, line ends left out).
class ControllerLine {
 public:
  /// Opens the settings' port: kOk, or -10 when no port is named or it cannot be opened
  /// (with the serial debug flag on, the reason is traced as "[SerOpen %s: %s]\n").
  ResultCode Open();

  /// Throws away whatever arrived before, then writes `bytes`: kOk, or -11 when the line
  /// does not take them within kSerialWriteLimitMs.
  ResultCode Send(std::string_view bytes);

  /// How waiting for more ended.
  enum class Arrival { kData, kSilence, kGone };
  /// Waits until `deadline_ms` (NowMs) for bytes, cuts what came into lines (NextLine
  /// hands them out) and says whether anything came.
  Arrival WaitForBytes(uint64_t deadline_ms);
  /// Takes the next whole line received, if there is one.
  bool NextLine(ReceivedLine* line);
  /// The bytes of a line not ended yet (empty text when there are none).
  ReceivedLine TakePartial() { return splitter_.TakePartial(); }

  /// Waits up to `timeout_ms` for the answer whose command is `command` and leaves it in
  /// `answer`. Lines without "$" and well-formed lines of other commands are skipped.
  /// kOk; -13 when none comes in time or the port vanishes; -15 for a "$" line that is
  /// over-long, malformed or fails its checksum; -101 for a "$ERR" answer.
  ResultCode AwaitAnswer(std::string_view command, int timeout_ms, ParsedLine* answer);

 private:
  platform::SerialPort port_;
  LineSplitter splitter_;
  std::deque<ReceivedLine> lines_;
};

}  // namespace kel
