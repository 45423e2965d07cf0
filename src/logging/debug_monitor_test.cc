// What the debug-output monitor makes of the messages it takes.

#include "logging/debug_monitor.h"

#include <gtest/gtest.h>

#include <string>

namespace kel {
namespace {

using namespace std::string_literals;

TEST(DebugMonitorTest, SyslogHeaderOfLoggerIsDroppedAndNothingElse) {
  struct Case {
    std::string_view text, expected;
  };
  const Case cases[] = {
      {"<13>Nov 24 16:41:04 root: started", "root: started"},
      {"<13>Nov  4 06:01:04 app[42]: x", "app[42]: x"},
      {"<191>text", "text"},
      {"Nov 24 16:41:04 text", "text"},
      {"<13>", ""},
      {"<>text", "<>text"},
      {"<12345>text", "<12345>text"},  // no priority has five digits
      {"<13 text", "<13 text"},
      {"Nov 24 16:41 text", "Nov 24 16:41 text"},
      {"plain text", "plain text"},
      {"", ""},
  };
  for (const Case& c : cases) EXPECT_EQ(c.expected, StripSyslogHeader(c.text)) << c.text;
}

TEST(DebugMonitorTest, MessagesBecomeOneSafeLine) {
  struct Case {
    std::string text;
    size_t limit;
    std::string expected;
  };
  const Case cases[] = {
      {"hello\n", 100, "hello"},
      {"hello\r\n\0"s, 100, "hello"},
      {"a\tb\x1b[2Jc\x7f", 100, "a\\x09b\\x1B[2Jc\\x7F"},
      {"two\nlines\n", 100, "two\\x0Alines"},
      {"nul\0inside"s, 100, "nul\\x00inside"},
      {"%n%s%%", 100, "%n%s%%"},  // the note writer takes it as an argument, never a format
      {"\xc3\xa4 stays", 100, "\xc3\xa4 stays"},
      {"abcdef", 3, "abc"},
  };
  for (const Case& c : cases) EXPECT_EQ(c.expected, LoggableText(c.text, c.limit)) << c.text;
}

}  // namespace
}  // namespace kel
