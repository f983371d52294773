#include "ChordInput.h"

#include <gtest/gtest.h>

namespace fq::cli {
namespace {

using core::Chord;
using core::Note;

TEST(ChordInputTest, SymbolsInEveryWayAPersonTypesThem) {
    const std::vector<std::pair<std::string_view, Chord>> cases{
        {"Cm7", {Note::C, "minor 7th", 0}},
        {"C#m7", {Note::Cs, "minor 7th", 0}},
        {"C♯ minor 7th", {Note::Cs, "minor 7th", 0}},
        {"C# minor 7th", {Note::Cs, "minor 7th", 0}},
        {"Bb7", {Note::Bf, "dominant 7th", 0}},
        {"Bb minor", {Note::Bf, "minor", 0}},
        {"C/E", {Note::C, "major", 1}},
        {"G", {Note::G, "major", 0}},
        {"A 5", {Note::A, "5", 0}},
        {"Ebmaj7/D", {Note::Ef, "major 7th", 3}},
    };
    for (const auto& [text, chord] : cases) {
        const auto found = chordFromSymbol(text);
        ASSERT_TRUE(found) << text << ": " << found.error().message;
        EXPECT_EQ(*found, chord) << text;
    }
    for (const auto& [text, message] : std::vector<std::pair<std::string_view, std::string_view>>{
             {"H7", "Unknown chord: H7"},
             {"", "Unknown chord: "},
             {"cm7", "Unknown chord: cm7"},
             {"C  minor", "Unknown chord: C  minor"}}) {
        const auto found = chordFromSymbol(text);
        ASSERT_FALSE(found) << text;
        EXPECT_EQ(found.error().message, message);
    }
}

TEST(ChordInputTest, PartsAreCheckedAgainstTheCatalogue) {
    EXPECT_EQ(chordFromParts("F#", "minor 7th", 1), (Chord{Note::Fs, "minor 7th", 1}));
    EXPECT_EQ(chordFromParts("B♯", "major", 2), (Chord{Note::Bs, "major", 2}));
    EXPECT_EQ(chordFromParts("Dbb", "major", 0), (Chord{Note::Ddf, "major", 0}));
    const std::vector<std::tuple<std::string_view, std::string_view, int, std::string_view>>
        failures{
            {"H", "major", 0, "Unknown note: H"},
            {"C#x", "major", 0, "Unknown note: C#x"},
            {"C", "Major", 0, "Unknown chord type: Major"},
            {"C", "major", 3, "Variant 3 is out of range for C major (0 to 2)"},
            {"C", "major", -1, "Variant -1 is out of range for C major (0 to 2)"},
        };
    for (const auto& [root, type, variant, message] : failures) {
        const auto chord = chordFromParts(root, type, variant);
        ASSERT_FALSE(chord) << root << " " << type;
        EXPECT_EQ(chord.error().message, message);
    }
    EXPECT_EQ(noteFromUserText("Eb"), Note::Ef);
    EXPECT_EQ(noteFromUserText("E♭"), Note::Ef);
    EXPECT_FALSE(noteFromUserText("eb"));
}

} // namespace
} // namespace fq::cli
