// The buzzer end to end: kelcmd plays, a kelsim process shows the tones and writes them
// into a WAV file that is measured here.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/clock.h"
#include "platform/subprocess.h"
#include "support/kelsim_process.h"
#include "support/programs.h"
#include "support/temp_dir.h"

namespace kel {
namespace {

constexpr double kSampleRate = 44100;

uint32_t Word(const std::string& bytes, size_t at) {
  uint32_t v = 0;
  for (size_t i = 0; i < 4; ++i) v |= uint32_t{static_cast<uint8_t>(bytes[at + i])} << (8 * i);
  return v;
}

// One stretch of sound between silences: its length in samples and how often it crosses
// zero.
struct Stretch {
  size_t samples = 0;
  size_t crossings = 0;

  double Hz() const { return crossings / 2.0 / (samples / kSampleRate); }
};

std::vector<Stretch> Stretches(const std::string& file) {
  std::vector<Stretch> stretches;
  int previous = 0;
  for (size_t at = 44; at + 1 < file.size(); at += 2) {
    const auto sample = static_cast<int16_t>(static_cast<uint8_t>(file[at]) |
                                             static_cast<uint8_t>(file[at + 1]) << 8);
    const int sign = (sample > 0) - (sample < 0);
    if (sign != 0 && previous == 0) stretches.emplace_back();
    if (sign != 0) {
      ++stretches.back().samples;
      if (previous != 0 && sign != previous) ++stretches.back().crossings;
    }
    previous = sign;
  }
  return stretches;
}

TEST(BuzzerTest, KelsimShowsTheTonesAndWritesThemIntoAWavFile) {
  testing::TempDir dir;
  const std::string wav = dir.File("buzzer.wav");
  testing::KelsimProcess board({"--verbose", "--buzzer-wav", wav});
  ASSERT_NE(0, board.BasePort()) << board.Output();
  const testing::ProgramRun run = testing::RunKelcmd(
      {"-p" + std::to_string(board.BasePort()), "buzz 1000 300 25;delay 1s;buzz off;play L2 A"}, "",
      dir.Path().string());
  EXPECT_EQ(0, run.status) << run.output;
  EXPECT_TRUE(run.output.ends_with("1 notes played\r\n")) << run.output;
  board.Stop();

  const std::string output = board.Output();
  EXPECT_NE(std::string::npos, output.find("\nkelsim: buzzer 1000 Hz 25% for 300 ms\n"
                                           "kelsim: buzzer off\n"
                                           "kelsim: buzzer 440 Hz 50% held\n"
                                           "kelsim: buzzer off\n"))
      << output;

  const std::string file = testing::ReadFile(wav);
  ASSERT_LE(44U, file.size());
  EXPECT_EQ(std::string("RIFF"), file.substr(0, 4));
  EXPECT_EQ(file.size() - 8, Word(file, 4));
  EXPECT_EQ(file.size() - 44, Word(file, 40));
  const std::vector<Stretch> tones = Stretches(file);
  ASSERT_EQ(2U, tones.size());
  EXPECT_EQ(13230U, tones[0].samples) << "300 ms: the tone ran its duration";
  EXPECT_NEAR(1000, tones[0].Hz(), 10);
  // A half note at 120 a minute sounds for 875 ms, as long as the shell held it.
  EXPECT_LT(0.5 * kSampleRate, tones[1].samples);
  EXPECT_NEAR(440, tones[1].Hz(), 5);
}

// A request to end kelcmd in the middle of a note ends it as asked, but not before the
// buzzer is silent.
TEST(BuzzerTest, ATuneEndedFromOutsideLeavesTheBuzzerSilent) {
#ifdef _WIN32
  GTEST_SKIP() << "a child is terminated outright on Windows";
#endif
  testing::KelsimProcess board({"--verbose"});
  ASSERT_NE(0, board.BasePort()) << board.Output();
  platform::ChildProcess kelcmd;
  platform::ChildProcess::Options options;
  options.output = platform::ChildProcess::OutputMode::kDiscard;
  ASSERT_TRUE(kelcmd.Start(
      {testing::KelcmdPath(), "-p" + std::to_string(board.BasePort()), "play T60 L1 C D E F"},
      options));
  auto shown = [&board](const std::string& text) {
    const uint64_t start = platform::MonotonicMs();
    while (board.Output().find(text) == std::string::npos) {
      if (platform::MonotonicMs() - start > 20000) return false;
      platform::SleepMs(20);
    }
    return true;
  };
  ASSERT_TRUE(shown("kelsim: buzzer 262 Hz 50% held\n")) << board.Output();
  kelcmd.Terminate();
  const platform::ChildExit end = kelcmd.Wait(20000);
  EXPECT_FALSE(end.exited);
  EXPECT_EQ(15, end.signal) << "SIGTERM, as asked";
  EXPECT_TRUE(shown("kelsim: buzzer 262 Hz 50% held\nkelsim: buzzer off\n")) << board.Output();
  EXPECT_EQ(std::string::npos, board.Output().find("294 Hz")) << "the tune went no further";
}

TEST(BuzzerTest, KelsimThatCannotWriteTheWavFileDoesNotStart) {
  testing::TempDir dir;
  const testing::ProgramRun run = testing::RunProgram(
      testing::KelsimPath(), {"--port", "0", "--buzzer-wav", dir.File("none/x.wav")}, "",
      dir.Path().string());
  EXPECT_TRUE(run.exited && run.status == 1) << run.status;
  EXPECT_EQ("kelsim: cannot write " + dir.File("none/x.wav") + "\n", run.output);
}

}  // namespace
}  // namespace kel
