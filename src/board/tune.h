#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace kel {

/// One step of a tune: a tone, or a pause when the frequency is 0.
struct TuneNote {
  uint32_t frequency_hz = 0;  ///< equal temperament from A4 = 440 Hz, whole Hz; 0: pause
  uint32_t sound_ms = 0;      ///< how long the tone sounds (0 for a pause)
  uint32_t length_ms = 0;     ///< the whole step, the silence at its end included

  bool operator==(const TuneNote&) const = default;
};

/// What ParseTune made of a text: every step, or the place of the first bad character.
struct Tune {
  std::vector<TuneNote> notes;
  /// Offset of the first character that is not part of the language; npos when the
  /// whole text was read.
  size_t error_at = static_cast<size_t>(-1);

  bool Ok() const { return error_at == static_cast<size_t>(-1); }
  /// The steps that sound (pauses left out).
  size_t ToneCount() const;
};

/// Reads a tune in the classic music-macro language. Letters are read without regard to
/// case; blanks and tabs between commands are skipped.
///   A-G [#|+|-] [len] [.]  a note in the current octave: '#' or '+' sharp, '-' flat;
///                          len 1-64 (4 = quarter) instead of the default length; each dot
///                          adds half of what the one before added (C4. = 1.5 quarters)
///   N<n> [.]               note number n: 1-96 from C0 to B7, 0 a pause
///   P|R [len] [.]          a pause
///   O<n>  < >              octave 0-7 (4 at the start; C4 is middle C), one down, one up
///   L<n>                   default length 1-64 (4 at the start)
///   T<n>                   tempo 32-255 quarter notes a minute (120 at the start)
///   MN ML MS               notes sound 7/8 (the start), all, or 3/4 of their length
///   MF MB                  foreground / background: accepted, no effect
/// Examples at the start settings (T120, L4, O4):
///   "A"      -> 440 Hz, 500 ms long, sounding 438 ms
///   "O5 C8." -> 523 Hz, 375 ms;  "L8 A." -> 440 Hz, 375 ms;  ">A" -> 880 Hz
///   "P2"     -> a 1000 ms pause; "T240 C" -> 262 Hz, 250 ms
///   "H" / "O8" / "T20" / "L0" / "C65" / "O0 C-" -> error at the offending text
/// A pure function of the text: it never reads past it and never fails otherwise.
Tune ParseTune(std::string_view text);

/// The frequency of a note name: a letter A-G, then '#' or '+' (sharp), 'b' or '-' (flat)
/// or nothing, then the octave 0-7 or nothing (4):
///   "A4" -> 440, "A" -> 440, "C5" -> 523, "C#4" -> 277, "Bb3" -> 233, "H4" -> nothing.
std::optional<uint32_t> NoteNameFrequency(std::string_view text);

/// The frequency of note `index` counted in semitones from C0 (A4 is 57), whole Hz.
uint32_t NoteFrequency(int index);

}  // namespace kel
