#pragma once

// Web links to chords, read and written, and the slug and fingering codes they use.

#include <fq/core/Chord.h>
#include <fq/core/Note.h>

#include <array>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace fq::navigation {

namespace config {
/// The program's public site: web links to chords live under https://<host>/chords/.
inline constexpr std::string_view webHost = "fretquill.app";
} // namespace config

/// Reading and writing web links to chords, such as
/// https://fretquill.app/chords/c-major/e/x32010. Nothing here has state.
namespace ChordURLParser {

/// What a web link points at.
struct ParsedChordRoute {
    core::Chord chord;
    std::string chordSlug;               ///< the chord segment, decoded, trimmed, lower case
    std::optional<core::Note> bassNote;  ///< the bass the link names
    std::optional<std::string> bassSlug; ///< the bass segment, when the path carried one
    std::optional<std::vector<int>> selectedPosition; ///< six frets, lowest string first

    friend bool operator==(const ParsedChordRoute&, const ParsedChordRoute&) = default;
};

/// "c-sharp", "e-flat", "b-double-sharp", "d-flat-flat"; none for a text that is no such note.
std::optional<std::string> noteSlug(std::string_view note);
std::optional<core::Note> noteFromSlug(std::string_view slug);
/// "dominant 7th flat 5" → "dominant-7th-flat-5".
std::string chordTypeSlug(std::string_view chordType);
/// What a chord type slug and a chord type name are compared by: "minor-7th" → "minor 7th".
std::string chordTypeMatchKey(std::string_view text);
/// A case- and accent-free slug for item identifiers: "C♯ Jazz Café" → "c-sharp-jazz-cafe".
std::string identifierSlug(std::string_view text);
/// Six frets as six characters: x for a muted string, 0-9, then a-w for 10-32, y and z
/// for 34 and 35; none when a fret cannot be written (33 among them).
std::optional<std::string> encodeFingering(std::span<const int> frets);
/// The reverse; a fingering that mutes every string is refused.
std::optional<std::vector<int>> decodeFingering(std::string_view text);

/// The chord a web link on the program's site points at, or none.
std::optional<ParsedChordRoute> parseChordURL(std::string_view url);
/// The web link for a chord and, when given, a fingering.
std::string chordWebURL(const core::Chord& chord,
                        std::optional<std::span<const int>> fingering = std::nullopt);

} // namespace ChordURLParser
} // namespace fq::navigation
