#include "fq/core/ChordTexts.h"

#include "fq/core/ChordDataManager.h"

#include <gtest/gtest.h>

namespace fq::core {
namespace {

TEST(ChordTextsTest, EveryTypeHasMoodGenresAndADescription) {
    std::size_t guitar = 0;
    for (const auto& data : ChordDataManager::shared().catalogue()) {
        EXPECT_FALSE(chordMood(data.title).empty()) << data.title;
        EXPECT_FALSE(chordGenres(data.title).empty()) << data.title;
        EXPECT_FALSE(descriptionTemplate(data.title).empty()) << data.title;
        guitar += !guitarDescriptionTemplate(data.title).empty();
    }
    EXPECT_EQ(guitar, 27u);
    EXPECT_EQ(chordMood("major"), "happy, bright, stable, uplifting");
    EXPECT_EQ(chordGenres("minor major 7th add 13"), "Jazz, Ambient, Experimental, Cinematic");
    EXPECT_TRUE(chordMood("unknown").empty());
    EXPECT_TRUE(guitarDescriptionTemplate("major").empty());
}

TEST(ChordTextsTest, FilledTemplatesNameOnlyNotesTheChordHas) {
    EXPECT_EQ(
        chordDescription(Note::G, "5"),
        "The G power chord (5th), consisting of the root (G) and perfect fifth (D), provides a "
        "bold, open sound without major or minor coloration. Its simplicity and neutrality make "
        "it a staple in rock, punk, and metal for driving rhythms and raw power.");
    for (const auto& data : ChordDataManager::shared().catalogue()) {
        for (const auto& filled :
             {chordDescription(Note::Ef, data.title), guitarDescription(Note::Ef, data.title)}) {
            EXPECT_EQ(filled.find("(--"), std::string::npos) << data.title;
            EXPECT_EQ(filled.find("()"), std::string::npos)
                << data.title << ": a note past the end";
        }
    }
}

TEST(ChordTextsTest, PlaceholdersPastTheEndBecomeEmpty) {
    const std::vector<std::string> triad{"C", "E", "G"};
    EXPECT_EQ(fillDescriptionTemplate("(--1--)(--3--)(--4--)(--6--)(--7--) (--1--)", triad),
              "CG(--7--) C");
    EXPECT_EQ(fillDescriptionTemplate("", triad), "");
}

} // namespace
} // namespace fq::core
