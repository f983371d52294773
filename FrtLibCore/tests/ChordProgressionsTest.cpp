// Progressions in Roman numerals: the catalogue, numerals in a key, filled descriptions.
#include "fq/core/ChordProgressions.h"

#include "fq/core/Diagnostics.h"

#include <fq/core/CapturedDiagnostics.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <set>

namespace fq::core {
namespace {

namespace P = ChordProgressions;
using N = Note;

std::vector<Chord> triads(std::initializer_list<std::pair<Note, const char*>> chords) {
    std::vector<Chord> result;
    for (const auto& [root, type] : chords)
        result.push_back(Chord{root, type, 0});
    return result;
}

TEST(ChordProgressionsTest, CatalogueAndDisplayOrders) {
    EXPECT_EQ(P::catalogue().size(), 32u);
    const auto major = P::all("major");
    const auto minor = P::all("minor");
    ASSERT_EQ(major.size(), 18u);
    ASSERT_EQ(minor.size(), 14u);
    EXPECT_EQ(major.front().progression, "I-V-vi-IV");
    EXPECT_EQ(minor.front().progression, "i-VI-III-VII");
    EXPECT_EQ(minor[11].progression, "i-VII-VI-V");
    std::set<std::string> listed;
    for (const auto& list : {major, minor})
        for (const auto& record : list)
            listed.insert(record.progression);
    EXPECT_EQ(listed.size(), 32u) << "each progression is listed once";
    for (const auto& [key, record] : P::catalogue())
        EXPECT_TRUE(listed.contains(key)) << key;
    for (const char* mode : {"Major", "MINOR", " minor", "", "dorian"})
        EXPECT_TRUE(P::all(mode).empty()) << mode;
}

TEST(ChordProgressionsTest, StylesReadBackByTheirDisplayNames) {
    EXPECT_EQ(
        P::progression("I-IV-V-IV")->styles,
        (std::vector<MusicStyles>{MusicStyles::rock, MusicStyles::pop, MusicStyles::traditional}));
    EXPECT_EQ(P::progression("I-V-vi-iv"), nullptr);
    ASSERT_EQ(allMusicStyles().size(), 25u);
    for (const auto style : allMusicStyles())
        EXPECT_EQ(musicStylesFromRawValue(rawValue(style)), style);
    EXPECT_EQ(rawValue(MusicStyles::hiphop), "Hip Hop");
    EXPECT_FALSE(musicStylesFromRawValue("hiphop"));
}

TEST(ChordProgressionsTest, RomanValues) {
    const std::vector<std::pair<const char*, int>> rows{
        {"I", 1},   {"IV", 4},   {"VII", 7},  {"viii", 8},       {"IX", 9},
        {"XL", 40}, {"xiv", 14}, {"IIII", 4}, {"MCMXCIV", 1994}, {"", 0},
    };
    for (const auto& [numeral, value] : rows)
        EXPECT_EQ(P::romanValue(numeral), value) << numeral;

    const CapturedDiagnostics capture;
    EXPECT_EQ(P::romanValue("IQ"), 0);
    EXPECT_EQ(P::romanValue("♭V"), 0);
    EXPECT_EQ(capture.text(),
              "Invalid Roman numeral character: Q\nInvalid Roman numeral character: ♭\n");
}

TEST(ChordProgressionsTest, QualityAndScaleOffsets) {
    for (const char* major : {"I", "IV", "VII", "", "MCM"})
        EXPECT_TRUE(P::isMajorNumeral(major)) << major;
    for (const char* minor : {"i", "vi", "Iv", "I7", "♭VII", "V "})
        EXPECT_FALSE(P::isMajorNumeral(minor)) << minor;

    struct Row {
        const char* token;
        const char* mode;
        int offset;
    };
    const std::vector<Row> rows{
        {"I", "major", 0},     {"iii", "major", 4},   {"iii", "minor", 3}, {"♭VII", "major", 10},
        {"VII", "minor", 10},  {"bVII", "major", 10}, {"♯IV", "major", 6}, {"#iv", "minor", 6},
        {"bbIII", "major", 2}, {" vi\n", "major", 9}, {"vi", "Minor", 8},  {"VI", "MINOR", 8},
        {"vi", "dorian", 9},   {"VIII", "minor", 12}, {"V7", "major", 0},  {"♭V7", "major", 0},
        {"IX", "major", 0},    {"", "major", 0},
    };
    for (const auto& [token, mode, offset] : rows)
        EXPECT_EQ(P::scaleOffset(token, mode), offset) << token << " in " << mode;
}

TEST(ChordProgressionsTest, ChordsInAKey) {
    struct Row {
        Note key;
        const char* mode;
        const char* progression;
        std::vector<Chord> chords;
    };
    const std::vector<Row> rows{
        {N::C, "major", "I-V-vi-IV",
         triads({{N::C, "major"}, {N::G, "major"}, {N::A, "minor"}, {N::F, "major"}})},
        {N::A, "minor", "i-VII-VI-V",
         triads({{N::A, "minor"}, {N::G, "major"}, {N::F, "major"}, {N::E, "major"}})},
        {N::C, "major", "I-♭VII-IV-I",
         triads({{N::C, "major"}, {N::Bf, "major"}, {N::F, "major"}, {N::C, "major"}})},
        {N::Af, "major", "♭VII", triads({{N::Gf, "major"}})},
        {N::Ef, "major", "ii-V-I", triads({{N::F, "minor"}, {N::Bf, "major"}, {N::Ef, "major"}})},
        // the letter follows the degree, so F♯ major's seventh is E♯, not F
        {N::Fs, "major", "I-vii", triads({{N::Fs, "major"}, {N::Es, "minor"}})},
        {N::E, "minor", "i-iv-V-i",
         triads({{N::E, "minor"}, {N::A, "minor"}, {N::B, "major"}, {N::E, "minor"}})},
        {N::D, "major", "I-VI-ii-V",
         triads({{N::D, "major"}, {N::B, "major"}, {N::E, "minor"}, {N::A, "major"}})},
        // a suffix spoils the whole token, and a token without a numeral adds nothing
        {N::C, "major", "I-V7-IV", triads({{N::C, "major"}, {N::F, "major"}})},
        {N::C, "major", "I-Q--IV", triads({{N::C, "major"}, {N::F, "major"}})},
        // with the numeral hidden by a suffix the offset is 0, and F's pitch can still be
        // spelled on the letter G
        {N::F, "major", "ii7-V-I", triads({{N::Gdf, "minor"}, {N::C, "major"}, {N::F, "major"}})},
        {N::C, "major", "", {}},
    };
    for (const auto& [key, mode, progression, chords] : rows)
        EXPECT_EQ(P::chords(key, mode, progression), chords)
            << progression << " in " << rawValue(key);
    EXPECT_EQ(P::chordNames(N::G, "major", "I-V-vi-IV"),
              (std::vector<std::string>{"G major", "D major", "E minor", "C major"}));
    EXPECT_EQ(P::chordNames(N::Bf, "minor", "i-VI-III-VII"),
              (std::vector<std::string>{"B♭ minor", "G♭ major", "D♭ major", "A♭ major"}));
}

TEST(ChordProgressionsTest, DiatonicChords) {
    EXPECT_EQ(P::diatonicChords(N::C, "major"), triads({{N::C, "major"},
                                                        {N::F, "major"},
                                                        {N::G, "major"},
                                                        {N::A, "minor"},
                                                        {N::D, "minor"},
                                                        {N::E, "minor"}}));
    EXPECT_EQ(
        P::diatonicChords(N::A, "minor"),
        triads(
            {{N::A, "minor"}, {N::C, "major"}, {N::D, "minor"}, {N::E, "major"}, {N::F, "major"}}));
    // "Minor" takes the major numerals but the minor scale: vi and iii fall a semitone
    EXPECT_EQ(P::diatonicChords(N::C, "Minor"), triads({{N::C, "major"},
                                                        {N::F, "major"},
                                                        {N::G, "major"},
                                                        {N::Af, "minor"},
                                                        {N::D, "minor"},
                                                        {N::Ef, "minor"}}));
}

TEST(ChordProgressionsTest, FilledDescriptions) {
    EXPECT_EQ(
        P::filledDescription("I-V-vi-IV", N::C, "major"),
        "Known as the “four-chord progression,” this is incredibly popular in modern pop and rock "
        "music. It starts with the tonic (C major), moves to the dominant (G major), then to the "
        "relative minor (A minor), and resolves to the subdominant (F major).");
    EXPECT_EQ(
        P::filledDescription("i-VII-VI-V", N::A, "minor"),
        "The famous Andalusian cadence. The bass descends step-by-step creating dramatic tension "
        "before resolving.");
    const auto mixolydian = P::filledDescription("I-♭VII-IV-I", N::D, "major");
    EXPECT_NE(mixolydian.find("(C major)"), std::string::npos) << mixolydian;
    EXPECT_NE(mixolydian.find("(D major)"), std::string::npos) << mixolydian;
    EXPECT_EQ(P::filledDescription("I-V-vi-iv", N::C, "major"), "");
}

TEST(ChordProgressionsTest, EveryPlaceholderNamesANumeralOfItsEntry) {
    std::size_t withPlaceholders = 0;
    for (const auto& [key, record] : P::catalogue()) {
        std::set<std::string> numerals;
        for (std::size_t start = 0;;) {
            const auto end = key.find('-', start);
            numerals.insert(key.substr(start, end - start));
            if (end == std::string::npos) break;
            start = end + 1;
        }
        const auto& text = record.description;
        EXPECT_FALSE(text.empty()) << key;
        bool any = false;
        for (auto open = text.find("(--"); open != std::string::npos;
             open = text.find("(--", open + 1)) {
            const auto close = text.find("--)", open + 3);
            ASSERT_NE(close, std::string::npos) << key;
            const auto numeral = text.substr(open + 3, close - open - 3);
            EXPECT_TRUE(numerals.contains(numeral)) << key << ": " << numeral;
            any = true;
        }
        withPlaceholders += any;
        const bool minor = key.starts_with("i");
        const auto filled =
            P::filledDescription(key, minor ? N::A : N::C, minor ? "minor" : "major");
        EXPECT_EQ(filled.find("--"), std::string::npos) << key << ": " << filled;
    }
    EXPECT_EQ(withPlaceholders, 31u) << "only the Andalusian cadence names no chord";
}

TEST(ChordProgressionsTest, JsonForm) {
    const auto* record = P::progression("I-IV-V-IV");
    ASSERT_NE(record, nullptr);
    const auto json = toJson(*record);
    EXPECT_EQ(json["progression"], "I-IV-V-IV");
    EXPECT_EQ(json["styles"].dump(), R"(["Rock","Pop","Traditional"])");
    EXPECT_EQ(chordProgressionFromJson(nlohmann::json::parse(json.dump())), *record);
    const auto unknownStyle = chordProgressionFromJson(
        nlohmann::json::parse(R"({"progression":"I","description":"","styles":["Polka"]})"));
    ASSERT_FALSE(unknownStyle);
    EXPECT_EQ(unknownStyle.error().message, "Unknown music style: \"Polka\"");
    EXPECT_FALSE(
        chordProgressionFromJson(nlohmann::json::parse(R"({"progression":"I","styles":[]})")));
}

} // namespace
} // namespace fq::core
