// Log file names, directories, the rotation of a family of files, and the file writer.

#include "logging/log_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "logging/parsed_log.h"
#include "platform/files.h"
#include "support/temp_dir.h"

namespace kel {
namespace {

namespace fs = std::filesystem;
using testing::ReadFile;
using testing::TempDir;

std::string Index(int64_t index) { return LogFileName("", "kelcmd.log", "", index); }

// A file last written `age` seconds after the first call.
void MakeLog(const TempDir& dir, const std::string& name, int age) {
  static const fs::file_time_type start = fs::file_time_type::clock::now();
  testing::WriteFile(dir.File(name), "x");
  fs::last_write_time(dir.File(name), start + std::chrono::seconds(age));
}

TEST(LogFileNameTest, BuildsNamesByTheRules) {
  const struct {
    const char *path, *base, *extension;
    int64_t index;
    std::string name;  // '|' stands for the separator of this system
  } cases[] = {
      {"", "kelcmd.log", "", 3, "kelcmd_00003.log"},
      {"", "kelcmd.log", "", 100003, "kelcmd_00003.log"},  // index modulo 100000
      {"", "kelcmd", "", 3, "kelcmd_00003"},               // no dot: at the end
      {"logs\\//", "kelcmd.log", "", -1, "logs|kelcmd.log"},
      {"", "a/b/x.log", "", 3, "x_00003.log"},             // after the last slash
      {"", "a\\b/x.log", "", 3, "b/x_00003.log"},          // or after the last backslash first
      {"my.logs", "k.log", "", 7, "my_00007.logs|k.log"},  // the first dot of the whole text
      {"d", "kelcmd.log", "csv", 3, "d|kelcmd_00003.csv"},
  };
  for (const auto& c : cases) {
    std::string name = c.name;
    std::replace(name.begin(), name.end(), '|', platform::kPathSeparator);
    EXPECT_EQ(name, LogFileName(c.path, c.base, c.extension, c.index)) << c.name;
  }
}

TEST(LogFilesTest, RotationDeletesTheOldestFirstAndContinuesAfterTheNewestInDirectoriesItMakes) {
  const struct {
    std::vector<int> indexes;  // oldest first, or all written at once when `tied`
    int64_t max_count;
    std::vector<int> doomed;
    int next;
    bool tied = false;
  } cases[] = {
      {{7, 3, 9, 1, 2}, 3, {7, 3, 9}, 3},         // by age, not by index
      {{7, 2, 5}, 3, {2}, 3, true},               // of equal ages the first in name order
      {{99998, 99999}, 10, {}, 0},                // 99999 is followed by 00000
      {{99998, 99999, 0}, 2, {99998, 99999}, 1},  // and then by 00001
      {{5, 6}, 0, {5, 6}, 0},
  };
  for (const auto& c : cases) {
    TempDir dir;
    for (const char* other : {"kelcmd.log", "other_00001.log", "kelcmd_00009.txt"}) {
      MakeLog(dir, other, -200);  // older than all, and of no family or another
    }
    int age = -100;
    for (int index : c.indexes) MakeLog(dir, Index(index), c.tied ? age : age++);
    const RotationPlan plan = PlanRotation(dir.Path().string(), "kelcmd.log", c.max_count);
    std::vector<std::string> doomed;
    for (int index : c.doomed) doomed.push_back(dir.File(Index(index)));
    EXPECT_EQ(doomed, plan.doomed) << c.indexes.front();
    EXPECT_EQ(Index(c.next), Index(plan.next_index)) << c.indexes.front();
  }

  // Rotations faster than the file system's clock keep their order too; the first one
  // makes every missing level of the directory.
  TempDir dir;
  const fs::path logs = dir.Path() / "a" / "b";
  LogFile log;
  for (int i = 0; i < 30; ++i) RotateLogFile(log, logs.string(), "kelcmd.log", 10);
  ASSERT_TRUE(fs::is_directory(logs));
  EXPECT_EQ(10, std::distance(fs::directory_iterator(logs), fs::directory_iterator()));
  for (int i = 0; i < 30; ++i) EXPECT_EQ(i >= 20, fs::exists(logs / Index(i))) << i;
  EXPECT_TRUE(ParseLog(ReadFile((logs / Index(28)).string())).footer) << "a rotated file is closed";
  EXPECT_FALSE(MakeDirectoryPath((logs / Index(28) / "sub").string())) << "under a file";
}

TEST(LogFileTest, HeaderAtOnceRowsInWholeLinesFooterAtClose) {
  TempDir dir;
  const std::string name = dir.File("k.log");
  LogFile log = LogFile::Create(name);
  const std::string header = ReadFile(name);
  EXPECT_TRUE(ParseLog(header).header);
  const CanRow row{false, 1, 0x123, false, 3, {1, 2, 3}};
  size_t rows = 0;
  for (; !log.Full(); ++rows) log.WriteRow(row, platform::WallNow());
  EXPECT_EQ(header, ReadFile(name)) << "rows wait in memory until the next one";
  log.WriteRow(row, platform::WallNow());
  const ParsedLog flushed = ParseLog(ReadFile(name));
  EXPECT_TRUE(flushed.cut.empty() && flushed.bad_lines.empty()) << "whole rows only";
  EXPECT_EQ(rows, flushed.rows.size());
  log.Close();
  const ParsedLog closed = ParseLog(ReadFile(name));
  EXPECT_TRUE(closed.header && closed.footer && closed.bad_lines.empty());
  EXPECT_EQ(rows + 1, closed.rows.size());
  EXPECT_EQ(0U, log.WriteRow(row, platform::WallNow())) << "a closed log writes nothing";
}

}  // namespace
}  // namespace kel
