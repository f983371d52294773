#pragma once

#include "fq/core/Error.h"
#include "fq/core/Note.h"

#include <nlohmann/json.hpp>
#include <tl/expected.hpp>

#include <compare>
#include <cstddef>
#include <string>

namespace fq::core {

/// The chord value the whole program stores and passes around.
struct Chord {
    Note rootNote = Note::C;
    std::string chordType; ///< a catalogue key, e.g. "minor 7th"
    int variant = 0;       ///< the inversion: note `variant` of the chord is in the bass

    friend auto operator<=>(const Chord&, const Chord&) = default;
};

struct ChordHash {
    std::size_t operator()(const Chord& chord) const noexcept;
};

/// {"rootNote": "C♯", "chordType": "minor 7th", "variant": 0}, keys in that order.
nlohmann::ordered_json toJson(const Chord& chord);

/// Reads the JSON form; "variant" is optional. An unknown root fails with
/// "Unrecognised note: <text>".
tl::expected<Chord, Error> chordFromJson(const nlohmann::json& json);
tl::expected<Chord, Error> chordFromJson(const nlohmann::ordered_json& json);

/// One catalogue row.
struct ChordData {
    std::string title;      ///< the catalogue key
    std::string shortTitle; ///< e.g. "min/maj7"
    bool includesSpace = false;
    std::vector<std::string> otherNames;
    std::string formula;    ///< degrees joined by "-", e.g. "1-♭3-5"
    std::vector<int> notes; ///< semitones above the root in formula order, not reduced to an octave

    friend bool operator==(const ChordData&, const ChordData&) = default;
};

} // namespace fq::core
