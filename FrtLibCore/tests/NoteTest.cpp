#include "fq/core/Note.h"

#include "fq/core/Spelling.h"

#include <gtest/gtest.h>

#include <set>

namespace fq::core {
namespace {

TEST(NoteTest, RawValuesRoundTripInDeclaredOrder) {
    ASSERT_EQ(allNotes().size(), 45u);
    std::set<std::string_view> seen;
    for (std::size_t i = 0; i < allNotes().size(); ++i) {
        const Note note = allNotes()[i];
        EXPECT_EQ(static_cast<std::size_t>(note), i);
        EXPECT_EQ(noteFromRawValue(rawValue(note)), note);
        EXPECT_TRUE(seen.insert(rawValue(note)).second) << rawValue(note);
    }
    EXPECT_EQ(allNotes()[13], Note::Bs);
    EXPECT_EQ(allNotes()[14], Note::Cf);
    EXPECT_EQ(allNotes()[44], Note::Bdf);
    EXPECT_EQ(noteFromRawValue("B♯"), Note::Bs);
    EXPECT_EQ(rawValue(Note::Dfdf), "D♭♭♭");
    for (const char* unknown : {"H", "C#", "Eb", "", "c", "C♯♯"})
        EXPECT_FALSE(noteFromRawValue(unknown)) << unknown;
}

TEST(NoteTest, BaseNumbersAgreeWithSpellingAndStayInTheGuitarWindow) {
    for (const Note note : allNotes()) {
        const int base = baseNoteNumber(note);
        EXPECT_EQ(base % 12, semitoneIndex(rawValue(note))) << rawValue(note);
        if (note == Note::Dds || note == Note::Dsds) continue;
        EXPECT_GE(base, 40) << rawValue(note);
        EXPECT_LE(base, 51) << rawValue(note);
    }
    EXPECT_EQ(baseNoteNumber(Note::C), 48);
    EXPECT_EQ(baseNoteNumber(Note::Dds), 52);
    EXPECT_EQ(baseNoteNumber(Note::Dsds), 53);
}

TEST(NoteTest, EqualSpellingsShareThePitchAndOnlyTheFirstFourteenHaveThem) {
    for (std::size_t i = 0; i < allNotes().size(); ++i) {
        const Note note = allNotes()[i];
        const auto equal = equalSpellings(note);
        EXPECT_EQ(equal.empty(), i >= 14) << rawValue(note);
        for (const Note other : equal) {
            EXPECT_NE(other, note);
            EXPECT_EQ(semitoneIndex(rawValue(other)), semitoneIndex(rawValue(note)));
        }
    }
    const auto ofF = equalSpellings(Note::F);
    EXPECT_EQ(std::vector<Note>(ofF.begin(), ofF.end()),
              (std::vector<Note>{Note::Es, Note::Dsds, Note::Gdf}));
}

TEST(NoteTest, RawValuesOutsideTheirTablesNameNothing) {
    EXPECT_FALSE(noteDurationFromRawValue(0.3));
    EXPECT_FALSE(timeSignatureFromRawValue("6/8"));
    EXPECT_EQ(inversionFromVariant(2), Inversion::secondInversion);
    EXPECT_FALSE(inversionFromVariant(8));
    EXPECT_FALSE(inversionFromVariant(-1));
}

} // namespace
} // namespace fq::core
