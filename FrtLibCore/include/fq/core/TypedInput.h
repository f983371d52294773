#pragma once

// What a guitarist types (notes, chord symbols, keys, tunings, progressions) read into
// theory values, so that every front end understands the same text the same way.

#include "fq/core/Chord.h"
#include "fq/core/Error.h"
#include "fq/core/Note.h"

#include <tl/expected.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fq::core {

/// Any of the 45 notes as a person types it: true signs ("C♯", "E♭", "B♯", "C𝄪") or
/// ASCII ("C#", "Eb", "Dbb"); the letter in either case ("eb", "f#").
std::optional<Note> noteFromText(std::string_view text);

/// A chord symbol: first as the alias dictionary knows it ("Cm7", "Bb7", "C/E"), as
/// given and with the blank after the root removed ("C♯ minor 7th"); then with any of
/// the 45 notes as root ("Cb", "E#m", "B♯7"), ASCII signs in the type ("C7b9",
/// "Cm7b5", "C7#9") and any chord tone after a slash ("Cb/Eb"). The root's letter is
/// upper case, since "M" and "m" differ after it. Fails with "Unknown chord: <text>".
tl::expected<Chord, Error> chordFromSymbol(std::string_view text);

/// A chord given as root, catalogue type and inversion, checked against the catalogue.
tl::expected<Chord, Error> chordFromParts(std::string_view root, std::string_view type,
                                          int variant);

/// A key as typed: its note in either case, then nothing, "m", "min" or "minor" for a
/// minor key, or "M", "maj" or "major" ("C", "a", "Am", "f#m", "B♭ minor").
struct TypedKey {
    Note tonic = Note::C;
    std::optional<std::string> mode; ///< "major" or "minor" when the text says which

    friend bool operator==(const TypedKey&, const TypedKey&) = default;
};
tl::expected<TypedKey, Error> keyFromText(std::string_view text);

/// A tuning by its catalogue name in any case, blanks and hyphens aside ("dropD", "DADGAD",
/// "Half-Step Down"), or as six open notes lowest string first, separated by commas or
/// blanks, octaves optional ("D,A,D,G,B,E", "E2,A2,D3,G3,B3,E4", "eb ab db gb bb eb").
/// Given back as the six note names with the true signs.
tl::expected<std::vector<std::string>, Error> tuningFromText(std::string_view text);

/// A progression as a guitarist types it: numerals separated by blanks, commas or
/// hyphens, each with an optional accidental before it and a chord suffix after it
/// ("I V vi IV", "ii7 V7 Imaj7", "vii°", "iiø", "♭VII", "V7b9"). A bare numeral is major
/// or minor by its case; a sign before it counts from the major scale in either mode ("♭VII"
/// in A minor is G); a suffix reads as it would after a root ("7" on a minor numeral
/// is a minor 7th, "°" diminished, "ø" half-diminished).
struct TypedProgression {
    std::string numerals;      ///< the tokens joined by "-", as the catalogue writes them
    std::vector<Chord> chords; ///< a token whose root cannot be spelled in the key adds none
};
tl::expected<TypedProgression, Error> progressionFromText(Note key, std::string_view mode,
                                                          std::string_view text);

} // namespace fq::core
