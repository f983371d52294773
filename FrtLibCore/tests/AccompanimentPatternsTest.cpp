// The pattern catalogue: every bar full, metres matched, JSON forms that read back.
#include "fq/core/AccompanimentPatterns.h"

#include <gtest/gtest.h>

#include <set>

namespace fq::core {
namespace {

template <typename T>
std::vector<std::string> namesOf(const std::vector<T>& patterns) {
    std::vector<std::string> names;
    for (const auto& pattern : patterns)
        names.push_back(pattern.name);
    return names;
}

double barLength(TimeSignature metre) {
    return metre == TimeSignature::ts_34 ? 0.75 : 1.0;
}

/// The JSON form with every "id" removed, to compare what is not fresh on each build.
nlohmann::ordered_json withoutIds(nlohmann::ordered_json json) {
    if (json.is_object()) {
        json.erase("id");
        for (auto& [key, value] : json.items())
            value = withoutIds(value);
    } else if (json.is_array()) {
        for (auto& value : json)
            value = withoutIds(value);
    }
    return json;
}

TEST(AccompanimentPatternsTest, CatalogueOrder) {
    EXPECT_EQ(namesOf(bassPatterns()),
              (std::vector<std::string>{"Minimal", "Minimal+", "Sleek", "Sleek+", "Running",
                                        "Short Picks", "Zune", "Minimized", "One"}));
    EXPECT_EQ(namesOf(drumPatterns()),
              (std::vector<std::string>{"Rim", "Hats Only", "Fewer Hats", "Hats and Snare", "Snare",
                                        "Ether Rim", "Ether Snare", "Zen Rim", "Zen Snare",
                                        "Forewing", "Three Way"}));
    EXPECT_EQ(
        namesOf(arpeggioSequences()),
        (std::vector<std::string>{"Modest", "Ethereal", "Velvet", "ThreeO", "Stravolt", "Fretzen",
                                  "Swingy", "Echolet", "Falling", "Drezzle", "Baskin", "Glint"}));
}

TEST(AccompanimentPatternsTest, EveryEntryFillsExactlyOneBar) {
    for (const auto& pattern : bassPatterns()) {
        double total = 0;
        for (const auto& note : pattern.bassNotes) {
            total += rawValue(note.noteDuration);
            EXPECT_EQ(note.noteArticulation, NoteArticulation::pick);
        }
        EXPECT_DOUBLE_EQ(total, barLength(pattern.timeSignature)) << pattern.name;
        EXPECT_TRUE(pattern.description.empty());
    }
    for (const auto& pattern : drumPatterns()) {
        double total = 0;
        for (const auto& step : pattern.drumNotes) {
            total += rawValue(step.noteDuration);
            EXPECT_FALSE(step.drumMIDINote.empty()) << pattern.name;
        }
        EXPECT_DOUBLE_EQ(total, barLength(pattern.timeSignature)) << pattern.name;
        EXPECT_TRUE(pattern.description.empty());
    }
    for (const auto& sequence : arpeggioSequences()) {
        double total = 0;
        for (const auto& step : sequence.sequence) {
            ASSERT_FALSE(step.empty()) << sequence.name;
            total += rawValue(step.front().noteDuration); // a chord of notes counts by its first
            for (const auto& note : step)
                EXPECT_EQ(note.noteArticulation, NoteArticulation::pick);
        }
        EXPECT_DOUBLE_EQ(total, barLength(sequence.timeSignature)) << sequence.name;
        EXPECT_TRUE(sequence.description.empty());
    }
}

TEST(AccompanimentPatternsTest, ThreeFourEntriesGoOnlyWithEachOther) {
    std::set<std::string> threeFour;
    for (const auto& p : bassPatterns())
        if (p.timeSignature == TimeSignature::ts_34) threeFour.insert(p.name);
    for (const auto& p : drumPatterns())
        if (p.timeSignature == TimeSignature::ts_34) threeFour.insert(p.name);
    for (const auto& s : arpeggioSequences()) {
        if (s.timeSignature == TimeSignature::ts_34) threeFour.insert(s.name);
        for (const auto& bass : s.associatedBassPatterns) {
            EXPECT_EQ(bass.bassPattern.timeSignature, s.timeSignature)
                << s.name << " with " << bass.bassPattern.name;
            EXPECT_EQ(bass.complexity, 1);
        }
        for (const auto& drums : s.associatedDrumPatterns) {
            EXPECT_EQ(drums.drumPattern.timeSignature, s.timeSignature)
                << s.name << " with " << drums.drumPattern.name;
            EXPECT_EQ(drums.complexity, 1);
        }
    }
    EXPECT_EQ(threeFour, (std::set<std::string>{"ThreeO", "One", "Three Way"}));
    const auto threeO = arpeggioSequences()[3];
    ASSERT_EQ(threeO.associatedBassPatterns.size(), 1u);
    EXPECT_EQ(threeO.associatedBassPatterns[0].bassPattern.name, "One");
    ASSERT_EQ(threeO.associatedDrumPatterns.size(), 1u);
    EXPECT_EQ(threeO.associatedDrumPatterns[0].drumPattern.name, "Three Way");
}

TEST(AccompanimentPatternsTest, OnlyTwoSequencesOpenWithAChordAndLookupIsExact) {
    const auto sequences = arpeggioSequences();
    for (std::size_t i = 0; i < sequences.size(); ++i)
        EXPECT_EQ(sequences[i].sequence.front().size(), i == 7 || i == 11 ? 2u : 1u)
            << sequences[i].name;
    EXPECT_EQ(sequences[8].sequence[4].front().arpeggioDirection, ArpeggioDirection::iii);
    EXPECT_TRUE(bassPattern("Sleek+"));
    EXPECT_FALSE(bassPattern("sleek+"));
    EXPECT_FALSE(drumPattern("Rim "));
    // the one rest among the drums is a semiquaver's silence, written as note type 0
    std::size_t rests = 0;
    for (const auto& pattern : drumPatterns())
        for (const auto& step : pattern.drumNotes)
            for (const auto& hit : step.drumMIDINote)
                if (hit.noteType == DrumNoteType::rest) {
                    ++rests;
                    EXPECT_EQ(step.noteDuration, NoteDuration::semiquaver) << pattern.name;
                }
    EXPECT_EQ(rests, 1u);
    EXPECT_EQ(static_cast<int>(DrumNoteType::rest), 0);
}

TEST(AccompanimentPatternsTest, EveryBuildMakesFreshIdentifiers) {
    std::set<Uuid> ids;
    std::size_t count = 0;
    for (const auto& s : arpeggioSequences()) {
        ids.insert(s.id);
        ++count;
        for (const auto& b : s.associatedBassPatterns) {
            ids.insert(b.id);
            ids.insert(b.bassPattern.id);
            count += 2;
        }
    }
    for (const auto& p : bassPatterns()) {
        ids.insert(p.id);
        ++count;
    }
    EXPECT_EQ(ids.size(), count);
    EXPECT_NE(bassPatterns()[0].id, bassPatterns()[0].id);
    const auto text = Uuid::random().text();
    ASSERT_EQ(text.size(), 36u);
    EXPECT_EQ(text[14], '4') << "a random identifier is version 4";
    EXPECT_EQ(Uuid::fromText(text)->text(), text);
    EXPECT_FALSE(Uuid::fromText("not-a-uuid"));
}

TEST(AccompanimentPatternsJsonTest, OneKeyObjectsAndRecordForms) {
    EXPECT_EQ(toJson(ArpeggioDirection::iii).dump(), R"({"iii":{}})");
    EXPECT_EQ(bassPitchFromJson(nlohmann::json::parse(R"({"octave":{}})")), BassPitch::octave);
    EXPECT_EQ(noteArticulationFromJson(nlohmann::json::parse(R"({"mute":{}})")),
              NoteArticulation::mute);
    // keys that name no case are passed over
    EXPECT_EQ(arpeggioDirectionFromJson(nlohmann::json::parse(R"({"t":{},"z":{}})")),
              ArpeggioDirection::t);
    for (const char* bad : {R"({"t":{},"d":{}})", "{}", R"({"z":{}})", R"({"root":{}})"}) {
        const auto decoded = arpeggioDirectionFromJson(nlohmann::json::parse(bad));
        ASSERT_FALSE(decoded) << bad;
        EXPECT_EQ(decoded.error().message, "Invalid number of keys found, expected one.");
    }
    EXPECT_FALSE(bassPitchFromJson(nlohmann::json::parse(R"("root")")));
    EXPECT_EQ(
        toJson(
            ArpeggioNote{NoteDuration::quaver, ArpeggioDirection::t, NoteArticulation::pick, 127})
            .dump(),
        R"({"noteDuration":0.125,"arpeggioDirection":{"t":{}},"noteArticulation":{"pick":{}},"noteVelocity":127})");
    EXPECT_EQ(toJson(DrumMIDINote{DrumNoteType::closedHH, 80}).dump(),
              R"({"noteType":54,"noteVelocity":80})");
    const auto pattern = *bassPattern("Minimal");
    EXPECT_EQ(toJson(pattern)["id"], pattern.id.text());
}

TEST(AccompanimentPatternsJsonTest, DecodingKeepsFieldsButNotIdentifiers) {
    const BassNote note{NoteDuration::semiquaver, BassPitch::third, NoteArticulation::mute, -3};
    EXPECT_EQ(bassNoteFromJson(nlohmann::json::parse(toJson(note).dump())), note);

    const auto original = *bassPattern("Short Picks");
    const auto decoded = bassPatternFromJson(nlohmann::json::parse(toJson(original).dump()));
    ASSERT_TRUE(decoded) << decoded.error().message;
    EXPECT_NE(decoded->id, original.id);
    auto sameId = *decoded;
    sameId.id = original.id;
    EXPECT_EQ(sameId, original);

    const ArpeggioSequences all{arpeggioSequences()};
    const auto encoded = toJson(all);
    const auto again = arpeggioSequencesFromJson(nlohmann::json::parse(encoded.dump()));
    ASSERT_TRUE(again) << again.error().message;
    EXPECT_EQ(withoutIds(toJson(*again)), withoutIds(encoded));
    EXPECT_NE(again->sequences[0].id, all.sequences[0].id);
    EXPECT_NE(again->sequences[0].associatedDrumPatterns[0].id,
              all.sequences[0].associatedDrumPatterns[0].id);

    const DrumPatterns drums{drumPatterns()};
    EXPECT_EQ(
        withoutIds(toJson(*drumPatternsFromJson(nlohmann::json::parse(toJson(drums).dump())))),
        withoutIds(toJson(drums)));
}

TEST(AccompanimentPatternsJsonTest, BadDocumentsAreRefused) {
    const auto minimal = nlohmann::json::parse(toJson(*bassPattern("Minimal")).dump());
    const auto rim = nlohmann::json::parse(toJson(*drumPattern("Rim")).dump());
    struct Row {
        const char* what;
        nlohmann::json document;
        bool drums;
    };
    std::vector<Row> rows;
    auto edited = [&](const nlohmann::json& base, const char* pointer, nlohmann::json value,
                      const char* what, bool drums) {
        auto copy = base;
        if (value.is_discarded())
            copy.erase(copy.find(nlohmann::json::json_pointer(pointer).back()));
        else
            copy[nlohmann::json::json_pointer(pointer)] = std::move(value);
        rows.push_back({what, std::move(copy), drums});
    };
    const auto remove = nlohmann::json(nlohmann::json::value_t::discarded);
    edited(minimal, "/name", remove, "no name", false);
    edited(minimal, "/timeSignature", "5/4", "unknown metre", false);
    edited(minimal, "/bassNotes/0/noteDuration", 0.3, "unknown duration", false);
    edited(minimal, "/bassNotes/0/pitch", nlohmann::json::object(), "no pitch case", false);
    edited(minimal, "/bassNotes/0/noteVelocity", "loud", "text velocity", false);
    edited(rim, "/drumNotes/0/drumMIDINote/0/noteType", 53, "unknown drum", true);
    edited(rim, "/drumNotes/0/drumMIDINote/0/noteVelocity", 300, "velocity past a byte", true);
    edited(rim, "/drumNotes/0/drumMIDINote/0/noteVelocity", -1, "negative velocity", true);
    for (const auto& [what, document, drums] : rows) {
        const bool decoded = drums ? drumPatternFromJson(document).has_value()
                                   : bassPatternFromJson(document).has_value();
        EXPECT_FALSE(decoded) << what;
    }
    auto noId = minimal;
    noId.erase("id");
    EXPECT_TRUE(bassPatternFromJson(noId)) << "identifiers are never read";

    const auto withComplexity = nlohmann::json::parse(
        toJson(BassPatternWithComplexity{Uuid::random(), *bassPattern("One"), 2}).dump());
    EXPECT_EQ(bassPatternWithComplexityFromJson(withComplexity)->complexity, 2);
    auto noComplexity = withComplexity;
    noComplexity.erase("complexity");
    EXPECT_EQ(bassPatternWithComplexityFromJson(noComplexity).error().message,
              "Missing value for key: complexity");
}

} // namespace
} // namespace fq::core
