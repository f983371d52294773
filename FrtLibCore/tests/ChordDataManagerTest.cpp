// The chord catalogue: spelled notes, names, aliases, the dictionary and the searches by notes.
#include "fq/core/ChordDataManager.h"

#include "fq/core/Spelling.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <thread>

namespace fq::core {
namespace {

using Names = std::vector<std::string>;

const ChordDataManager& manager() {
    return ChordDataManager::shared();
}

TEST(ChordCatalogueTest, DocumentOrderAndTheRowsOddities) {
    const auto& catalogue = manager().catalogue();
    ASSERT_EQ(catalogue.size(), 49u);
    EXPECT_EQ(catalogue.front().title, "major");
    EXPECT_EQ(catalogue[2].title, "5");
    EXPECT_EQ(catalogue.back().title, "diminished 7th");

    const auto* major = manager().chordData("major");
    ASSERT_TRUE(major);
    EXPECT_EQ(major->otherNames, (Names{"", "M"}));
    EXPECT_TRUE(major->includesSpace);
    EXPECT_FALSE(manager().chordData("6 add 9")->includesSpace);
    EXPECT_TRUE(manager().chordData("suspended 4th")->otherNames.empty());
    EXPECT_EQ(manager().chordData("dominant 7th flat 5")->otherNames,
              (Names{"dom7♭5", " half-diminished 7th"}));
    EXPECT_EQ(manager().chordData("minor major 6")->notes, manager().chordData("minor 6")->notes);
    EXPECT_EQ(manager().chordData("minor 7th add 13")->notes, (std::vector<int>{0, 3, 7, 10, 21}));
    EXPECT_EQ(manager().chordData("Major"), nullptr);
}

TEST(ChordCatalogueTest, ParsingRejectsBrokenDocuments) {
    for (const char* text : {"", "{", R"({"chord":{}})", R"({"chords":{"x":{"short":"x"}}})",
                             R"({"chords":{"x":{"short":"x","other_names":"","notes":["0"],)"
                             R"("formula":"1","prefix_space":0}}})"})
        EXPECT_FALSE(parseChordCatalogue(text)) << text;
    const auto empty = parseChordCatalogue(
        R"({"chords":{"x":{"short":"x","other_names":",a,","notes":[0],"formula":"1","prefix_space":2}}})");
    ASSERT_TRUE(empty);
    EXPECT_EQ(empty->front().otherNames, (Names{"", "a", ""}));
    EXPECT_FALSE(empty->front().includesSpace);
}

TEST(ChordCatalogueTest, EverySpelledNoteHasTheRightPitchAndLetter) {
    const auto& letters = naturalLetters();
    for (const Note root : allNotes()) {
        const auto rootText = rawValue(root);
        const auto rootPitch = *semitoneIndex(rootText);
        const auto rootLetter =
            std::find(letters.begin(), letters.end(), rootText.substr(0, 1)) - letters.begin();
        for (const auto& data : manager().catalogue()) {
            const auto notes = manager().notes(root, data.title);
            ASSERT_EQ(notes.size(), data.notes.size());
            std::vector<int> degrees;
            for (std::size_t start = 0, end = 0; end != std::string::npos; start = end + 1) {
                end = data.formula.find('-', start);
                degrees.push_back(
                    formulaDegree(std::string_view(data.formula).substr(start, end - start)));
            }
            for (std::size_t i = 0; i < notes.size(); ++i) {
                // a few remote keys run out of spellings (C𝄪's fourth would need F𝄪♯)
                if (notes[i].empty()) continue;
                EXPECT_EQ(semitoneIndex(notes[i]), (rootPitch + data.notes[i]) % 12)
                    << rootText << " " << data.title << " note " << i;
                EXPECT_EQ(notes[i].substr(0, 1),
                          letters[static_cast<std::size_t>(rootLetter + degrees[i] - 1) % 7])
                    << rootText << " " << data.title << " note " << i;
            }
        }
    }
    // pitch and letter fix a spelling, so this covers every table; an unknown type spells nothing
    EXPECT_TRUE(manager().notes(Note::C, "no such type").empty());
    // every root the dictionary uses spells every chord completely
    for (const auto root : ChordDataManager::allRootNotes())
        for (const auto& data : manager().catalogue())
            for (const auto& note : manager().notes(*noteFromRawValue(root), data.title))
                EXPECT_FALSE(note.empty()) << root << " " << data.title;
}

TEST(ChordCatalogueTest, DisplayNames) {
    const std::vector<std::tuple<Note, std::string_view, int, std::size_t, std::string_view>> cases{
        {Note::C, "minor major 7th", 0, 12, "C min/maj7"},
        {Note::C, "dominant 7th", 0, 12, "C dominant 7th"},
        {Note::C, "dominant 7th", 0, 10, "C 7"},
        {Note::A, "5", 0, 12, "A5"},
        {Note::A, "6 add 9", 0, 12, "A6 add 9"},
        {Note::C, "major", 1, 12, "C major/E"},
        {Note::Fs, "dominant 7th", 3, 12, "F♯ dominant 7th/E"},
        {Note::C, "minor", 0, 12, "C minor"},
        {Note::C, "major", 7, 12, "C major"},
        {Note::C, "nothing", 0, 12, ""},
    };
    for (const auto& [root, type, variant, limit, name] : cases)
        EXPECT_EQ(manager().name(root, type, variant, limit), name);
}

TEST(ChordCatalogueTest, ShortestNamesAndAliases) {
    EXPECT_EQ(manager().shortestName(Note::C, "major", 0), "C");
    EXPECT_EQ(manager().shortestName(Note::C, "minor", 0), "Cm");
    EXPECT_EQ(manager().shortestName(Note::C, "major", 1), "C/E");
    EXPECT_EQ(manager().shortestName(Note::Ef, "dominant 7th", 0), "E♭7");
    EXPECT_EQ(manager().shortestName(Note::C, "suspended 4th", 0), "Csus4");

    EXPECT_EQ(
        manager().aliases(Note::Ef, "minor", 0),
        (Names{"E♭minor", "E♭min", "E♭ minor", "E♭m", "Ebminor", "Ebmin", "Eb minor", "Ebm"}));
    EXPECT_EQ(manager().aliases(Note::C, "major", 1),
              (Names{"Cmajor/E", "Cmaj/E", "C major/E", "CM/E"}));
    const auto flatBass = manager().aliases(Note::Af, "minor", 1);
    EXPECT_NE(std::find(flatBass.begin(), flatBass.end(), "A♭m/C♭"), flatBass.end());
    EXPECT_NE(std::find(flatBass.begin(), flatBass.end(), "Abm/Cb"), flatBass.end());
    EXPECT_EQ(manager().aliases(Note::C, "5", 0), (Names{"C5", "C(no 3)"}));
}

TEST(ChordCatalogueTest, IntervalNamesRotateWithTheInversion) {
    EXPECT_EQ(manager().intervalNames("major", 0),
              (Names{"Unison", "Major Third", "Perfect Fifth"}));
    EXPECT_EQ(manager().intervalNames("major", 1),
              (Names{"Major Third", "Perfect Fifth", "Unison"}));
    EXPECT_EQ(manager().rootedIntervalNames("diminished 7th", 3),
              (Names{"Diminished Seventh", "Root", "Minor Third", "Diminished Fifth"}));
    EXPECT_TRUE(manager().intervalNames("nothing", 0).empty());
}

TEST(ChordDictionaryTest, LooksUpAliasesInEveryForm) {
    const std::vector<std::pair<std::string_view, std::optional<Chord>>> cases{
        {"C", Chord{Note::C, "major", 0}},
        {"Cm", Chord{Note::C, "minor", 0}},
        {"Bb7", Chord{Note::Bf, "dominant 7th", 0}},
        {"C/E", Chord{Note::C, "major", 1}},
        {"C♯minor 7th", Chord{Note::Cs, "minor 7th", 0}},
        {"C#m7", Chord{Note::Cs, "minor 7th", 0}},
        {"Cm6", Chord{Note::C, "minor 6", 0}}, // the later type takes the shared alias
        {"CmM6", Chord{Note::C, "minor major 6", 0}},
        {"Abm/Cb", Chord{Note::Af, "minor", 1}},
        {"A♭m/C♭", Chord{Note::Af, "minor", 1}},
        {"Cdim7/B♭♭", Chord{Note::C, "diminished 7th", 3}},
        {"C half-diminished 7th", Chord{Note::C, "dominant 7th flat 5", 0}},
        {"C+", Chord{Note::C, "augmented", 0}},
        {"G♭maj7/F", Chord{Note::Gf, "major 7th", 3}},
        {"C#minor 7th", std::nullopt}, // the full title has no ASCII twin
        {"E♯m", std::nullopt},         // not one of the dictionary's roots
        {"H7", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& [alias, expected] : cases) {
        const Chord* found = manager().chord(alias);
        EXPECT_EQ(found ? std::optional<Chord>(*found) : std::nullopt, expected) << alias;
    }
}

TEST(ChordDictionaryTest, EveryInversionIsReachableThroughItsDisplayedBass) {
    std::size_t inversions = 0;
    for (const auto& chord : manager().dictionaryChords()) {
        if (chord.variant == 0) continue;
        ++inversions;
        const auto* data = manager().chordData(chord.chordType);
        const auto bass = manager().notes(chord.rootNote, chord.chordType)[chord.variant];
        const auto alias = std::string(rawValue(chord.rootNote)) + data->title + "/" + bass;
        const Chord* found = manager().chord(alias);
        ASSERT_NE(found, nullptr) << alias;
        EXPECT_EQ(*found, chord) << alias;
    }
    // 17 roots, every note of every type but the root in the bass
    std::size_t expected = 0;
    for (const auto& data : manager().catalogue())
        expected += 17 * (data.notes.size() - 1);
    EXPECT_EQ(inversions, expected);
}

TEST(ChordDictionaryTest, PriorityShapesCarryOverToEqualSpellings) {
    const FretList open{-1, 3, 2, 0, 1, 0};
    EXPECT_EQ(manager().priorityPositions({Note::C, "major", 0}).front(), open);
    EXPECT_EQ(manager().priorityPositions({Note::Bs, "major", 0}).front(), open);
    EXPECT_EQ(manager().priorityPositions({Note::Ddf, "major", 0}).front(), open);
    EXPECT_EQ(manager().priorityPositions({Note::Ef, "major", 0}).size(), 4u);
    EXPECT_EQ(manager().priorityPositions({Note::Bf, "dominant 7th", 0}).front(),
              (FretList{-1, 1, 3, 1, 3, 1}));
    EXPECT_EQ(manager().priorityPositions({Note::Df, "5", 0}).front(),
              (FretList{-1, 4, 6, 6, -1, -1}));
    EXPECT_TRUE(manager().priorityPositions({Note::C, "major", 1}).empty());
    EXPECT_TRUE(manager().priorityPositions({Note::Cf, "major", 0}).empty());
    EXPECT_EQ(manager().priorityPositions({Note::E, "5", 0}).size(), 2u);
}

TEST(ChordSearchTest, ExactMatchByNotesHonoursTheBass) {
    const std::vector<std::pair<std::string_view, std::vector<Chord>>> cases{
        {"E, G, C", {{Note::C, "major", 1}}},
        {"c,e,g", {{Note::C, "major", 0}}},
        {" A ,\nC#, E", {{Note::A, "major", 0}}},
        {"C,C,E", {}},
        {"H,C,E", {}},
        {"C,E,H", {}},
        {"", {}},
    };
    for (const auto& [text, chords] : cases)
        EXPECT_EQ(manager().chordsMatching(text), chords) << text;

    const auto flat = manager().chordsMatching("Eb, G, Bb");
    EXPECT_NE(std::find(flat.begin(), flat.end(), Chord{Note::Ef, "major", 0}), flat.end());
    EXPECT_NE(std::find(flat.begin(), flat.end(), Chord{Note::Ds, "major", 0}), flat.end());

    // C6 and Am7 share their notes; the bass tells them apart
    const auto sixth = manager().chordsMatching("C,E,G,A");
    EXPECT_NE(std::find(sixth.begin(), sixth.end(), Chord{Note::C, "6", 0}), sixth.end());
    EXPECT_NE(std::find(sixth.begin(), sixth.end(), Chord{Note::A, "minor 7th", 1}), sixth.end());
    EXPECT_EQ(std::find(sixth.begin(), sixth.end(), Chord{Note::A, "minor 7th", 0}), sixth.end());
}

TEST(ChordSearchTest, NearMatchesAreRankedByScoreThenCommonTypes) {
    const auto similar = manager().similarChords("C,E");
    ASSERT_FALSE(similar.empty());
    EXPECT_EQ(similar.front(), (Chord{Note::C, "major", 0}));
    std::set<std::pair<Note, std::string>> seen;
    for (const auto& chord : similar) {
        EXPECT_EQ(chord.variant, 0);
        EXPECT_TRUE(seen.insert({chord.rootNote, chord.chordType}).second);
    }
    // superset by one comes first; among equal scores the common types lead, then the key
    const auto rank = [&](const Chord& chord) {
        return std::find(similar.begin(), similar.end(), chord) - similar.begin();
    };
    EXPECT_LT(rank({Note::C, "major", 0}), rank({Note::A, "minor", 0}));
    EXPECT_LT(rank({Note::A, "minor", 0}), rank({Note::C, "augmented", 0}));
    EXPECT_LT(rank({Note::C, "augmented", 0}), rank({Note::C, "dominant 7th", 0}));

    const auto subsets = manager().similarChords("C, E, G, B♭");
    ASSERT_FALSE(subsets.empty());
    EXPECT_EQ(subsets.front(), (Chord{Note::C, "dominant 7th", 0}));
    EXPECT_NE(std::find(subsets.begin(), subsets.end(), Chord{Note::C, "major", 0}), subsets.end());

    for (const char* tooFew : {"C", "C,C", "H,X", ""})
        EXPECT_TRUE(manager().similarChords(tooFew).empty());
}

TEST(ChordDataManagerTest, RacingFirstCallersShareOneInstance) {
    std::vector<const ChordDataManager*> seen(8);
    std::vector<std::thread> threads;
    for (auto& slot : seen)
        threads.emplace_back([&slot] { slot = &ChordDataManager::shared(); });
    for (auto& thread : threads)
        thread.join();
    for (const auto* instance : seen)
        EXPECT_EQ(instance, seen.front());
    EXPECT_GT(manager().aliasCount(), 10000u);
}

} // namespace
} // namespace fq::core
