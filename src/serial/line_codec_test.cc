#include "serial/line_codec.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kel {
namespace {

// Every rule of the line codec, one line each: the text as it arrives, whether the reader
// wants a checksum (an answer) or not (a request), and what it makes of it.
TEST(LineCodecTest, ReadsAndWritesTheLinesOfTheControllersProtocol) {
  const std::string longest = "$ECHO," + std::string(kMaxLineBytes - 6, 'x');
  struct Case {
    std::string line;
    bool checksum_required;
    LineFault fault;
    std::vector<std::string> fields;
  };
  const Case cases[] = {
      // good lines; the hex digits may be written in either case
      {"$VER,KELCTRL,1.0.0*3B", true, LineFault::kNone, {"VER", "KELCTRL", "1.0.0"}},
      {"$ECHO,hi*2c", true, LineFault::kNone, {"ECHO", "hi"}},
      {"$ECHO,,a b%*07", true, LineFault::kNone, {"ECHO", "", "a b%"}},
      {longest, false, LineFault::kNone, {"ECHO", std::string(kMaxLineBytes - 6, 'x')}},
      // the checksum: optional on requests, required on answers, checked when given
      {"$VER", false, LineFault::kNone, {"VER"}},
      {"$VER", true, LineFault::kMissingChecksum, {"VER"}},
      {"$VER*42", false, LineFault::kBadChecksum, {"VER"}},
      {"$VER*4", false, LineFault::kBadLine, {}},
      {"$VER*41x", false, LineFault::kBadLine, {}},
      {"$VER*G1", false, LineFault::kBadLine, {}},
      // too long, checked before anything else
      {longest + "x", false, LineFault::kTooLong, {}},
      // the command: 1-8 upper-case letters after "$"
      {"VER", false, LineFault::kBadLine, {}},
      {"$", false, LineFault::kBadLine, {}},
      {"$ver", false, LineFault::kBadLine, {}},
      {"$ABCDEFGHI", false, LineFault::kBadLine, {}},
      {"$ABCDEFGH", false, LineFault::kNone, {"ABCDEFGH"}},
      {"$,x", false, LineFault::kBadLine, {}},
      // fields: printable ASCII, never "$"
      {"$ECHO,a$b", false, LineFault::kBadLine, {}},
      {"$ECHO,a\tb", false, LineFault::kBadLine, {}},
      {"$ECHO,\xC3\xA9", false, LineFault::kBadLine, {}},
  };
  for (const Case& c : cases) {
    const ParsedLine parsed = ParseLine(c.line, c.checksum_required);
    EXPECT_EQ(c.fault, parsed.fault) << c.line;
    EXPECT_EQ(c.fields, parsed.fields) << c.line;
  }
  EXPECT_EQ("$VER,KELCTRL,1.0.0*3B\r\n", FramedLine("VER,KELCTRL,1.0.0"));
  EXPECT_EQ(LineFault::kTooLong, ParseReceived(ReceivedLine{"$VER", true}, false).fault);
}

// Escapes in, visible text out: what VisibleText shows, UnescapeText reads back.
TEST(LineCodecTest, EscapesReadWhatVisibleTextWrites) {
  struct Case {
    const char* typed;
    std::string bytes;  // empty: the escape is refused
    const char* shown;  // with "%" doubled
  };
  const Case cases[] = {
      {"plain, text", "plain, text", "plain, text"},
      {"a\\r\\n\\t", "a\r\n\t", "a\\x0D\\x0A\\x09"},
      {"\\\\%", "\\%", "\\\\%%"},
      {"\\x00\\x7f\\xFF", std::string("\0\x7F\xFF", 3), "\\x00\\x7F\\xFF"},
      {"\\q", "", nullptr},
      {"\\x4", "", nullptr},
      {"end\\", "", nullptr},
  };
  for (const Case& c : cases) {
    const std::optional<std::string> bytes = UnescapeText(c.typed);
    if (c.shown == nullptr) {
      EXPECT_FALSE(bytes) << c.typed;
      continue;
    }
    ASSERT_TRUE(bytes) << c.typed;
    EXPECT_EQ(c.bytes, *bytes) << c.typed;
    EXPECT_EQ(c.shown, VisibleText(*bytes, true)) << c.typed;
    EXPECT_EQ(bytes, UnescapeText(VisibleText(*bytes, false))) << c.typed;
  }
}

// Lines end at CR, LF or CR LF wherever the stream is cut; empty lines vanish; an
// over-long line keeps its beginning and says so.
TEST(LineCodecTest, SplitterCutsAStreamIntoLinesWhereverItArrivesInPieces) {
  const std::string stream =
      "$A\r\n\r\n$B\n$C\r$D\r\r\n" + std::string(kMaxLineBytes + 5, 'y') + "\r\n$E";
  for (const size_t piece : {size_t{1}, size_t{2}, size_t{7}, stream.size()}) {
    LineSplitter splitter;
    std::vector<ReceivedLine> lines;
    for (size_t at = 0; at < stream.size(); at += piece) {
      splitter.Feed(std::string_view(stream).substr(at, piece), lines);
    }
    ASSERT_EQ(5U, lines.size()) << piece;
    for (size_t i = 0; i < 4; ++i) {
      EXPECT_EQ(std::string("$") + static_cast<char>('A' + i), lines[i].text) << piece;
      EXPECT_FALSE(lines[i].too_long);
    }
    EXPECT_EQ(std::string(kMaxLineBytes, 'y'), lines[4].text);
    EXPECT_TRUE(lines[4].too_long);
    EXPECT_EQ("$E", splitter.TakePartial().text) << "the line not ended yet";
    EXPECT_EQ("", splitter.TakePartial().text);
  }
}

}  // namespace
}  // namespace kel
