// The hidden game as a user meets it: nothing at all without a terminal, and at a
// terminal (a pseudo-terminal made by script(1)) a game that gives the terminal back
// however it ends.

#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>

#include "support/programs.h"
#include "support/temp_dir.h"

namespace kel {
namespace {

TEST(TetrisCommandTest, WithoutATerminalItEndsAtOnceAndWritesNothing) {
  testing::TempDir dir;
  const testing::ProgramRun run = testing::RunKelcmd({"tetris"}, "", dir.Path().string());
  EXPECT_TRUE(run.exited && run.status == 0) << run.status;
  EXPECT_EQ("", run.output);
}

// After each way out, `stty -a` shows the terminal as it was: lines, echo and signals on.
TEST(TetrisCommandTest, AtATerminalEveryWayOutGivesTheTerminalBack) {
#ifdef _WIN32
  GTEST_SKIP() << "needs a pseudo-terminal (script) and a POSIX shell";
#endif
  testing::TempDir dir;
  const std::string kelcmd = testing::KelcmdPath();
  auto at_terminal = [&](const std::string& keys, const std::string& commands) {
    const std::string script =
        "(sleep 1.5; printf '" + keys + "'; sleep 2) | script -qfec '" + commands + "' /dev/null";
    return testing::RunProgram("/bin/sh", {"-c", script}, "", dir.Path().string());
  };
  struct Case {
    const char* what;
    std::string keys;
    std::string commands;
    std::string ending;
  };
  const Case cases[] = {
      {"q", "q", kelcmd + " tetris; stty -a", "Score 0, lines 0"},
      {"Esc", "\\033", kelcmd + " tetris; stty -a", "Score 0, lines 0"},
      {"Ctrl-C", "\\003", kelcmd + " tetris; stty -a", "Score 0, lines 0"},
      // A signal from elsewhere ends the program, as it would have without the game.
      {"SIGTERM", "",
       kelcmd + " tetris </dev/tty & pid=$!; sleep 2; kill -TERM $pid; wait $pid; "
                "echo status $?; stty -a",
       "status 143"},
  };
  for (const Case& c : cases) {
    const testing::ProgramRun run = at_terminal(c.keys, c.commands);
    EXPECT_NE(std::string::npos, run.output.find(c.ending)) << c.what << "\n" << run.output;
    const size_t stty = run.output.rfind("speed ");
    ASSERT_NE(std::string::npos, stty) << c.what << "\n" << run.output;
    std::istringstream settings(run.output.substr(stty));
    std::set<std::string> words;
    for (std::string word; settings >> word;) words.insert(word);
    for (const char* flag : {"icanon", "echo", "isig", "icrnl", "ixon"}) {
      EXPECT_EQ(1U, words.count(flag)) << c.what << ": " << flag << "\n" << run.output.substr(stty);
    }
    EXPECT_NE(std::string::npos, run.output.find("\x1b[?25h\x1b[?1049l")) << c.what;
  }
}

}  // namespace
}  // namespace kel
