// What a guitarist types, read as the chord, key, tuning or progression meant.
#include "fq/core/TypedInput.h"

#include "fq/core/ChordDataManager.h"
#include "fq/core/GuitarTuning.h"

#include <gtest/gtest.h>

namespace fq::core {
namespace {

using Strings = std::vector<std::string>;

TEST(TypedInputTest, ChordSymbols) {
    const std::vector<std::pair<std::string_view, Chord>> cases{
        {"Cm7", {Note::C, "minor 7th", 0}},
        {"C♯ minor 7th", {Note::Cs, "minor 7th", 0}},
        {"C# minor 7th", {Note::Cs, "minor 7th", 0}},
        {"Bb minor", {Note::Bf, "minor", 0}},
        {"Ebmaj7/D", {Note::Ef, "major 7th", 3}},
        {"A 5", {Note::A, "5", 0}},
        {"C7b9", {Note::C, "dominant 7th flat 9th", 0}},
        {"Cm7b5", {Note::C, "minor 7th flat 5", 0}},
        {"C7#9", {Note::C, "dominant 7th sharp 9th", 0}},
        {"Bb7b9", {Note::Bf, "dominant 7th flat 9th", 0}},
        {"F#m7b5/E", {Note::Fs, "minor 7th flat 5", 3}},
        {"Cb", {Note::Cf, "major", 0}},
        {"E#m", {Note::Es, "minor", 0}},
        {"B♯", {Note::Bs, "major", 0}},
        {"Fbb7", {Note::Fdf, "dominant 7th", 0}},
        {"Cb6/9", {Note::Cf, "6 add 9", 0}},
        {"Cb/Eb", {Note::Cf, "major", 1}},
        {"E#m/B#", {Note::Es, "minor", 2}},
    };
    for (const auto& [text, chord] : cases) {
        const auto found = chordFromSymbol(text);
        ASSERT_TRUE(found) << text << ": " << found.error().message;
        EXPECT_EQ(*found, chord) << text;
    }
    // a bass outside the chord, a lower-case root (m and M differ after it), a typo
    for (const std::string_view text :
         {"H7", "", "cm7", "C  minor", "Cb/E", "Cbm/Eb", "C7b", "E#q"}) {
        const auto found = chordFromSymbol(text);
        ASSERT_FALSE(found) << text;
        EXPECT_EQ(found.error(),
                  (Error{"Unknown chord: " + std::string(text), ErrorKind::notFound}));
    }
}

TEST(TypedInputTest, EveryNoteAsARootWithEveryTypeReadsBack) {
    // The name the catalogue prints for a chord is something a person may type back.
    const auto& manager = ChordDataManager::shared();
    for (const auto note : allNotes())
        for (const auto& data : manager.catalogue()) {
            const auto name = std::string(rawValue(note)) + data.shortTitle;
            const auto found = chordFromSymbol(name);
            ASSERT_TRUE(found) << name;
            EXPECT_EQ(found->rootNote, note) << name;
            EXPECT_EQ(manager.notes(found->rootNote, found->chordType),
                      manager.notes(note, data.title))
                << name;
        }
}

TEST(TypedInputTest, ChordParts) {
    EXPECT_EQ(chordFromParts("f#", "minor 7th", 1), (Chord{Note::Fs, "minor 7th", 1}));
    EXPECT_EQ(chordFromParts("Dbb", "major", 0), (Chord{Note::Ddf, "major", 0}));
    const std::vector<std::tuple<std::string_view, std::string_view, int, Error>> failures{
        {"H", "major", 0, {"Unknown note: H", ErrorKind::notFound}},
        {"C#x", "major", 0, {"Unknown note: C#x", ErrorKind::notFound}},
        {"C", "Major", 0, {"Unknown chord type: Major", ErrorKind::notFound}},
        {"C", "major", 3, {"Variant 3 is out of range for C major (0 to 2)"}},
        {"C", "major", -1, {"Variant -1 is out of range for C major (0 to 2)"}},
    };
    for (const auto& [root, type, variant, error] : failures)
        EXPECT_EQ(chordFromParts(root, type, variant), tl::unexpected(error)) << root << type;
}

TEST(TypedInputTest, Keys) {
    const std::vector<std::pair<std::string_view, TypedKey>> cases{
        {"C", {Note::C, std::nullopt}},    {"a", {Note::A, std::nullopt}},
        {"Am", {Note::A, "minor"}},        {"am", {Note::A, "minor"}},
        {"f#m", {Note::Fs, "minor"}},      {"bb", {Note::Bf, std::nullopt}},
        {"bm", {Note::B, "minor"}},        {"Bbm", {Note::Bf, "minor"}},
        {"E♭ minor", {Note::Ef, "minor"}}, {"CM", {Note::C, "major"}},
        {" g major ", {Note::G, "major"}}, {"Dmin", {Note::D, "minor"}},
    };
    for (const auto& [text, key] : cases)
        EXPECT_EQ(keyFromText(text), key) << text;
    EXPECT_EQ(keyFromText("H").error(), (Error{"Unknown note: H", ErrorKind::notFound}));
    for (const std::string_view text : {"", "Am7", "C dorian"})
        EXPECT_FALSE(keyFromText(text)) << text;
}

TEST(TypedInputTest, Tunings) {
    const Strings dropD{"D", "A", "D", "G", "B", "E"};
    const Strings halfDown{"D♯", "G♯", "C♯", "F♯", "A♯", "D♯"};
    const std::vector<std::pair<std::string_view, Strings>> cases{
        {"dropD", dropD},
        {"DROPD", dropD},
        {"Drop D", dropD},
        {"half-step down", halfDown},
        {"Drop C#", {"C♯", "G♯", "C♯", "F♯", "A♯", "D♯"}},
        {"D,A,D,G,B,E", dropD},
        {"d a d g b e", dropD},
        {"D2, A2, D3, G3, B3, E4", dropD},
        {"Eb,Ab,Db,Gb,Bb,Eb", {"E♭", "A♭", "D♭", "G♭", "B♭", "E♭"}},
    };
    for (const auto& [text, notes] : cases)
        EXPECT_EQ(tuningFromText(text), notes) << text;
    // What the tunings list prints for each tuning reads back as that tuning.
    for (const auto tuning : allGuitarTunings()) {
        std::string printed;
        for (const auto& string : tuningData(tuning).referenceToneButtonData)
            printed += std::string(printed.empty() ? "" : ",") + std::string(string.buttonTitle);
        const auto open = openNotes(tuning);
        EXPECT_EQ(tuningFromText(printed), Strings(open.begin(), open.end())) << printed;
    }
    const std::vector<std::pair<std::string_view, ErrorKind>> failures{
        {"dropZ", ErrorKind::notFound},      {"", ErrorKind::notFound},
        {"D,A,D,G,B", ErrorKind::refused},   {"D,A,D,G,B,E,A", ErrorKind::refused},
        {"D,A,H,G,B,E", ErrorKind::refused}, {"D,,D,G,B,E", ErrorKind::refused},
    };
    for (const auto& [text, kind] : failures) {
        const auto tuning = tuningFromText(text);
        ASSERT_FALSE(tuning) << text;
        EXPECT_EQ(tuning.error().kind, kind) << text;
    }
}

TEST(TypedInputTest, Progressions) {
    const auto names = [](Note key, std::string_view mode, std::string_view text) {
        const auto typed = progressionFromText(key, mode, text);
        if (!typed) return Strings{typed.error().message};
        Strings result{typed->numerals};
        for (const auto& chord : typed->chords)
            result.push_back(std::string(rawValue(chord.rootNote)) + " " + chord.chordType);
        return result;
    };
    using Row = std::tuple<Note, std::string_view, std::string_view, Strings>;
    const std::vector<Row> rows{
        {Note::C, "major", "I V vi IV", {"I-V-vi-IV", "C major", "G major", "A minor", "F major"}},
        {Note::C,
         "major",
         "I, V,vi ,IV",
         {"I-V-vi-IV", "C major", "G major", "A minor", "F major"}},
        {Note::C,
         "major",
         "ii7 V7 Imaj7",
         {"ii7-V7-Imaj7", "D minor 7th", "G dominant 7th", "C major 7th"}},
        {Note::C,
         "major",
         "vii° viiø viio7 iiø7",
         {"vii°-viiø-viio7-iiø7", "B diminished", "B minor 7th flat 5", "B diminished 7th",
          "D minor 7th flat 5"}},
        {Note::C,
         "major",
         "♭VII bVII7 V7b9 IVadd9 ii9 iimaj7",
         {"♭VII-bVII7-V7b9-IVadd9-ii9-iimaj7", "B♭ major", "B♭ dominant 7th",
          "G dominant 7th flat 9th", "F major add 9", "D minor 9", "D minor major 7th"}},
        {Note::A,
         "minor",
         "i-VII-VI-V7",
         {"i-VII-VI-V7", "A minor", "G major", "F major", "E dominant 7th"}},
        {Note::A,
         "minor",
         "i ♭VII ♭VI V7 ♭III",
         {"i-♭VII-♭VI-V7-♭III", "A minor", "G major", "F major", "E dominant 7th", "C major"}},
        {Note::C, "major", "I--V", {"Missing a numeral in \"I--V\""}},
        {Note::C, "major", "I Q", {"Not a Roman numeral: Q"}},
        {Note::C, "major", "mI", {"Not a Roman numeral: mI"}},
        {Note::C, "major", "Iblah", {"Unknown chord suffix: blah in Iblah"}},
        {Note::C, "major", " ", {"Missing a numeral in \" \""}},
    };
    for (const auto& [key, mode, text, expected] : rows)
        EXPECT_EQ(names(key, mode, text), expected) << text;
}

} // namespace
} // namespace fq::core
