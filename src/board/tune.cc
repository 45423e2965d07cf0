#include "board/tune.h"

#include <cmath>

namespace kel {
namespace {

constexpr int kA4Index = 4 * 12 + 9;
constexpr double kA4Hz = 440.0;
constexpr int kOctaves = 8;  // 0-7
constexpr int kLowestIndex = 0;
constexpr int kHighestIndex = kOctaves * 12 - 1;
constexpr int kMaxLength = 64;
constexpr int kMinTempo = 32;
constexpr int kMaxTempo = 255;
// Whole notes at one quarter note a minute, in ms: a note of length n at tempo t lasts
// kWholeNoteMs / (t * n).
constexpr double kWholeNoteMs = 4 * 60000.0;

// Semitones of the letters A-G above C.
constexpr int kLetterSemitones[] = {9, 11, 0, 2, 4, 5, 7};

char Upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Reads the tune left to right; every method leaves `pos_` behind what it took.
class TuneReader {
 public:
  explicit TuneReader(std::string_view text) : text_(text) {}

  Tune Read() {
    Tune tune;
    while (true) {
      while (pos_ < text_.size() && (text_[pos_] == ' ' || text_[pos_] == '\t')) ++pos_;
      if (pos_ >= text_.size()) break;
      const size_t start = pos_;
      if (!Command(&tune.notes)) {
        tune.notes.clear();
        tune.error_at = start;
        break;
      }
    }
    return tune;
  }

 private:
  char Peek() const { return pos_ < text_.size() ? Upper(text_[pos_]) : '\0'; }

  // A run of digits, if there is one; a number too long for any setting reads as too big.
  std::optional<int> Number() {
    if (!IsDigit(Peek())) return std::nullopt;
    int value = 0;
    while (IsDigit(Peek())) {
      if (value < 100000) value = value * 10 + (text_[pos_] - '0');
      ++pos_;
    }
    return value;
  }

  std::optional<int> NumberIn(int low, int high) {
    const std::optional<int> n = Number();
    if (!n || *n < low || *n > high) return std::nullopt;
    return n;
  }

  // An optional length, then dots: the step's length in ms, or nothing when the length is
  // out of range.
  std::optional<double> LengthMs() {
    int length = default_length_;
    if (IsDigit(Peek())) {
      const std::optional<int> n = NumberIn(1, kMaxLength);
      if (!n) return std::nullopt;
      length = *n;
    }
    return Dotted(kWholeNoteMs / (tempo_ * length));
  }

  // `ms` lengthened by the dots that follow.
  double Dotted(double ms) {
    double added = ms;
    for (; Peek() == '.'; ++pos_) ms += (added /= 2);
    return ms;
  }

  void Add(std::vector<TuneNote>* notes, int index, double ms) const {
    TuneNote note;
    note.length_ms = static_cast<uint32_t>(std::lround(ms));
    if (index >= 0) {
      note.frequency_hz = NoteFrequency(index);
      note.sound_ms = static_cast<uint32_t>(std::lround(ms * sounding_));
    }
    notes->push_back(note);
  }

  bool Command(std::vector<TuneNote>* notes) {
    const char c = Peek();
    ++pos_;
    if (c >= 'A' && c <= 'G') {
      int index = octave_ * 12 + kLetterSemitones[c - 'A'];
      if (Peek() == '#' || Peek() == '+') {
        ++index;
        ++pos_;
      } else if (Peek() == '-') {
        --index;
        ++pos_;
      }
      if (index < kLowestIndex || index > kHighestIndex) return false;
      const std::optional<double> ms = LengthMs();
      if (!ms) return false;
      Add(notes, index, *ms);
      return true;
    }
    switch (c) {
      case 'N': {
        const std::optional<int> n = NumberIn(0, kHighestIndex + 1);
        if (!n) return false;
        Add(notes, *n - 1, Dotted(kWholeNoteMs / (tempo_ * default_length_)));
        return true;
      }
      case 'P':
      case 'R': {
        const std::optional<double> ms = LengthMs();
        if (!ms) return false;
        Add(notes, -1, *ms);
        return true;
      }
      case 'O': {
        const std::optional<int> n = NumberIn(0, kOctaves - 1);
        if (!n) return false;
        octave_ = *n;
        return true;
      }
      case '<':
        if (octave_ == 0) return false;
        --octave_;
        return true;
      case '>':
        if (octave_ == kOctaves - 1) return false;
        ++octave_;
        return true;
      case 'L': {
        const std::optional<int> n = NumberIn(1, kMaxLength);
        if (!n) return false;
        default_length_ = *n;
        return true;
      }
      case 'T': {
        const std::optional<int> n = NumberIn(kMinTempo, kMaxTempo);
        if (!n) return false;
        tempo_ = *n;
        return true;
      }
      case 'M': {
        const char mode = Peek();
        ++pos_;
        switch (mode) {
          case 'N': sounding_ = 7.0 / 8; return true;
          case 'L': sounding_ = 1.0; return true;
          case 'S': sounding_ = 3.0 / 4; return true;
          case 'F':
          case 'B': return true;
          default: return false;
        }
      }
      default: return false;
    }
  }

  std::string_view text_;
  size_t pos_ = 0;
  int octave_ = 4;
  int default_length_ = 4;
  int tempo_ = 120;
  double sounding_ = 7.0 / 8;
};

}  // namespace

size_t Tune::ToneCount() const {
  size_t count = 0;
  for (const TuneNote& note : notes) count += note.frequency_hz != 0 ? 1 : 0;
  return count;
}

Tune ParseTune(std::string_view text) { return TuneReader(text).Read(); }

uint32_t NoteFrequency(int index) {
  return static_cast<uint32_t>(std::lround(kA4Hz * std::pow(2.0, (index - kA4Index) / 12.0)));
}

std::optional<uint32_t> NoteNameFrequency(std::string_view text) {
  if (text.empty()) return std::nullopt;
  const char letter = Upper(text[0]);
  if (letter < 'A' || letter > 'G') return std::nullopt;
  int index = kLetterSemitones[letter - 'A'];
  size_t pos = 1;
  if (pos < text.size() && (text[pos] == '#' || text[pos] == '+')) {
    ++index;
    ++pos;
  } else if (pos < text.size() && (text[pos] == 'b' || text[pos] == '-')) {
    --index;
    ++pos;
  }
  int octave = 4;
  if (pos < text.size() && text[pos] >= '0' && text[pos] < '0' + kOctaves) {
    octave = text[pos] - '0';
    ++pos;
  }
  index += octave * 12;
  if (pos != text.size() || index < kLowestIndex || index > kHighestIndex) return std::nullopt;
  return NoteFrequency(index);
}

}  // namespace kel
