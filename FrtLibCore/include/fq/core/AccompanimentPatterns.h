#pragma once

#include "fq/core/Error.h"
#include "fq/core/Note.h"
#include "fq/core/Uuid.h"

#include <nlohmann/json.hpp>
#include <tl/expected.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fq::core {

// The three layers of a jam over a chord progression: a guitar picking pattern, a bass
// line and a drum groove. Steps carry durations and velocities only; what a direction
// letter or a bass pitch plays is the sequencer's business.

/// Which strings a picked note takes, as letters the sequencer resolves.
enum class ArpeggioDirection : std::uint8_t { t, d, b, u, r, iii };
enum class NoteArticulation : std::uint8_t { pick, mute };
enum class BassPitch : std::uint8_t { root, fifth, octave, third, rest };

/// The raw value is the MIDI note of the drum sample; `rest` sounds nothing.
enum class DrumNoteType : std::uint8_t {
    kick = 48,
    sidestick = 49,
    snare = 50,
    rim = 52,
    closedHH = 54,
    openHH = 58,
    lowTom = 57,
    midTom = 59,
    hiTom = 61,
    crash = 63,
    ride = 65,
    rest = 0,
};

/// Case names, e.g. "iii", "closedHH".
std::string_view caseName(ArpeggioDirection direction);
std::string_view caseName(NoteArticulation articulation);
std::string_view caseName(BassPitch pitch);
std::string_view caseName(DrumNoteType type);
std::optional<DrumNoteType> drumNoteTypeFromRawValue(int raw);

struct ArpeggioNote {
    NoteDuration noteDuration = NoteDuration::crochet;
    ArpeggioDirection arpeggioDirection = ArpeggioDirection::t;
    NoteArticulation noteArticulation = NoteArticulation::pick;
    std::uint8_t noteVelocity = 0;

    friend bool operator==(const ArpeggioNote&, const ArpeggioNote&) = default;
};

struct BassNote {
    NoteDuration noteDuration = NoteDuration::crochet;
    BassPitch pitch = BassPitch::root;
    NoteArticulation noteArticulation = NoteArticulation::pick;
    int noteVelocity = 0;

    friend bool operator==(const BassNote&, const BassNote&) = default;
};

struct BassPattern {
    Uuid id = Uuid::random();
    std::string name;
    std::string description;
    std::vector<BassNote> bassNotes;
    TimeSignature timeSignature = TimeSignature::ts_44;

    friend bool operator==(const BassPattern&, const BassPattern&) = default;
};

struct BassPatternWithComplexity {
    Uuid id = Uuid::random();
    BassPattern bassPattern;
    std::uint8_t complexity = 0;

    friend bool operator==(const BassPatternWithComplexity&,
                           const BassPatternWithComplexity&) = default;
};

struct BassPatterns {
    std::vector<BassPattern> bassPatterns;

    friend bool operator==(const BassPatterns&, const BassPatterns&) = default;
};

/// One drum hit; the hits of a step sound together.
struct DrumMIDINote {
    DrumNoteType noteType = DrumNoteType::rest;
    std::uint8_t noteVelocity = 0;

    friend bool operator==(const DrumMIDINote&, const DrumMIDINote&) = default;
};

struct DrumNote {
    std::vector<DrumMIDINote> drumMIDINote;
    NoteDuration noteDuration = NoteDuration::crochet;

    friend bool operator==(const DrumNote&, const DrumNote&) = default;
};

struct DrumPattern {
    Uuid id = Uuid::random();
    std::string name;
    std::string description;
    std::vector<DrumNote> drumNotes;
    TimeSignature timeSignature = TimeSignature::ts_44;

    friend bool operator==(const DrumPattern&, const DrumPattern&) = default;
};

struct DrumPatternWithComplexity {
    Uuid id = Uuid::random();
    DrumPattern drumPattern;
    std::uint8_t complexity = 0;

    friend bool operator==(const DrumPatternWithComplexity&,
                           const DrumPatternWithComplexity&) = default;
};

struct DrumPatterns {
    std::vector<DrumPattern> drumPatterns;

    friend bool operator==(const DrumPatterns&, const DrumPatterns&) = default;
};

