#include "fq/audio/ChordSound.h"

#include <gtest/gtest.h>

namespace fq::audio {
namespace {

TEST(ChordSoundTest, ShapesSoundOpenStringsPlusFretsWithoutTheMutedOnes) {
    struct Case {
        core::GuitarTuning tuning;
        std::vector<int> frets;
        std::vector<int> notes;
    };
    const std::vector<Case> cases{
        // C major: C3 E3 G3 C4 E4
        {core::GuitarTuning::standard, {-1, 3, 2, 0, 1, 0}, {48, 52, 55, 60, 64}},
        // E major, all six: E2 B2 E3 G♯3 B3 E4
        {core::GuitarTuning::standard, {0, 2, 2, 1, 0, 0}, {40, 47, 52, 56, 59, 64}},
        // D major in drop D: the low string sounds D2
        {core::GuitarTuning::dropD, {0, 0, 0, 2, 3, 2}, {38, 45, 50, 57, 62, 66}},
        // everything muted
        {core::GuitarTuning::standard, {-1, -1, -1, -1, -1, -1}, {}},
        // open strings of DADGAD
        {core::GuitarTuning::dadgad, {0, 0, 0, 0, 0, 0}, {38, 45, 50, 55, 57, 62}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(chordNotes(c.frets, openStringNotes(c.tuning)), c.notes)
            << core::identifier(c.tuning);
}

TEST(ChordSoundTest, NamedOpenNotesTakeACatalogueTuningsOctavesOrTheNearestToStandard) {
    struct Case {
        std::vector<std::string> names;
        std::array<int, 6> notes;
    };
    const std::vector<Case> cases{
        {{"E", "A", "D", "G", "B", "E"}, {40, 45, 50, 55, 59, 64}},
        {{"D", "A", "D", "G", "B", "E"}, {38, 45, 50, 55, 59, 64}},       // drop D
        {{"Eb", "Ab", "Db", "Gb", "Bb", "Eb"}, {39, 44, 49, 54, 58, 63}}, // half step down
        // no catalogue tuning: F2 one above E2, C♯4 two above the B string's B3
        {{"F", "A", "D", "G", "C#", "E"}, {41, 45, 50, 55, 61, 64}},
        // six semitones either way: the lower
        {{"A#", "A", "D", "G", "B", "E"}, {34, 45, 50, 55, 59, 64}},
    };
    for (const auto& c : cases) {
        const auto notes = openStringNotes(c.names);
        ASSERT_TRUE(notes) << c.names[0];
        EXPECT_EQ(*notes, c.notes) << c.names[0] << " " << c.names[4];
    }
    EXPECT_FALSE(openStringNotes(std::vector<std::string>{"E", "A", "D", "G", "H", "E"}));
    EXPECT_FALSE(openStringNotes(std::vector<std::string>{"E", "A", "D", "G", "B"}));
}

} // namespace
} // namespace fq::audio
