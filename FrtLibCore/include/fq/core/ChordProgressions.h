#pragma once

#include "fq/core/Chord.h"
#include "fq/core/Error.h"
#include "fq/core/Note.h"

#include <nlohmann/json.hpp>
#include <tl/expected.hpp>

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace fq::core {

/// Styles a progression is heard in; the raw value is the display name.
enum class MusicStyles : std::uint8_t {
    folk,
    blues,
    pop,
    rock,
    country,
    jazz,
    classical,
    metal,
    hiphop,
    reggae,
    electronic,
    punk,
    soul,
    funk,
    disco,
    rnb,
    dramatic,
    emotional,
    ballad,
    melancholic,
    modal,
    medieval,
    traditional,
    romantic,
    cinematic,
};

inline constexpr std::size_t musicStylesCount = 25;

std::span<const MusicStyles, musicStylesCount> allMusicStyles();
/// "Hip Hop", "R&B", …
std::string_view rawValue(MusicStyles style);
std::optional<MusicStyles> musicStylesFromRawValue(std::string_view raw);

/// A progression in Roman numerals, independent of key. Its description marks the
/// place of each chord with the numeral between double hyphens, e.g. "--vi--".
struct ChordProgression {
    std::string progression; ///< numerals joined by "-", e.g. "I-V-vi-IV"
    std::string description;
    std::vector<MusicStyles> styles;

    friend bool operator==(const ChordProgression&, const ChordProgression&) = default;
};

/// {"progression": …, "description": …, "styles": ["Pop", "Rock"]}
nlohmann::ordered_json toJson(const ChordProgression& progression);
tl::expected<ChordProgression, Error> chordProgressionFromJson(const nlohmann::json& json);

namespace ChordProgressions {

using Catalogue = std::map<std::string, ChordProgression, std::less<>>;

/// The 32 progressions by their numeral text.
const Catalogue& catalogue();
/// The display order of a mode: "major" or "minor", compared exactly; empty otherwise.
std::span<const std::string_view> displayOrder(std::string_view mode);
/// The records of a mode in display order.
std::vector<ChordProgression> all(std::string_view mode);
/// The catalogue entry, or null.
const ChordProgression* progression(std::string_view numerals);

/// The value of a Roman numeral, case-insensitively ("IV" is 4, "vii" is 7). A letter
/// outside I V X L C D M prints "Invalid Roman numeral character: <letter>" and gives 0.
int romanValue(std::string_view numeral);
/// A numeral (without accidentals) names a major chord when all its letters are
/// upper-case Roman letters; an empty text counts as major.
bool isMajorNumeral(std::string_view numeral);
/// Semitones above the key of a numeral token such as "♭VII" or "iv", on the minor
/// scale when `mode` lower-cased is "minor" and on the major scale otherwise. A token
/// that is no plain numeral after its accidentals (e.g. "V7") gives 0.
int scaleOffset(std::string_view token, std::string_view mode);

/// The chords of a numeral text in a key: major or minor triads in root position. A
/// token that cannot be spelled in the key (e.g. one with a suffix, "V7") adds nothing.
std::vector<Chord> chords(Note key, std::string_view mode, std::string_view progression);
/// "C major", "A minor", … for the same chords.
std::vector<std::string> chordNames(Note key, std::string_view mode, std::string_view progression);
/// The catalogue description with every placeholder replaced by its chord's note and
/// type; empty for a progression that is not in the catalogue.
std::string filledDescription(std::string_view progression, Note key, std::string_view mode);
/// The standard chords of a key: "I-IV-V-vi-ii-iii", or "i-III-iv-V-VI" when `mode`
/// is exactly "minor".
std::vector<Chord> diatonicChords(Note key, std::string_view mode);

} // namespace ChordProgressions

} // namespace fq::core