/// A guitar picking pattern with the bass and drum patterns that suit it, best first.
struct ArpeggioSequence {
    Uuid id = Uuid::random();
    std::string name;
    std::string description;
    /// Steps in order; the notes of a step sound together.
    std::vector<std::vector<ArpeggioNote>> sequence;
    TimeSignature timeSignature = TimeSignature::ts_44;
    std::vector<BassPatternWithComplexity> associatedBassPatterns;
    std::vector<DrumPatternWithComplexity> associatedDrumPatterns;

    friend bool operator==(const ArpeggioSequence&, const ArpeggioSequence&) = default;
};

struct ArpeggioSequences {
    std::vector<ArpeggioSequence> sequences;

    friend bool operator==(const ArpeggioSequences&, const ArpeggioSequences&) = default;
};

// JSON forms: keys are the field names; a duration is its fraction of a whole note, a
// metre its text ("4/4"), a drum its MIDI note, and a direction, pitch or articulation
// an object with the case name as its only key ({"t":{}}). Identifiers are written but
// never read: everything decoded gets a fresh identifier.

/// The description of the error when a one-key object has other than one known key.
inline constexpr std::string_view invalidKeyCountMessage =
    "Invalid number of keys found, expected one.";

nlohmann::ordered_json toJson(ArpeggioDirection direction);
nlohmann::ordered_json toJson(NoteArticulation articulation);
nlohmann::ordered_json toJson(BassPitch pitch);
nlohmann::ordered_json toJson(const ArpeggioNote& note);
nlohmann::ordered_json toJson(const BassNote& note);
nlohmann::ordered_json toJson(const BassPattern& pattern);
nlohmann::ordered_json toJson(const BassPatternWithComplexity& pattern);
nlohmann::ordered_json toJson(const BassPatterns& patterns);
nlohmann::ordered_json toJson(const DrumMIDINote& note);
nlohmann::ordered_json toJson(const DrumNote& note);
nlohmann::ordered_json toJson(const DrumPattern& pattern);
nlohmann::ordered_json toJson(const DrumPatternWithComplexity& pattern);
nlohmann::ordered_json toJson(const DrumPatterns& patterns);
nlohmann::ordered_json toJson(const ArpeggioSequence& sequence);
nlohmann::ordered_json toJson(const ArpeggioSequences& sequences);

tl::expected<ArpeggioDirection, Error> arpeggioDirectionFromJson(const nlohmann::json& json);
tl::expected<NoteArticulation, Error> noteArticulationFromJson(const nlohmann::json& json);
tl::expected<BassPitch, Error> bassPitchFromJson(const nlohmann::json& json);
tl::expected<ArpeggioNote, Error> arpeggioNoteFromJson(const nlohmann::json& json);
tl::expected<BassNote, Error> bassNoteFromJson(const nlohmann::json& json);
tl::expected<BassPattern, Error> bassPatternFromJson(const nlohmann::json& json);
tl::expected<BassPatternWithComplexity, Error>
bassPatternWithComplexityFromJson(const nlohmann::json& json);
tl::expected<BassPatterns, Error> bassPatternsFromJson(const nlohmann::json& json);
tl::expected<DrumMIDINote, Error> drumMIDINoteFromJson(const nlohmann::json& json);
tl::expected<DrumNote, Error> drumNoteFromJson(const nlohmann::json& json);
tl::expected<DrumPattern, Error> drumPatternFromJson(const nlohmann::json& json);
tl::expected<DrumPatternWithComplexity, Error>
drumPatternWithComplexityFromJson(const nlohmann::json& json);
tl::expected<DrumPatterns, Error> drumPatternsFromJson(const nlohmann::json& json);
tl::expected<ArpeggioSequence, Error> arpeggioSequenceFromJson(const nlohmann::json& json);
tl::expected<ArpeggioSequences, Error> arpeggioSequencesFromJson(const nlohmann::json& json);

// The built-in catalogue, in its order. Each call builds it anew with fresh
// identifiers, so a stored choice must name a pattern, not hold its identifier.

std::vector<BassPattern> bassPatterns();
std::vector<DrumPattern> drumPatterns();
std::vector<ArpeggioSequence> arpeggioSequences();
/// The first pattern of the catalogue with exactly this name, or none.
std::optional<BassPattern> bassPattern(std::string_view name);
std::optional<DrumPattern> drumPattern(std::string_view name);

} // namespace fq::core
