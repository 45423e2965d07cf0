#pragma once

#include <string_view>

namespace kel {

/// How much a server or proxy message matters.
enum class MessageLevel {
  kError,  ///< a failure: always shown
  kInfo,   ///< a state change such as a port that listens: always shown
  kTrace,  ///< per client and per block of data: shown under `debug socket on`
};

/// Where the TCP server and the proxy send their texts. Called from many threads at once.
class MessageSink {
 public:
  virtual ~MessageSink() = default;
  /// Whether texts of `level` are written now; nothing is formatted for a level not shown.
  virtual bool Shows(MessageLevel level) const = 0;
  virtual void Write(MessageLevel level, std::string_view text) = 0;
};

/// The console: errors and state changes always, trace texts only while the DEBUG Socket
/// setting is on.
MessageSink& ConsoleMessageSink();

/// Formats a text and writes it to `sink`, if the sink shows `level`.
void Report(MessageSink& sink, MessageLevel level, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

}  // namespace kel
