#include "fq/core/GuitarTuning.h"

#include "fq/core/Spelling.h"

#include <gtest/gtest.h>

#include <set>

namespace fq::core {
namespace {

std::vector<std::string_view> identifiersOf(const std::vector<TuningGroup>& groups) {
    std::vector<std::string_view> names;
    for (const auto& group : groups)
        for (const auto tuning : group.tunings)
            names.push_back(identifier(tuning));
    return names;
}

TEST(GuitarTuningTest, CatalogueOrderRawValuesAndIdentifiers) {
    ASSERT_EQ(allGuitarTunings().size(), 31u);
    static_assert(sizeof(GuitarTuning) == 1);
    for (std::size_t i = 0; i < allGuitarTunings().size(); ++i) {
        const auto tuning = allGuitarTunings()[i];
        EXPECT_EQ(rawValue(tuning), i);
        EXPECT_EQ(guitarTuningFromRawValue(static_cast<int>(i)), tuning);
        EXPECT_EQ(guitarTuningFromIdentifier(identifier(tuning)), tuning);
    }
    EXPECT_EQ(identifier(allGuitarTunings().back()), "openBb");
    EXPECT_FALSE(guitarTuningFromRawValue(31));
    EXPECT_FALSE(guitarTuningFromRawValue(-1));
    EXPECT_FALSE(guitarTuningFromIdentifier("DropD"));
}

TEST(GuitarTuningTest, EveryStringsTitleNamesItsNoteNumber) {
    // an independent check of the table: the title's note and octave give the MIDI number
    for (const auto tuning : allGuitarTunings()) {
        const auto notes = openNotes(tuning);
        for (std::size_t s = 0; s < 6; ++s) {
            const auto& button = tuningData(tuning).referenceToneButtonData[s];
            const int octave = button.buttonTitle.back() - '0';
            const auto pitch = semitoneIndex(notes[s]);
            ASSERT_TRUE(pitch) << button.buttonTitle;
            // B♯ and C♭ would cross an octave; the catalogue has neither
            EXPECT_EQ(button.noteNumber, (octave + 1) * 12 + *pitch)
                << identifier(tuning) << " " << button.buttonTitle;
        }
    }
    EXPECT_EQ(openNotes(GuitarTuning::openGMinor)[4], "B♭");
    EXPECT_EQ(openNotes(GuitarTuning::dropCs)[0], "C♯");
    const auto& nashville = tuningData(GuitarTuning::nashville).referenceToneButtonData;
    EXPECT_GT(nashville[3].noteNumber, nashville[4].noteNumber)
        << "Nashville's strings are not rising";
}

TEST(GuitarTuningTest, GroupsHoldEveryTuningOnceInOrder) {
    const auto& groups = tuningGroups();
    ASSERT_EQ(groups.size(), 5u);
    EXPECT_EQ(groups[2].header, "Other Open Tunings");
    std::multiset<GuitarTuning> seen;
    for (const auto& group : groups)
        seen.insert(group.tunings.begin(), group.tunings.end());
    EXPECT_EQ(seen.size(), 31u);
    for (const auto tuning : allGuitarTunings())
        EXPECT_EQ(seen.count(tuning), 1u) << identifier(tuning);
    EXPECT_EQ(searchTunings(""), groups);
}

TEST(GuitarTuningTest, SearchIgnoresBlanksAndCaseAndFallsBackToDescriptions) {
    using Names = std::vector<std::string_view>;
    EXPECT_EQ(identifiersOf(searchTunings("dropc")), (Names{"dropC", "dropCs"}));
    EXPECT_EQ(identifiersOf(searchTunings("celtic")), (Names{"dadgad", "orkney"}));
    EXPECT_EQ(searchTunings("open  g"), searchTunings("openg"));
    EXPECT_EQ(searchTunings("OPEN G"), searchTunings("openg"));
    EXPECT_EQ(identifiersOf(searchTunings("c♯")), (Names{"dropCs"}));
    EXPECT_TRUE(searchTunings("banjo").empty());

    const auto slack = searchTunings("slack key");
    ASSERT_EQ(slack.size(), 2u) << "groups without a match lose their header";
    EXPECT_EQ(slack[0].header, "Other Open Tunings");
    EXPECT_EQ(slack[1].header, "Other Tunings");
}

} // namespace
} // namespace fq::core
