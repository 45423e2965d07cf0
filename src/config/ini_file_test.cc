#include "config/ini_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "support/temp_dir.h"

namespace kel {
namespace {

TEST(IniFileTest, ReadsSectionsItemsCommentsAndLineEnds) {
  IniFile doc;
  doc.Parse(
      "; a comment\r\n"
      "loose = before any section\n"
      "\n"
      "[Settings]\r\n"
      "  DeviceAddr   =  \"10.0.0.1\"  \r\n"
      "# another comment\n"
      "no equals sign here\n"
      "DevicePort=27020\n"
      "DevicePort=1\n"
      "[ Empty ]\n"
      "[LOGGING]\n"
      "FileName = a=b.log");
  EXPECT_EQ("before any section", *doc.Find("", "LOOSE"));
  EXPECT_EQ("\"10.0.0.1\"", *doc.Find("SETTINGS", "deviceaddr"));
  EXPECT_EQ("27020", *doc.Find("settings", "DevicePort")) << "the first of duplicates wins";
  EXPECT_EQ("a=b.log", *doc.Find("logging", "FileName")) << "split at the first '=' only";
  EXPECT_EQ(nullptr, doc.Find("Empty", "x"));
  EXPECT_EQ(nullptr, doc.Find("LOGGING", "Missing"));
  ASSERT_EQ(4U, doc.Sections().size());
  EXPECT_EQ("Empty", doc.Sections()[2].name);
}

TEST(IniFileTest, SetUpdatesOrAppendsInOrder) {
  IniFile doc;
  doc.Set("A", "x", "1");
  doc.SetInt("B", "y", -2);
  doc.Set("a", "X", "3");
  doc.Set("A", "z", "4");
  EXPECT_EQ("[A]\r\nx = 3\r\nz = 4\r\n[B]\r\ny = -2\r\n", doc.Text("\r\n"));
}

TEST(IniFileTest, SavesAndLoadsFiles) {
  testing::TempDir dir;
  IniFile doc;
  doc.Set("S", "k", "v");
  ASSERT_TRUE(doc.Save(dir.File("a.ini")));
  EXPECT_EQ("[S]\r\nk = v\r\n", testing::ReadFile(dir.File("a.ini")));
  IniFile back;
  ASSERT_TRUE(back.Load(dir.File("a.ini")));
  EXPECT_EQ("v", *back.Find("s", "K"));
  EXPECT_FALSE(back.Load(dir.File("missing.ini")));
  EXPECT_FALSE(doc.Save(dir.File("no/such/dir/a.ini")));
  // A save replaces the whole file and leaves nothing else behind.
  doc.Set("S", "k", "w");
  ASSERT_TRUE(doc.Save(dir.File("a.ini")));
  EXPECT_EQ("[S]\r\nk = w\r\n", testing::ReadFile(dir.File("a.ini")));
  EXPECT_EQ(1, std::distance(std::filesystem::directory_iterator(dir.Path()),
                             std::filesystem::directory_iterator()));
}

// Written and read back, a document reads the same as it was read the first time.
void ExpectFixedPoint(const std::string& text) {
  IniFile first;
  first.Parse(text);
  IniFile second;
  second.Parse(first.Text("\r\n"));
  EXPECT_EQ(first.Sections(), second.Sections()) << "input: '" << text << "'";
}

TEST(IniFileTest, WritingWhatWasReadReadsTheSameAgain) {
  for (const char* text : {
           "[A]\nx=1\n[]\ny=2",    // a later section with an empty name
           "[A]\nx=1\n[\ny=2",     // a header without "]" whose name is empty
           "[A\nx=1\n[ ]  \ny=2",  // a header without "]", then an empty name in blanks
           "y=1\n[]\nz=2\n[]",     // items before any header, then empty names again
           "[]\n[]\nk=v",          // empty headers in a row
           "[a]]b=c\n=\n = [x\n",  // "]" ends the name; empty keys and values
       }) {
    ExpectFixedPoint(text);
  }
  // Generated documents of the characters that mean something to the reader.
  std::mt19937 random(16);
  constexpr char kAlphabet[] = "[]=;# \t\r\nab\x7f";
  std::uniform_int_distribution<size_t> pick(0, sizeof kAlphabet - 1);  // the NUL too
  std::uniform_int_distribution<size_t> length(0, 40);
  for (int i = 0; i < 20000 && !HasFailure(); ++i) {
    std::string text(length(random), ' ');
    for (char& c : text) c = kAlphabet[pick(random)];
    ExpectFixedPoint(text);
  }
}

TEST(IniFileTest, SurvivesHugeAndOddInput) {
  IniFile doc;
  const std::string huge(1 << 20, 'v');
  doc.Parse("[S]\nkey = " + huge + "\n[" + huge + "\n" + std::string("\0\x80\xff=\x01", 5));
  ASSERT_NE(nullptr, doc.Find("S", "key"));
  EXPECT_EQ(huge.size(), doc.Find("S", "key")->size());
}

}  // namespace
}  // namespace kel
