#include "logging/log_files.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "logging/parsed_log.h"
#include "support/temp_dir.h"

namespace kel {
namespace {

namespace fs = std::filesystem;
using testing::ReadFile;
using testing::TempDir;
using testing::WriteFile;

// Writes a log file of the family with the given last-write time, seconds from now.
void MakeLog(const TempDir& dir, const std::string& name, int age_order) {
  const std::string path = dir.File(name);
  WriteFile(path, "x");
  fs::last_write_time(path, fs::file_time_type::clock::now() + std::chrono::seconds(age_order));
}

std::vector<std::string> Names(const TempDir& dir) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(dir.Path())) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string Index(int64_t index) { return LogFileName("", "kelcmd.log", "", index); }

TEST(LogFileNameTest, BuildsNamesByTheRules) {
  struct Case {
    const char* rule;
    const char* path;
    const char* base;
    const char* extension;
    int64_t index;
    const char* name;
  };
  const Case cases[] = {
      {"index before the extension", "", "kelcmd.log", "", 3, "kelcmd_00003.log"},
      {"index modulo 100000", "", "kelcmd.log", "", 100003, "kelcmd_00003.log"},
      {"largest index", "", "kelcmd.log", "", 99999, "kelcmd_99999.log"},
      {"no dot: index at the end", "", "kelcmd", "", 3, "kelcmd_00003"},
      {"no index", "logs", "kelcmd.log", "", -1, "logs/kelcmd.log"},
      {"path gets one separator", "logs", "kelcmd.log", "", 7, "logs/kelcmd_00007.log"},
      {"trailing separators stripped", "logs\\//", "kelcmd.log", "", 7, "logs/kelcmd_00007.log"},
      {"root path", "/", "k.log", "", 1, "/k_00001.log"},
      {"base after its last backslash", "", "a\\b\\x.log", "", 3, "x_00003.log"},
      {"base after its last slash", "", "a/b/x.log", "", 3, "x_00003.log"},
      {"a backslash wins over a later slash", "", "a\\b/x.log", "", 3, "b/x_00003.log"},
      {"first dot of the whole text", "my.logs", "k.log", "", 7, "my_00007.logs/k.log"},
      {"first dot of a double extension", "", "k.tar.gz", "", 2, "k_00002.tar.gz"},
      {"extension kept up to 31 characters", "", "k.0123456789012345678901234567890123", "", 1,
       "k_00001.012345678901234567890123456789"},
      {"replacement extension", "", "kelcmd.log", "txt", 3, "kelcmd_00003.txt"},
      {"replacement extension, no index", "d", "kelcmd.log", "csv", -1, "d/kelcmd.csv"},
      {"replacement extension, no dot", "", "kelcmd", "txt", -1, "kelcmd.txt"},
      {"empty base", "logs", "", "", 4, "logs/_00004"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.name, LogFileName(c.path, c.base, c.extension, c.index)) << c.rule;
  }
}

TEST(LogFileNameTest, NamesAreCutTo1023Characters) {
  const std::string path(2000, 'p');
  EXPECT_EQ(1023U, LogFileName(path, "kelcmd.log", "", 1).size());
  EXPECT_EQ(path.substr(0, 1023), LogFileName(path, "kelcmd.log", "", -1));
}

TEST(LogFileNameTest, SearchPatternsAndIndexesOfNames) {
  EXPECT_EQ("logs/kelcmd_*.log", LogSearchPattern("logs", "kelcmd.log"));
  EXPECT_EQ("kelcmd_*", LogSearchPattern("", "kelcmd"));
  EXPECT_EQ("my_*.log", LogSearchPattern("", "my_file.log")) << "first underscore of the text";
  EXPECT_EQ("my_*.logs/k.log", LogSearchPattern("my.logs", "k.log"));

  EXPECT_EQ(42, LogIndexOfName("kelcmd_00042.log"));
  EXPECT_EQ(99999, LogIndexOfName("kelcmd_99999"));
  EXPECT_EQ(-1, LogIndexOfName("kelcmd.log"));
  EXPECT_EQ(0, LogIndexOfName("kelcmd_x.log"));
}

TEST(NextLogIndexTest, ContinuesAfterTheNewestFile) {
  struct Case {
    const char* rule;
    int64_t newest;
    int64_t highest;
    int64_t remaining;
    int64_t next;
  };
  const Case cases[] = {
      {"nothing left", 5, 9, 0, 0},
      {"after the newest", 5, 9, 4, 6},
      {"across the wrap", 99999, 99999, 9, 100000},
      {"after a wrapped newest", 0, 99999, 9, 1},
      {"no index in the newest: after the highest", -1, 7, 3, 8},
      {"no index at all: after the count", -1, -1, 3, 4},
  };
  for (const Case& c : cases) {
    LogScan scan;
    scan.newest = c.newest;
    scan.highest = c.highest;
    EXPECT_EQ(c.next, NextLogIndex(scan, c.remaining)) << c.rule;
  }
  EXPECT_EQ("kelcmd_00000.log", Index(100000));
}

TEST(MakeDirectoryPathTest, CreatesEveryMissingLevel) {
  TempDir dir;
  const std::string deep = dir.File("a/b/c");
  EXPECT_TRUE(MakeDirectoryPath(deep));
  EXPECT_TRUE(fs::is_directory(deep));
  EXPECT_TRUE(MakeDirectoryPath(deep)) << "an existing path";
  EXPECT_TRUE(MakeDirectoryPath(""));

  testing::ScopedWorkingDir inside(dir.Path());
  EXPECT_TRUE(MakeDirectoryPath("single"));
  EXPECT_FALSE(fs::exists(dir.File("single"))) << "one relative level is not created";
  EXPECT_FALSE(MakeDirectoryPath("rel/sub")) << "nor is the top of a relative path";
  fs::create_directory(dir.File("rel"));
  EXPECT_TRUE(MakeDirectoryPath("rel/sub/more"));
  EXPECT_TRUE(fs::is_directory(dir.File("rel/sub/more")));

  WriteFile(dir.File("file"), "x");
  EXPECT_FALSE(MakeDirectoryPath(dir.File("file/sub"))) << "the parent is a file";
}

TEST(ScanLogFilesTest, FindsRangeCountOldestAndNewest) {
  TempDir dir;
  MakeLog(dir, "kelcmd_00003.log", 30);
  MakeLog(dir, "kelcmd_00004.log", 10);
  MakeLog(dir, "kelcmd_00005.log", 20);
  MakeLog(dir, "kelcmd.log", 0);        // not of the family: no index
  MakeLog(dir, "other_00001.log", 0);   // another family
  MakeLog(dir, "kelcmd_00009.txt", 0);  // another extension
  LogScan scan;
  ASSERT_TRUE(ScanLogFiles(dir.Path().string(), "kelcmd.log", scan));
  EXPECT_EQ(3, scan.count);
  EXPECT_EQ(3, scan.lowest);
  EXPECT_EQ(5, scan.highest);
  EXPECT_EQ(4, scan.oldest);
  EXPECT_EQ(3, scan.newest);
  EXPECT_EQ(dir.File("kelcmd_00004.log"), scan.oldest_name);

  EXPECT_FALSE(ScanLogFiles(dir.Path().string(), "none.log", scan));
  EXPECT_EQ(0, scan.count);
  EXPECT_FALSE(ScanLogFiles(dir.File("missing"), "kelcmd.log", scan));
}

TEST(ScanLogFilesTest, TiesKeepTheFirstFoundInNameOrder) {
  TempDir dir;
  for (const char* name : {"kelcmd_00007.log", "kelcmd_00002.log", "kelcmd_00005.log"}) {
    MakeLog(dir, name, 0);
    fs::last_write_time(dir.File(name), fs::last_write_time(dir.File("kelcmd_00007.log")));
  }
  LogScan scan;
  ASSERT_TRUE(ScanLogFiles(dir.Path().string(), "kelcmd.log", scan));
  EXPECT_EQ(2, scan.oldest);
  EXPECT_EQ(2, scan.newest);
}

TEST(LogFileTest, NoFileWritesNothing) {
  LogFile none;
  EXPECT_FALSE(none.IsOpen());
  EXPECT_EQ(0U, none.WriteRow(CanRow{}, platform::WallNow()));
  EXPECT_EQ(0U, none.WriteNote("x"));
  EXPECT_EQ(0, none.Size());
  none.Flush();
  none.Close();
  LogFile failed = LogFile::Create("/nonexistent-dir/x.log");
  EXPECT_FALSE(failed.IsOpen());
  EXPECT_EQ(0U, failed.WriteRow(CanRow{}, platform::WallNow()));
}

TEST(LogFileTest, HeaderAtOnceRowsInWholeLinesFooterAtClose) {
  TempDir dir;
  const std::string name = dir.File("k.log");
  LogFile log = LogFile::Create(name);
  ASSERT_TRUE(log.IsOpen());
  const std::string header = ReadFile(name);
  const ParsedLog opened = ParseLog(header);
  EXPECT_TRUE(opened.header && opened.rows.empty() && opened.bad_lines.empty()) << header;
  EXPECT_EQ(static_cast<int64_t>(header.size()), log.Size());

  const CanRow row{false, 1, 0x123, false, 3, {1, 2, 3}};
  int64_t expected_size = log.Size();
  size_t rows = 0;
  auto write_while = [&](int64_t below) {
    while (log.Size() < below) {
      const size_t length = log.WriteRow(row, platform::WallNow());
      ASSERT_GT(length, 0U);
      expected_size += static_cast<int64_t>(length);
      ++rows;
    }
  };
  const auto flush_size = static_cast<int64_t>(LogFile::kFlushSize);
  write_while(static_cast<int64_t>(header.size()) + flush_size - 200);
  EXPECT_EQ(expected_size, log.Size()) << "rows still in memory count";
  EXPECT_EQ(header, ReadFile(name)) << "rows wait in memory";
  EXPECT_NE(0U, log.BufferedSinceMs());
  write_while(static_cast<int64_t>(header.size()) + flush_size);
  EXPECT_TRUE(log.Full());
  EXPECT_EQ(header, ReadFile(name)) << "a full buffer waits for the next row";
  write_while(log.Size() + 1);
  EXPECT_FALSE(log.Full());
  const ParsedLog flushed = ParseLog(ReadFile(name));
  EXPECT_TRUE(flushed.whole_lines) << "only whole rows ever reach the file";
  EXPECT_TRUE(flushed.bad_lines.empty());
  EXPECT_FALSE(flushed.footer);
  EXPECT_GE(ReadFile(name).size() - header.size(), LogFile::kFlushSize);

  EXPECT_EQ(26U, log.WriteNote("COMMENT 'hi'"));
  log.Close();
  EXPECT_FALSE(log.IsOpen());
  const ParsedLog closed = ParseLog(ReadFile(name));
  EXPECT_TRUE(closed.header);
  EXPECT_TRUE(closed.footer);
  EXPECT_TRUE(closed.bad_lines.empty());
  EXPECT_EQ(std::vector<std::string>{"COMMENT 'hi'"}, closed.notes);
  ASSERT_EQ(rows, closed.rows.size());
  EXPECT_EQ(1, closed.rows.back().channel);
  EXPECT_EQ(0x123U, closed.rows.back().id);
  EXPECT_EQ((std::vector<uint8_t>{1, 2, 3}), closed.rows.back().data);
  EXPECT_NE(std::string::npos,
            ReadFile(name).find("***NOTE: COMMENT 'hi'***\r\n***END DATE AND TIME "))
      << "the note after the rows, the footer last";
}

TEST(LogFileTest, TakenRowsGoOutInTheOrderTaken) {
  TempDir dir;
  const std::string name = dir.File("k.log");
  LogFile log = LogFile::Create(name);
  const platform::WallTime now = platform::WallNow();
  log.WriteRow(CanRow{false, 1, 0x1, false, 0, {}}, now);
  LogFile::TakenRows first = log.TakeRows();
  EXPECT_EQ(0U, log.BufferedSinceMs());
  log.WriteRow(CanRow{false, 1, 0x2, false, 0, {}}, now);
  LogFile::TakenRows second = log.TakeRows();
  log.WriteRow(CanRow{false, 1, 0x3, false, 0, {}}, now);
  log.WriteTaken(first);
  log.WriteTaken(second);
  log.Recycle(std::move(first));
  log.Recycle(std::move(second));
  log.WriteRow(CanRow{false, 1, 0x4, false, 0, {}}, now);
  log.Close();
  const ParsedLog closed = ParseLog(ReadFile(name));
  ASSERT_EQ(4U, closed.rows.size());
  for (uint32_t i = 0; i < 4; ++i) EXPECT_EQ(i + 1, closed.rows[i].id);
  EXPECT_TRUE(closed.footer && closed.bad_lines.empty());
  EXPECT_EQ(0U, log.TakeRows().size) << "nothing to take without a file";
}

TEST(LogFileTest, MovingKeepsOneOwner) {
  TempDir dir;
  LogFile first = LogFile::Create(dir.File("a.log"));
  LogFile second = std::move(first);
  EXPECT_FALSE(first.IsOpen());
  EXPECT_TRUE(second.IsOpen());
  second = LogFile::Create(dir.File("b.log"));  // a.log is closed with its footer
  EXPECT_TRUE(ParseLog(ReadFile(dir.File("a.log"))).footer);
  EXPECT_TRUE(second.IsOpen());
}

TEST(OpenLogFileTest, CreatesTheDirectoryAndNamesTheFileByIndex) {
  TempDir dir;
  LogFile log = OpenLogFile(dir.File("x/y"), "kelcmd.log", 12);
  EXPECT_TRUE(log.IsOpen());
  EXPECT_TRUE(fs::exists(dir.File("x/y/kelcmd_00012.log")));
}

TEST(RotateLogFileTest, FullDirectoryLosesItsOldestAndContinuesAfterTheNewest) {
  TempDir dir;
  for (int i = 0; i < 10; ++i) MakeLog(dir, Index(i), i - 20);
  LogFile log;
  RotateLogFile(log, dir.Path().string(), "kelcmd.log", 10);
  ASSERT_TRUE(log.IsOpen());
  std::vector<std::string> expected;
  for (int i = 1; i <= 10; ++i) expected.push_back(Index(i));
  EXPECT_EQ(expected, Names(dir));

  log.WriteNote("in ten");
  RotateLogFile(log, dir.Path().string(), "kelcmd.log", 10);
  EXPECT_TRUE(ParseLog(ReadFile(dir.File(Index(10)))).footer) << "the rotated file was closed";
  EXPECT_FALSE(fs::exists(dir.File(Index(1))));
  EXPECT_TRUE(fs::exists(dir.File(Index(11))));
  EXPECT_EQ(10U, Names(dir).size());
}

TEST(RotateLogFileTest, ContinuesAcrossTheWrap) {
  TempDir dir;
  int age = -100;
  for (int i = 99992; i <= 99999; ++i) MakeLog(dir, Index(i), age++);
  MakeLog(dir, Index(0), age++);
  MakeLog(dir, Index(1), age++);
  LogFile log;
  RotateLogFile(log, dir.Path().string(), "kelcmd.log", 10);
  EXPECT_FALSE(fs::exists(dir.File(Index(99992))));
  EXPECT_TRUE(fs::exists(dir.File(Index(2))));
  RotateLogFile(log, dir.Path().string(), "kelcmd.log", 10);
  EXPECT_FALSE(fs::exists(dir.File(Index(99993))));
  EXPECT_TRUE(fs::exists(dir.File(Index(3))));
  EXPECT_EQ(10U, Names(dir).size());
}

TEST(RotateLogFileTest, RotationsFasterThanTheFileSystemClockKeepTheirOrder) {
  TempDir dir;
  LogFile log;
  for (int i = 0; i < 30; ++i) {
    RotateLogFile(log, dir.Path().string(), "kelcmd.log", 10);
    log.WriteNote("x");
  }
  log.Close();
  std::vector<std::string> expected;
  for (int i = 20; i < 30; ++i) expected.push_back(Index(i));
  EXPECT_EQ(expected, Names(dir));
}

TEST(PlanRotationTest, DoomsTheOldestAndFollowsTheNewest) {
  struct Case {
    const char* rule;
    std::vector<int> indexes;  // oldest first
    int64_t max_count;
    std::vector<int> doomed;
    int64_t next;
  };
  const Case cases[] = {
      {"room left", {4, 5, 6}, 10, {}, 7},
      {"full", {0, 1, 2, 3}, 4, {0}, 4},
      {"surplus", {7, 3, 9, 1, 2}, 3, {7, 3, 9}, 3},
      {"across the wrap", {99998, 99999, 0}, 2, {99998, 99999}, 1},
      {"keep none", {5, 6}, 0, {5, 6}, 0},
      {"empty", {}, 10, {}, 0},
  };
  for (const Case& c : cases) {
    TempDir dir;
    int age = -100;
    for (int index : c.indexes) MakeLog(dir, Index(index), age++);
    const RotationPlan plan = PlanRotation(dir.Path().string(), "kelcmd.log", c.max_count);
    std::vector<std::string> doomed;
    for (int index : c.doomed) doomed.push_back(dir.File(Index(index)));
    EXPECT_EQ(doomed, plan.doomed) << c.rule;
    EXPECT_EQ(c.next, plan.next_index) << c.rule;
  }
}

TEST(PlanRotationTest, AFileThatCannotBeDeletedKeepsTheOthers) {
  TempDir dir;
  fs::create_directory(dir.File(Index(0)));  // the oldest, and no file
  fs::last_write_time(dir.File(Index(0)), fs::file_time_type::clock::now() - std::chrono::hours(1));
  for (int i = 1; i <= 4; ++i) MakeLog(dir, Index(i), i - 10);
  const RotationPlan plan = PlanRotation(dir.Path().string(), "kelcmd.log", 3);
  ASSERT_EQ(3U, plan.doomed.size());
  DeleteLogFiles(plan);
  EXPECT_EQ(5U, Names(dir).size());
}

}  // namespace
}  // namespace kel
