#include "fq/core/Spelling.h"

#include <gtest/gtest.h>

#include <optional>

namespace fq::core {
namespace {

TEST(SpellingTest, SemitoneIndexAcceptsEveryRowSpellingAndNothingElse) {
    const std::vector<std::pair<std::string_view, std::optional<int>>> cases{
        {"C", 0},
        {"B♯", 0},
        {"A♯𝄪", 0},
        {"D♭♭", 0},
        {"C♭", 11},
        {"D♭♭♭", 11},
        {"F♭", 4},
        {"E♯", 5},
        {"G♯𝄪", 10},
        {"Cb", std::nullopt},
        {"C#", std::nullopt},
        {"", std::nullopt},
        {"H", std::nullopt},
        {"c", std::nullopt},
    };
    for (const auto& [name, index] : cases)
        EXPECT_EQ(semitoneIndex(name), index) << name;
}

TEST(SpellingTest, RowsAreThreeRoundsOfTwelve) {
    for (const auto row : spellingRowOrder) {
        const auto& entries = spellingRow(row);
        for (std::size_t i = 12; i < entries.size(); ++i)
            EXPECT_EQ(entries[i], entries[i % 12]);
        for (std::size_t i = 0; i < 12; ++i)
            EXPECT_EQ(semitoneIndex(entries[i]), static_cast<int>(i)) << entries[i];
    }
}

TEST(SpellingTest, NoteNumbersAlwaysRise) {
    struct Case {
        Note root;
        std::vector<int> intervals;
        std::vector<int> expected;
    };
    const std::vector<Case> cases{
        {Note::C, {0, 4, 7}, {48, 52, 55}}, {Note::E, {0, 4, 7, 14}, {40, 44, 47, 54}},
        {Note::C, {4, 0, 7}, {52, 60, 67}}, {Note::C, {7, 4, 0}, {55, 64, 72}},
        {Note::A, {0, 0}, {45, 57}},        {Note::C, {}, {}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(noteNumbers(c.root, c.intervals), c.expected);
}

TEST(SpellingTest, MidiNumberToNoteAndOctave) {
    EXPECT_EQ(noteAndOctave(60), (NoteAndOctave{Note::C, 4}));
    EXPECT_EQ(noteAndOctave(12), (NoteAndOctave{Note::C, 0}));
    EXPECT_EQ(noteAndOctave(127), (NoteAndOctave{Note::G, 9}));
    EXPECT_EQ(noteAndOctave(40), (NoteAndOctave{Note::E, 2}));
    EXPECT_EQ(noteAndOctave(70), (NoteAndOctave{Note::As, 4}));
    EXPECT_FALSE(noteAndOctave(128));
    EXPECT_FALSE(noteAndOctave(-1));
}

TEST(SpellingTest, SpelledNoteUsesTheDegreesLetter) {
    struct Case {
        int semitones;
        int degree;
        std::string_view root;
        std::string_view expected;
    };
    const std::vector<Case> cases{
        {3, 3, "C", "E♭"},   {3, 3, "C♯", "E"},  {11, 7, "F", "E"},  {21, 13, "C", "A"},
        {6, 5, "C", "G♭"},   {8, 5, "C", "G♯"},  {9, 7, "C", "B♭♭"}, {4, 3, "G♯", "B♯"},
        {6, 5, "D♭", "A♭♭"}, {0, 1, "B♯", "B♯"}, {4, 3, "H", ""},    {4, 3, "C#", ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(spelledNote(c.semitones, c.degree, c.root), c.expected)
            << c.root << " +" << c.semitones << " degree " << c.degree;
}

TEST(SpellingTest, FormulaDegreesAndIntervalNames) {
    const std::vector<std::pair<std::string_view, int>> degrees{{"♭♭7", 7}, {"♯11", 11}, {"1", 1},
                                                                {"13", 13}, {"♭", 0},    {"", 0}};
    for (const auto& [token, degree] : degrees)
        EXPECT_EQ(formulaDegree(token), degree) << token;

    EXPECT_EQ(intervalName("♭♭7"), "Diminished Seventh");
    EXPECT_EQ(intervalName("♭3"), "Minor Third");
    EXPECT_EQ(intervalName("15"), "Double Octave");
    EXPECT_EQ(intervalName("b3"), "");
    EXPECT_EQ(intervalName("16"), "");
}

} // namespace
} // namespace fq::core
