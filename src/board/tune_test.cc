#include "board/tune.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace kel {

void PrintTo(const TuneNote& note, std::ostream* os) {
  *os << "{" << note.frequency_hz << " Hz, " << note.sound_ms << "/" << note.length_ms << " ms}";
}

namespace {

using Notes = std::vector<TuneNote>;

// Whole tunes: the steps they make at the start settings (T120, L4, O4, 7/8 sounding), or
// the offset of the first bad character, after which nothing is kept.
TEST(ParseTuneTest, StepsOfEachCommandOrTheFirstBadCharacter) {
  constexpr size_t kOk = static_cast<size_t>(-1);
  struct Case {
    const char* text;
    Notes notes;
    size_t error_at = kOk;
  };
  const TuneNote a4{440, 438, 500};
  const Case cases[] = {
      // Frequencies: letters, accidentals, octaves, note numbers, the range's ends.
      {"A", {a4}},
      {"a4", {a4}},
      {"O5 C", {{523, 438, 500}}},
      {"O3A >A >A <<A", {{220, 438, 500}, a4, {880, 438, 500}, {220, 438, 500}}},
      {"C# C+ D- E", {{277, 438, 500}, {277, 438, 500}, {277, 438, 500}, {330, 438, 500}}},
      {"O0C O7B", {{16, 438, 500}, {3951, 438, 500}}},
      {"N58 N1 N0", {a4, {16, 438, 500}, {0, 0, 500}}},
      // Lengths and dots, the default length, tempo, pauses.
      {"L8 A.", {{440, 328, 375}}},
      {"A8.. P4. R", {{440, 383, 438}, {0, 0, 750}, {0, 0, 500}}},
      {"C64 T60 A1", {{262, 27, 31}, {440, 3500, 4000}}},
      {"T240 L16 CDE", {{262, 55, 63}, {294, 55, 63}, {330, 55, 63}}},
      {"T32 P", {{0, 0, 1875}}},
      // Articulation; blanks and tabs between commands.
      {" ML A\tMS A MN MF MB A ", {{440, 500, 500}, {440, 375, 500}, a4}},
      {"", {}},
      // Errors.
      {"H", {}, 0},
      {"A H", {}, 2},
      {"A;B", {}, 1},
      {"A 4", {}, 2},
      {"O8", {}, 0},
      {"O", {}, 0},
      {"L0", {}, 0},
      {"L65", {}, 0},
      {"C65", {}, 0},
      {"C0", {}, 0},
      {"T31", {}, 0},
      {"T256", {}, 0},
      {"T99999999999", {}, 0},
      {"N97", {}, 0},
      {"MX", {}, 0},
      {"M", {}, 0},
      {"O0 C-", {}, 3},
      {"O7 B#", {}, 3},
      {"O0 <", {}, 3},
      {"O7 >", {}, 3},
  };
  for (const Case& c : cases) {
    const Tune tune = ParseTune(c.text);
    EXPECT_EQ(c.error_at, tune.error_at) << c.text;
    EXPECT_EQ(c.notes, tune.notes) << c.text;
  }
  EXPECT_EQ(2U, ParseTune("A P B").ToneCount());
}

TEST(NoteNameFrequencyTest, LetterAccidentalAndOctave) {
  const std::pair<const char*, uint32_t> names[] = {
      {"A4", 440},  {"A", 440},   {"a4", 440}, {"C5", 523}, {"C#4", 277},
      {"Bb3", 233}, {"db4", 277}, {"E+", 349}, {"C0", 16},  {"B7", 3951},
  };
  for (const auto& [name, hz] : names) EXPECT_EQ(hz, NoteNameFrequency(name)) << name;
  for (const char* bad : {"", "H4", "A8", "A44", "Cb0", "B#7", "A#b", "1000", "off"}) {
    EXPECT_FALSE(NoteNameFrequency(bad)) << bad;
  }
}

}  // namespace
}  // namespace kel
