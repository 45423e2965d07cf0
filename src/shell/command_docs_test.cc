#include "shell/command_docs.h"

#include <gtest/gtest.h>

#include <set>

#include "can/regression_tests.h"
#include "shell/builtin_commands.h"
#include "shell/command_table.h"
#include "shell/entry.h"

namespace kel {
namespace {

// The files themselves are compared with what the table makes by the generated_docs test
// (kelcmd-docs --check); these tests check how the generator reads the table.

std::vector<std::pair<std::string, std::vector<std::string>>> Flatten(
    const std::vector<SubWord>& words) {
  std::vector<std::pair<std::string, std::vector<std::string>>> flat;
  for (const SubWord& sub : words) flat.emplace_back(sub.word, sub.values);
  return flat;
}

TEST(CommandDocsTest, SubWordsAreTheLeadingPlainWordsOfArgumentLines) {
  const CommandEntry row{
      .names = {"thing"},
      .description = "A thing",
      .arguments = {"<none>             - show the thing", "start              - start it",
                    "socket <on|off>    - show or set socket", "level <low|mid|hi> - three choices",
                    "size <sizeM>       - a value, no choices", "number of <data> bytes.",
                    "CAN=0,1,2  CAN channel", "(<can_id>-<can_id> add range)",
                    "Start              - not a plain word", "start              - named twice"}};
  using Flat = std::vector<std::pair<std::string, std::vector<std::string>>>;
  EXPECT_EQ(Flatten(SubWords(row)), (Flat{{"start", {}},
                                          {"socket", {"on", "off"}},
                                          {"level", {"low", "mid", "hi"}},
                                          {"size", {}}}));
}

TEST(CommandDocsTest, TestRowsTakeTheTestNamesAndHelpTheCommandNames) {
  const CommandEntry test_row{.names = {"t"}, .handler = HandleTest, .description = "x"};
  std::vector<std::string> expected = {"?"};
  for (const TestEntry& test : RegressionTests()) expected.emplace_back(test.name);
  std::vector<std::string> got;
  for (const SubWord& sub : SubWords(test_row)) got.push_back(sub.word);
  EXPECT_EQ(got, expected);

  const CommandEntry help_row{.names = {"h"}, .handler = HandleHelp, .description = "x"};
  std::set<std::string> help_words;
  for (const SubWord& sub : SubWords(help_row)) help_words.insert(sub.word);
  for (const CommandEntry& entry : CommandTable()) {
    for (std::string_view name : entry.names) {
      EXPECT_EQ(help_words.count(std::string(name)), entry.description.empty() ? 0U : 1U) << name;
    }
  }
}

TEST(CommandDocsTest, TheOptionsAreTheOnesTheUsageTextNames) {
  std::set<char> usage_letters;
  const std::string usage = UsageText();
  for (size_t at = usage.find(" -"); at != std::string::npos; at = usage.find(" -", at + 1)) {
    if (at + 3 < usage.size() && usage[at + 3] == '<') usage_letters.insert(usage[at + 2]);
  }
  std::set<char> documented;
  for (const OptionDoc& option : KelcmdOptions()) {
    documented.insert(option.letter);
    EXPECT_NE(usage.find(std::string(" -") + option.letter + "<" + std::string(option.value)),
              std::string::npos)
        << option.letter;
  }
  EXPECT_EQ(documented, usage_letters);
}

TEST(CommandDocsTest, EveryVisibleCommandIsInEveryFileAndHiddenOnesInNone) {
  const std::string man = KelcmdManPage();
  const std::string completion = BashCompletion();
  const std::string markdown = CommandsMarkdown();
  for (const CommandEntry& entry : CommandTable()) {
    const std::string name(entry.Name());
    const bool visible = !entry.description.empty();
    EXPECT_EQ(man.find(".SS \"" + name) != std::string::npos, visible) << name;
    EXPECT_EQ(markdown.find("## " + name) != std::string::npos, visible) << name;
    EXPECT_EQ(completion.find(" " + name + " ") != std::string::npos, visible) << name;
  }
}

TEST(CommandDocsTest, KelsimsPageTakesItsOptionsAndSectionsFromTheUsageText) {
  const std::string page = KelsimManPage(
      "usage: kelsim [options]\n"
      "The board.\n"
      "\n"
      "options:\n"
      "  --port N                base port\n"
      "                          and more about it\n"
      "  --pace                  pacing\n"
      "faults:\n"
      "  --noise N               noise\n"
      "Ends on SIGTERM.\n");
  for (const char* part :
       {".SH SYNOPSIS\n.B kelsim\n[options]\n", ".PP\nThe board.\n", ".PP\nEnds on SIGTERM.\n",
        ".SH OPTIONS\n.TP\n.B \\-\\-port \\fIN\\fR\nbase port\nand more about it\n",
        ".TP\n.B \\-\\-pace\npacing\n", ".SH FAULTS\n.TP\n.B \\-\\-noise \\fIN\\fR\nnoise\n"}) {
    EXPECT_NE(page.find(part), std::string::npos) << part;
  }
}

TEST(CommandDocsTest, ManPageTextCannotStartARequest) {
  // Example lines such as "'addr 1.2.3.4'" must print, not be read as requests.
  const std::string page = KelcmdManPage();
  size_t at = 0;
  while (at < page.size()) {
    size_t end = page.find('\n', at);
    if (end == std::string::npos) end = page.size();
    EXPECT_NE(page[at], '\'') << page.substr(at, end - at);
    at = end + 1;
  }
  EXPECT_NE(page.find("\\&'"), std::string::npos);
}

}  // namespace
}  // namespace kel
