#include "sim/buzzer_wav.h"

#include <algorithm>

#include "platform/clock.h"

namespace kel::sim {
namespace {

constexpr uint16_t kBitsPerSample = 16;
constexpr uint32_t kBytesPerSample = kBitsPerSample / 8;
// Sound is made and written in pieces of this many samples.
constexpr uint64_t kChunkSamples = kWavSampleRate;

uint64_t SamplesOfMs(uint64_t ms) { return ms * kWavSampleRate / 1000; }

void Put16(uint8_t* p, uint16_t v) {
  p[0] = static_cast<uint8_t>(v);
  p[1] = static_cast<uint8_t>(v >> 8);
}

void Put32(uint8_t* p, uint32_t v) {
  Put16(p, static_cast<uint16_t>(v));
  Put16(p + 2, static_cast<uint16_t>(v >> 16));
}

}  // namespace

std::array<uint8_t, 44> WavHeader(uint32_t data_bytes) {
  std::array<uint8_t, 44> h{'R', 'I', 'F', 'F', 0, 0, 0, 0, 'W', 'A', 'V', 'E',
                            'f', 'm', 't', ' ', 0, 0, 0, 0, 0,   0,   0,   0};
  Put32(&h[4], 36 + data_bytes);
  Put32(&h[16], 16);  // the format chunk's size
  Put16(&h[20], 1);   // PCM
  Put16(&h[22], 1);   // one channel
  Put32(&h[24], kWavSampleRate);
  Put32(&h[28], kWavSampleRate * kBytesPerSample);
  Put16(&h[32], kBytesPerSample);
  Put16(&h[34], kBitsPerSample);
  h[36] = 'd';
  h[37] = 'a';
  h[38] = 't';
  h[39] = 'a';
  Put32(&h[40], data_bytes);
  return h;
}

std::vector<int16_t> SquareWave(uint32_t frequency_hz, uint32_t duty, uint64_t first,
                                uint64_t count) {
  std::vector<int16_t> samples(count, 0);
  if (frequency_hz == 0 || duty < 1 || duty > 99) return samples;
  for (uint64_t i = 0; i < count; ++i) {
    // Where sample n falls in its period, in units of 1/kWavSampleRate of a period: exact,
    // so a long tone does not drift.
    const uint64_t phase = (first + i) * frequency_hz % kWavSampleRate;
    samples[i] = phase * 100 < uint64_t{duty} * kWavSampleRate ? kWavAmplitude : -kWavAmplitude;
  }
  return samples;
}

BuzzerRecording::~BuzzerRecording() { Finish(); }

bool BuzzerRecording::Open(const std::string& path) {
  file_.open(path, std::ios::binary | std::ios::trunc | std::ios::out);
  if (!file_) return false;
  const std::array<uint8_t, 44> header = WavHeader(0);
  file_.write(reinterpret_cast<const char*>(header.data()), header.size());
  file_.flush();
  failed_ = !file_;
  return !failed_;
}

void BuzzerRecording::Take(const Tone& tone) {
  if (!file_.is_open()) return;
  if (sounding_) WriteTone(*sounding_, tone.at_ms - sounding_->at_ms);
  sounding_.reset();
  if (!tone.Sounds()) return;
  if (started_ && tone.at_ms > end_ms_) {
    const uint64_t silence = std::min(tone.at_ms - end_ms_, kWavMaxSilenceMs);
    for (uint64_t done = 0, total = SamplesOfMs(silence); done < total; done += kChunkSamples) {
      WriteSamples(std::vector<int16_t>(std::min(kChunkSamples, total - done), 0));
    }
    UpdateHeader();
  }
  sounding_ = tone;
}

void BuzzerRecording::Finish() {
  if (!file_.is_open()) return;
  if (sounding_) WriteTone(*sounding_, platform::MonotonicMs() - sounding_->at_ms);
  sounding_.reset();
  file_.close();
}

void BuzzerRecording::WriteTone(const Tone& tone, uint64_t elapsed_ms) {
  const uint64_t sounded =
      tone.Held() ? elapsed_ms : std::min<uint64_t>(tone.duration_ms, elapsed_ms);
  const uint64_t total = SamplesOfMs(std::min(sounded, kWavMaxToneMs));
  for (uint64_t done = 0; done < total; done += kChunkSamples) {
    WriteSamples(
        SquareWave(tone.frequency_hz, tone.duty, done, std::min(kChunkSamples, total - done)));
  }
  started_ = true;
  end_ms_ = tone.at_ms + sounded;
  UpdateHeader();
}

void BuzzerRecording::WriteSamples(const std::vector<int16_t>& samples) {
  if (failed_ || data_bytes_ + samples.size() * kBytesPerSample > kWavMaxDataBytes) return;
  std::vector<uint8_t> bytes(samples.size() * kBytesPerSample);
  for (size_t i = 0; i < samples.size(); ++i) {
    Put16(&bytes[i * kBytesPerSample], static_cast<uint16_t>(samples[i]));
  }
  file_.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
  if (!file_) {
    failed_ = true;
    return;
  }
  data_bytes_ += bytes.size();
}

void BuzzerRecording::UpdateHeader() {
  if (failed_) return;
  const std::array<uint8_t, 44> header = WavHeader(static_cast<uint32_t>(data_bytes_));
  file_.seekp(0);
  file_.write(reinterpret_cast<const char*>(header.data()), header.size());
  file_.seekp(0, std::ios::end);
  file_.flush();
  failed_ = !file_;
}

}  // namespace kel::sim
