// kelcmd and kelsim as programs, talking over kelsim's controller line.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "core/result.h"
#include "support/kelsim_process.h"
#include "support/programs.h"
#include "support/temp_dir.h"

namespace kel {
namespace {

using testing::ProgramRun;

TEST(SerialProgramsTest, KelcmdReachesKelsimsControllerThroughTheLinkKelsimMakes) {
#ifdef _WIN32
  GTEST_SKIP() << "kelsim's controller needs a pseudo-terminal, which Windows does not have";
#endif
  testing::TempDir dir;
  const std::string link = dir.File("ttyKEL");
  testing::KelsimProcess kelsim({"--serial", "--serial-link", link});
  ASSERT_NE(0, kelsim.BasePort()) << kelsim.Output();
  const std::string port = "-p" + std::to_string(kelsim.BasePort());

  const ProgramRun sver = testing::RunKelcmd({port, "-s" + link, "sver"}, "", dir.Path().string());
  EXPECT_TRUE(sver.exited && sver.status == 0) << sver.status;
  EXPECT_EQ("Board controller KELCTRL 1.0.0\r\n", sver.output);

  const ProgramRun wrong =
      testing::RunKelcmd({port, "-s" + dir.File("ttyNONE"), "sver"}, "", dir.Path().string());
  EXPECT_TRUE(wrong.exited && wrong.status == testing::StatusOf(kErrConnect)) << wrong.status;
  EXPECT_EQ("ERROR -10: Connect failed\r\n", wrong.output);

  const std::string started = kelsim.Output();
  const std::string terminal = std::filesystem::read_symlink(link).string();
  EXPECT_NE(std::string::npos, started.find("\nkelsim: controller on " + terminal + "\n"))
      << started;
  kelsim.Stop();
  EXPECT_FALSE(std::filesystem::is_symlink(link)) << "kelsim takes its link along";
}

}  // namespace
}  // namespace kel
