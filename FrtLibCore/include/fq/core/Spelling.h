#pragma once

#include "fq/core/Note.h"

#include <array>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace fq::core {

/// The five spelling rows, one spelling per pitch position (C = 0), each stored
/// three times over so that a root plus an interval of up to 24 semitones stays inside.
enum class SpellingRow : std::uint8_t { regular, sharp, flat, doubleSharp, doubleFlat };

inline constexpr std::size_t spellingRowLength = 36;
using SpellingRowEntries = std::array<std::string_view, spellingRowLength>;

const SpellingRowEntries& spellingRow(SpellingRow row);

/// The rows in the order every lookup walks them.
inline constexpr std::array<SpellingRow, 5> spellingRowOrder{
    SpellingRow::regular, SpellingRow::sharp, SpellingRow::flat, SpellingRow::doubleSharp,
    SpellingRow::doubleFlat};

/// "C" to "B", repeated three times.
const std::array<std::string_view, 21>& naturalLetters();

/// Pitch position 0 to 11 of any spelling in the rows; ASCII signs are not note names.
std::optional<int> semitoneIndex(std::string_view name);

/// The pitch position of a note as a person types it in a list: blanks around it
/// are ignored, case does not matter, "#" means "♯" and "Eb" means "E♭".
std::optional<int> pitchOfTypedNote(std::string_view token);

/// MIDI numbers of a chord voiced from the root's base number: each value is raised
/// by octaves until it stands strictly above the previous one.
std::vector<int> noteNumbers(Note root, std::span<const int> intervals);

/// The note and octave of a MIDI number 12 to 127 (60 is C4); none above 127 or below 0.
/// Numbers 0 to 11 would need a negative octave: callers pass only a guitar's range.
std::optional<NoteAndOctave> noteAndOctave(int midiNumber);

/// The spelling of the tone `semitones` above `root` that stands on formula degree
/// `degree` (3 for any third), e.g. C, 3, 3 gives "E♭". Empty when it cannot be spelled.
std::string spelledNote(int semitones, int degree, std::string_view root);

/// The degree of a formula token: the digits after whatever precedes the first
/// digit ("♭♭7" is 7, "♯11" is 11); 0 for a token without a digit.
int formulaDegree(std::string_view token);

/// Display name of a formula degree symbol ("♭3" is "Minor Third"); empty when unknown.
std::string_view intervalName(std::string_view symbol);

} // namespace fq::core
