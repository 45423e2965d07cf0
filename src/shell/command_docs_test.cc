#include "shell/command_docs.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "support/temp_dir.h"

namespace kel {
namespace {

// docs/commands.md is made from the table; with KEL_UPDATE_DOCS=1 in the environment this
// test writes it anew instead of comparing.
TEST(CommandDocsTest, TheReferenceMatchesTheTable) {
  const std::string path = std::string(KEL_SOURCE_DIR) + "/docs/commands.md";
  const std::string made = CommandsMarkdown();
  if (const char* update = std::getenv("KEL_UPDATE_DOCS"); update != nullptr && *update == '1') {
    testing::WriteFile(path, made);
  }
  EXPECT_EQ(made, testing::ReadFile(path))
      << "docs/commands.md is out of date: run KEL_UPDATE_DOCS=1 build/bin/unit_tests "
         "--gtest_filter=CommandDocsTest.*";
  EXPECT_EQ(std::string::npos, made.find("tetris"));
}

}  // namespace
}  // namespace kel
