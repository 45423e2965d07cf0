#include "sim/buzzer_wav.h"

#include <gtest/gtest.h>

#include <string>

#include "support/temp_dir.h"

namespace kel::sim {
namespace {

uint32_t Word(const std::string& bytes, size_t at) {
  uint32_t v = 0;
  for (size_t i = 0; i < 4; ++i) v |= uint32_t{static_cast<uint8_t>(bytes[at + i])} << (8 * i);
  return v;
}

std::vector<int16_t> Samples(const std::string& file) {
  std::vector<int16_t> samples;
  for (size_t at = 44; at + 1 < file.size(); at += 2) {
    samples.push_back(static_cast<int16_t>(static_cast<uint8_t>(file[at]) |
                                           static_cast<uint8_t>(file[at + 1]) << 8));
  }
  return samples;
}

// A tone cut short by the next frame, a tone that runs its duration, the silence between
// them as it was or cut to its limit, and a held tone ended by silence.
TEST(BuzzerRecordingTest, TonesLastUntilTheirEndOrTheNextFrameWithSilenceBetween) {
  testing::TempDir dir;
  const std::string path = dir.File("tones.wav");
  {
    BuzzerRecording recording;
    ASSERT_TRUE(recording.Open(path));
    EXPECT_EQ(44U, testing::ReadFile(path).size()) << "a whole file of no sound at once";
    recording.Take(Tone{1000, 25, 300, 5000});         // 300 ms, ends by itself
    recording.Take(Tone{0, 0, 0, 6000});               // after its end: changes nothing
    recording.Take(Tone{2000, 50, 1000, 6500});        // 1200 ms of silence before it
    recording.Take(Tone{500, 50, kBuzzerHeld, 6600});  // cuts it to 100 ms
    recording.Take(Tone{0, 0, 0, 6700});               // ends the held tone after 100 ms
    recording.Take(Tone{1000, 50, 10, 100'000});       // silence cut to its limit
    recording.Take(Tone{0, 0, 0, 100'010});
    ASSERT_FALSE(recording.Failed());
  }
  const std::string file = testing::ReadFile(path);
  const uint64_t samples_ms = 300 + 1200 + 100 + 100 + kWavMaxSilenceMs + 10;
  const uint32_t data_bytes = static_cast<uint32_t>(samples_ms * kWavSampleRate / 1000 * 2);
  ASSERT_EQ(44 + data_bytes, file.size());
  EXPECT_EQ(std::string("RIFF"), file.substr(0, 4));
  EXPECT_EQ(36 + data_bytes, Word(file, 4));
  EXPECT_EQ(std::string("WAVEfmt "), file.substr(8, 8));
  EXPECT_EQ(kWavSampleRate, Word(file, 24));
  EXPECT_EQ(data_bytes, Word(file, 40));

  // The first tone: 300 periods, high a quarter of each, then silence.
  const std::vector<int16_t> samples = Samples(file);
  const size_t tone = 300 * kWavSampleRate / 1000;
  size_t rises = 0;
  size_t high = 0;
  for (size_t i = 0; i < tone; ++i) {
    high += samples[i] > 0 ? 1 : 0;
    rises += i > 0 && samples[i - 1] < 0 && samples[i] > 0 ? 1 : 0;
  }
  EXPECT_EQ(299U, rises) << "every period but the first starts with a rise";
  EXPECT_NEAR(0.25, static_cast<double>(high) / tone, 0.01);
  EXPECT_EQ(0, samples[tone]);
  EXPECT_EQ(0, samples[tone + 1200 * kWavSampleRate / 1000 - 1]);
  EXPECT_NE(0, samples[tone + 1200 * kWavSampleRate / 1000]);
}

}  // namespace
}  // namespace kel::sim
