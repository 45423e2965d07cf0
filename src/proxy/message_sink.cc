#include "proxy/message_sink.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "config/settings.h"
#include "core/console.h"

namespace kel {
namespace {

class ConsoleSink : public MessageSink {
 public:
  bool Shows(MessageLevel level) const override {
    // The flag is only read here; a change by `debug socket` applies from the next text.
    return level != MessageLevel::kTrace || CurrentSettings().debug_socket;
  }
  void Write(MessageLevel /*level*/, std::string_view text) override { ConsoleWrite(text); }
};

}  // namespace

MessageSink& ConsoleMessageSink() {
  static ConsoleSink sink;
  return sink;
}

void Report(MessageSink& sink, MessageLevel level, const char* format, ...) {
  if (!sink.Shows(level)) return;
  char text[512];
  va_list args;
  va_start(args, format);
  const int length = std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  if (length < 0) return;
  sink.Write(level, std::string_view(text, std::min<size_t>(length, sizeof text - 1)));
}

}  // namespace kel
