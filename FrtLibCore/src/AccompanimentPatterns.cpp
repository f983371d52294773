#include "fq/core/AccompanimentPatterns.h"

#include <fmt/format.h>

#include <array>
#include <climits>
#include <utility>

namespace fq::core {
namespace {

using Json = nlohmann::json;
using OrderedJson = nlohmann::ordered_json;

constexpr std::array<std::string_view, 6> directionNames{"t", "d", "b", "u", "r", "iii"};
constexpr std::array<std::string_view, 2> articulationNames{"pick", "mute"};
constexpr std::array<std::string_view, 5> pitchNames{"root", "fifth", "octave", "third", "rest"};

constexpr std::array<std::pair<DrumNoteType, std::string_view>, 12> drumNames{{
    {DrumNoteType::kick, "kick"},
    {DrumNoteType::sidestick, "sidestick"},
    {DrumNoteType::snare, "snare"},
    {DrumNoteType::rim, "rim"},
    {DrumNoteType::closedHH, "closedHH"},
    {DrumNoteType::openHH, "openHH"},
    {DrumNoteType::lowTom, "lowTom"},
    {DrumNoteType::midTom, "midTom"},
    {DrumNoteType::hiTom, "hiTom"},
    {DrumNoteType::crash, "crash"},
    {DrumNoteType::ride, "ride"},
    {DrumNoteType::rest, "rest"},
}};

template <typename T>
using Result = tl::expected<T, Error>;

Error missing(std::string_view key) {
    return Error{fmt::format("Missing value for key: {}", key)};
}
Error mismatch(std::string_view key, std::string_view expected) {
    return Error{fmt::format("Type mismatch for key {}: expected {}", key, expected)};
}

Result<const Json*> field(const Json& json, std::string_view key) {
    if (!json.is_object()) return tl::unexpected(Error{"Expected a JSON object"});
    const auto found = json.find(key);
    if (found == json.end() || found->is_null()) return tl::unexpected(missing(key));
    return &*found;
}

Result<std::string> textField(const Json& json, std::string_view key) {
    return field(json, key).and_then([&](const Json* value) -> Result<std::string> {
        if (!value->is_string()) return tl::unexpected(mismatch(key, "text"));
        return value->get<std::string>();
    });
}

Result<std::int64_t> integerField(const Json& json, std::string_view key, std::int64_t low,
                                  std::int64_t high) {
    return field(json, key).and_then([&](const Json* value) -> Result<std::int64_t> {
        if (!value->is_number_integer()) return tl::unexpected(mismatch(key, "an integer"));
        const auto number = value->get<std::int64_t>();
        // An unsigned value past the signed range reads back negative; both are refused.
        if (number < low || number > high || (value->is_number_unsigned() && number < 0))
            return tl::unexpected(
                Error{fmt::format("The value {} for key {} is out of range", value->dump(), key)});
        return number;
    });
}

Result<std::uint8_t> byteField(const Json& json, std::string_view key) {
    return integerField(json, key, 0, 255).map([](std::int64_t v) {
        return static_cast<std::uint8_t>(v);
    });
}

Result<NoteDuration> durationField(const Json& json) {
    return field(json, "noteDuration").and_then([](const Json* value) -> Result<NoteDuration> {
        if (!value->is_number()) return tl::unexpected(mismatch("noteDuration", "a number"));
        if (const auto duration = noteDurationFromRawValue(value->get<double>())) return *duration;
        return tl::unexpected(
            Error{"Cannot initialize NoteDuration from invalid value " + value->dump()});
    });
}

Result<TimeSignature> timeSignatureField(const Json& json) {
    return textField(json, "timeSignature")
        .and_then([](const std::string& text) -> Result<TimeSignature> {
            if (const auto signature = timeSignatureFromRawValue(text)) return *signature;
            return tl::unexpected(
                Error{"Cannot initialize TimeSignature from invalid value \"" + text + "\""});
        });
}

/// Encodes a case without associated values the way the other platform's coder does.
template <std::size_t N>
OrderedJson oneKeyObject(const std::array<std::string_view, N>& names, std::size_t index) {
    OrderedJson object = OrderedJson::object();
    object[std::string(names[index])] = OrderedJson::object();
    return object;
}

/// Unknown keys are passed over; exactly one known key must remain.
template <typename Enum, std::size_t N>
Result<Enum> fromOneKeyObject(const Json& json, const std::array<std::string_view, N>& names) {
    if (!json.is_object()) return tl::unexpected(Error{"Expected a JSON object with one key"});
    std::optional<std::size_t> chosen;
    std::size_t known = 0;
    for (std::size_t i = 0; i < N; ++i) {
        if (json.contains(names[i])) {
            ++known;
            chosen = i;
        }
    }
    if (known != 1) return tl::unexpected(Error{std::string(invalidKeyCountMessage)});
    if (!json.at(names[*chosen]).is_object())
        return tl::unexpected(mismatch(names[*chosen], "an empty object"));
    return static_cast<Enum>(*chosen);
}

template <typename T, typename Decode>
Result<std::vector<T>> arrayField(const Json& json, std::string_view key, Decode decode) {
    const auto value = field(json, key);
    if (!value) return tl::unexpected(value.error());
    if (!(*value)->is_array()) return tl::unexpected(mismatch(key, "an array"));
    std::vector<T> items;
    items.reserve((*value)->size());
    for (const auto& item : **value) {
        auto decoded = decode(item);
        if (!decoded) return tl::unexpected(decoded.error());
        items.push_back(std::move(*decoded));
    }
    return items;
}

template <typename T>
OrderedJson arrayOf(const std::vector<T>& items) {
    OrderedJson array = OrderedJson::array();
    for (const auto& item : items)
        array.push_back(toJson(item));
    return array;
}

/// Unwraps a field's result into `into`, or leaves the function with its error.
#define FQ_READ(into, expression)                                                                  \
    do {                                                                                           \
        auto read_ = (expression);                                                                 \
        if (!read_) return tl::unexpected(std::move(read_.error()));                               \
        into = std::move(*read_);                                                                  \
    } while (false)

} // namespace

std::string_view caseName(ArpeggioDirection direction) {
    return directionNames[static_cast<std::size_t>(direction)];
}
std::string_view caseName(NoteArticulation articulation) {
    return articulationNames[static_cast<std::size_t>(articulation)];
}
std::string_view caseName(BassPitch pitch) {
    return pitchNames[static_cast<std::size_t>(pitch)];
}
std::string_view caseName(DrumNoteType type) {
    for (const auto& [value, name] : drumNames)
        if (value == type) return name;
    return {};
}

std::optional<DrumNoteType> drumNoteTypeFromRawValue(int raw) {
    for (const auto& [value, name] : drumNames)
        if (static_cast<int>(value) == raw) return value;
    return std::nullopt;
}

OrderedJson toJson(ArpeggioDirection direction) {
    return oneKeyObject(directionNames, static_cast<std::size_t>(direction));
}
OrderedJson toJson(NoteArticulation articulation) {
    return oneKeyObject(articulationNames, static_cast<std::size_t>(articulation));
}
OrderedJson toJson(BassPitch pitch) {
    return oneKeyObject(pitchNames, static_cast<std::size_t>(pitch));
}

OrderedJson toJson(const ArpeggioNote& note) {
    return {{"noteDuration", rawValue(note.noteDuration)},
            {"arpeggioDirection", toJson(note.arpeggioDirection)},
            {"noteArticulation", toJson(note.noteArticulation)},
            {"noteVelocity", note.noteVelocity}};
}

OrderedJson toJson(const BassNote& note) {
    return {{"noteDuration", rawValue(note.noteDuration)},
            {"pitch", toJson(note.pitch)},
            {"noteArticulation", toJson(note.noteArticulation)},
            {"noteVelocity", note.noteVelocity}};
}

OrderedJson toJson(const BassPattern& pattern) {
    return {{"id", pattern.id.text()},
            {"name", pattern.name},
            {"description", pattern.description},
            {"bassNotes", arrayOf(pattern.bassNotes)},
            {"timeSignature", rawValue(pattern.timeSignature)}};
}

OrderedJson toJson(const BassPatternWithComplexity& pattern) {
    return {{"id", pattern.id.text()},
            {"bassPattern", toJson(pattern.bassPattern)},
            {"complexity", pattern.complexity}};
}

OrderedJson toJson(const BassPatterns& patterns) {
    return {{"bassPatterns", arrayOf(patterns.bassPatterns)}};
}

OrderedJson toJson(const DrumMIDINote& note) {
    return {{"noteType", static_cast<int>(note.noteType)}, {"noteVelocity", note.noteVelocity}};
}

OrderedJson toJson(const DrumNote& note) {
    return {{"drumMIDINote", arrayOf(note.drumMIDINote)},
            {"noteDuration", rawValue(note.noteDuration)}};
}

OrderedJson toJson(const DrumPattern& pattern) {
    return {{"id", pattern.id.text()},
            {"name", pattern.name},
            {"description", pattern.description},
            {"drumNotes", arrayOf(pattern.drumNotes)},
            {"timeSignature", rawValue(pattern.timeSignature)}};
}

OrderedJson toJson(const DrumPatternWithComplexity& pattern) {
    return {{"id", pattern.id.text()},
            {"drumPattern", toJson(pattern.drumPattern)},
            {"complexity", pattern.complexity}};
}

OrderedJson toJson(const DrumPatterns& patterns) {
    return {{"drumPatterns", arrayOf(patterns.drumPatterns)}};
}

OrderedJson toJson(const ArpeggioSequence& sequence) {
    OrderedJson steps = OrderedJson::array();
    for (const auto& step : sequence.sequence)
        steps.push_back(arrayOf(step));
    return {{"id", sequence.id.text()},
            {"name", sequence.name},
            {"description", sequence.description},
            {"sequence", std::move(steps)},
            {"timeSignature", rawValue(sequence.timeSignature)},
            {"associatedBassPatterns", arrayOf(sequence.associatedBassPatterns)},
            {"associatedDrumPatterns", arrayOf(sequence.associatedDrumPatterns)}};
}

OrderedJson toJson(const ArpeggioSequences& sequences) {
    return {{"sequences", arrayOf(sequences.sequences)}};
}

Result<ArpeggioDirection> arpeggioDirectionFromJson(const Json& json) {
    return fromOneKeyObject<ArpeggioDirection>(json, directionNames);
}
Result<NoteArticulation> noteArticulationFromJson(const Json& json) {
    return fromOneKeyObject<NoteArticulation>(json, articulationNames);
}
Result<BassPitch> bassPitchFromJson(const Json& json) {
    return fromOneKeyObject<BassPitch>(json, pitchNames);
}

Result<ArpeggioNote> arpeggioNoteFromJson(const Json& json) {
    ArpeggioNote note;
    FQ_READ(note.noteDuration, durationField(json));
    FQ_READ(note.arpeggioDirection, field(json, "arpeggioDirection").and_then([](const Json* v) {
        return arpeggioDirectionFromJson(*v);
    }));
    FQ_READ(note.noteArticulation, field(json, "noteArticulation").and_then([](const Json* v) {
        return noteArticulationFromJson(*v);
    }));
    FQ_READ(note.noteVelocity, byteField(json, "noteVelocity"));
    return note;
}

Result<BassNote> bassNoteFromJson(const Json& json) {
    BassNote note;
    FQ_READ(note.noteDuration, durationField(json));
    FQ_READ(note.pitch,
            field(json, "pitch").and_then([](const Json* v) { return bassPitchFromJson(*v); }));
    FQ_READ(note.noteArticulation, field(json, "noteArticulation").and_then([](const Json* v) {
        return noteArticulationFromJson(*v);
    }));
    FQ_READ(note.noteVelocity,
            integerField(json, "noteVelocity", INT_MIN, INT_MAX).map([](std::int64_t v) {
                return static_cast<int>(v);
            }));
    return note;
}

Result<BassPattern> bassPatternFromJson(const Json& json) {
    BassPattern pattern;
    FQ_READ(pattern.name, textField(json, "name"));
    FQ_READ(pattern.description, textField(json, "description"));
    FQ_READ(pattern.bassNotes, arrayField<BassNote>(json, "bassNotes", bassNoteFromJson));
    FQ_READ(pattern.timeSignature, timeSignatureField(json));
    return pattern;
}

Result<BassPatternWithComplexity> bassPatternWithComplexityFromJson(const Json& json) {
    BassPatternWithComplexity pattern;
    FQ_READ(pattern.bassPattern, field(json, "bassPattern").and_then([](const Json* v) {
        return bassPatternFromJson(*v);
    }));
    FQ_READ(pattern.complexity, byteField(json, "complexity"));
    return pattern;
}

Result<BassPatterns> bassPatternsFromJson(const Json& json) {
    BassPatterns patterns;
    FQ_READ(patterns.bassPatterns,
            arrayField<BassPattern>(json, "bassPatterns", bassPatternFromJson));
    return patterns;
}

Result<DrumMIDINote> drumMIDINoteFromJson(const Json& json) {
    DrumMIDINote note;
    FQ_READ(note.noteType,
            integerField(json, "noteType", 0, 255)
                .and_then([](std::int64_t raw) -> Result<DrumNoteType> {
                    if (const auto type = drumNoteTypeFromRawValue(static_cast<int>(raw)))
                        return *type;
                    return tl::unexpected(Error{
                        fmt::format("Cannot initialize DrumNoteType from invalid value {}", raw)});
                }));
    FQ_READ(note.noteVelocity, byteField(json, "noteVelocity"));
    return note;
}

Result<DrumNote> drumNoteFromJson(const Json& json) {
    DrumNote note;
    FQ_READ(note.drumMIDINote,
            arrayField<DrumMIDINote>(json, "drumMIDINote", drumMIDINoteFromJson));
    FQ_READ(note.noteDuration, durationField(json));
    return note;
}

Result<DrumPattern> drumPatternFromJson(const Json& json) {
    DrumPattern pattern;
    FQ_READ(pattern.name, textField(json, "name"));
    FQ_READ(pattern.description, textField(json, "description"));
    FQ_READ(pattern.drumNotes, arrayField<DrumNote>(json, "drumNotes", drumNoteFromJson));
    FQ_READ(pattern.timeSignature, timeSignatureField(json));
    return pattern;
}

Result<DrumPatternWithComplexity> drumPatternWithComplexityFromJson(const Json& json) {
    DrumPatternWithComplexity pattern;
    FQ_READ(pattern.drumPattern, field(json, "drumPattern").and_then([](const Json* v) {
        return drumPatternFromJson(*v);
    }));
    FQ_READ(pattern.complexity, byteField(json, "complexity"));
    return pattern;
}

Result<DrumPatterns> drumPatternsFromJson(const Json& json) {
    DrumPatterns patterns;
    FQ_READ(patterns.drumPatterns,
            arrayField<DrumPattern>(json, "drumPatterns", drumPatternFromJson));
    return patterns;
}

Result<ArpeggioSequence> arpeggioSequenceFromJson(const Json& json) {
    ArpeggioSequence sequence;
    FQ_READ(sequence.name, textField(json, "name"));
    FQ_READ(sequence.description, textField(json, "description"));
    FQ_READ(sequence.sequence,
            arrayField<std::vector<ArpeggioNote>>(
                json, "sequence", [](const Json& step) -> Result<std::vector<ArpeggioNote>> {
                    if (!step.is_array())
                        return tl::unexpected(mismatch("sequence", "an array of steps"));
                    std::vector<ArpeggioNote> notes;
                    for (const auto& item : step) {
                        auto note = arpeggioNoteFromJson(item);
                        if (!note) return tl::unexpected(note.error());
                        notes.push_back(*note);
                    }
                    return notes;
                }));
    FQ_READ(sequence.timeSignature, timeSignatureField(json));
    FQ_READ(sequence.associatedBassPatterns,
            arrayField<BassPatternWithComplexity>(json, "associatedBassPatterns",
                                                  bassPatternWithComplexityFromJson));
    FQ_READ(sequence.associatedDrumPatterns,
            arrayField<DrumPatternWithComplexity>(json, "associatedDrumPatterns",
                                                  drumPatternWithComplexityFromJson));
    return sequence;
}

Result<ArpeggioSequences> arpeggioSequencesFromJson(const Json& json) {
    ArpeggioSequences sequences;
    FQ_READ(sequences.sequences,
            arrayField<ArpeggioSequence>(json, "sequences", arpeggioSequenceFromJson));
    return sequences;
}

#undef FQ_READ

} // namespace fq::core
