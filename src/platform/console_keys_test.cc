#include <gtest/gtest.h>

#include <string>

#include "platform/console.h"

namespace kel::platform {
namespace {

TEST(DecodeKeyTest, ArrowsEscapeCtrlCAndCharactersFromTerminalBytes) {
  struct Case {
    std::string bytes;
    bool more_may_come;
    Key key;
    size_t used;
  };
  const Case cases[] = {
      {"q", true, {KeyCode::kCharacter, 'q'}, 1},
      {" x", true, {KeyCode::kCharacter, ' '}, 1},
      {"\x03", true, {KeyCode::kInterrupt}, 1},
      {"\x1b[A", true, {KeyCode::kUp}, 3},
      {"\x1b[Bq", true, {KeyCode::kDown}, 3},
      {"\x1bOC", true, {KeyCode::kRight}, 3},
      {"\x1b[1;5D", true, {KeyCode::kLeft}, 6},
      {"\x1b[3~", true, {}, 4},  // a key the game has no use for, taken whole
      {"\x1b", false, {KeyCode::kEscape}, 1},
      {"\x1bq", true, {KeyCode::kEscape}, 1},
      {"\x1b\x1b[A", true, {KeyCode::kEscape}, 1},
      // The start of a sequence waits for its rest, unless no more comes.
      {"\x1b", true, {}, 0},
      {"\x1b[1;", true, {}, 0},
      {"\x1b[1;", false, {}, 4},
      {"", true, {}, 0},
  };
  for (const Case& c : cases) {
    size_t used = 99;
    EXPECT_EQ(c.key, DecodeKey(c.bytes, c.more_may_come, &used)) << testing::PrintToString(c.bytes);
    EXPECT_EQ(c.used, used) << testing::PrintToString(c.bytes);
  }
}

}  // namespace
}  // namespace kel::platform
