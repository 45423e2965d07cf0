#include "config/ini_file.h"

#include <gtest/gtest.h>

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
