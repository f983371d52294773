// Slugs, fingering codes and web links, read and written, round trips over the whole catalogue.

#include "fq/navigation/ChordURLParser.h"

#include <fq/core/ChordDataManager.h>

#include <gtest/gtest.h>

namespace fq::navigation {
namespace {

using namespace ChordURLParser;
using core::Chord;
using core::Note;

TEST(ChordURLParserTest, NoteSlugsBothWays) {
    const std::vector<std::pair<std::string_view, std::optional<std::string>>> slugs{
        {"C", "c"},
        {"C♯", "c-sharp"},
        {" e♭ ", "e-flat"},
        {"F𝄪", "f-double-sharp"},
        {"Bbb", "b-flat-flat"},
        {"G##", "g-double-sharp"},
        {"D♭♭♭", std::nullopt},
        {"H", std::nullopt},
        {"", std::nullopt},
        {"C♯x", std::nullopt},
    };
    for (const auto& [note, slug] : slugs)
        EXPECT_EQ(noteSlug(note), slug) << note;

    const std::vector<std::pair<std::string_view, std::optional<Note>>> notes{
        {"b-flat", Note::Bf},         {"c", Note::C},
        {"b-sharp", Note::C},         {"f-flat", Note::E},
        {"e-double-sharp", Note::Fs}, {"c-flat-flat", Note::As},
        {"a-flat", Note::Af},         {"h", std::nullopt},
        {"c-sharpish", std::nullopt}, {"", std::nullopt},
    };
    for (const auto& [slug, note] : notes)
        EXPECT_EQ(noteFromSlug(slug), note) << slug;
}

TEST(ChordURLParserTest, TypeSlugsMatchKeysAndIdentifiers) {
    EXPECT_EQ(chordTypeSlug("dominant 7th flat 5"), "dominant-7th-flat-5");
    EXPECT_EQ(chordTypeSlug("Major 7th (add 11)"), "major-7th-add-11");
    EXPECT_EQ(chordTypeSlug("7#9"), "7-9") << "the sign is lost, as links have always written it";
    EXPECT_EQ(chordTypeMatchKey("-Minor--7th- "), "minor 7th");
    EXPECT_EQ(chordTypeMatchKey(""), "");
    EXPECT_EQ(identifierSlug("C♯ Jazz Café"), "c-sharp-jazz-cafe");
    EXPECT_EQ(identifierSlug("B♭Δ7 & friends!"), "b-flat-major-7-friends");
    EXPECT_EQ(identifierSlug("ÉTUDES  #2"), "etudes-sharp-2");
}

TEST(ChordURLParserTest, FingeringCodes) {
    EXPECT_EQ(encodeFingering(std::vector{-1, 3, 2, 0, 1, 0}), "x32010");
    EXPECT_EQ(encodeFingering(std::vector{10, 12, 32, 34, 35, -1}), "acwyzx");
    EXPECT_EQ(encodeFingering(std::vector{33, 0, 0, 0, 0, 0}), std::nullopt)
        << "33 would read back as x";
    EXPECT_EQ(encodeFingering(std::vector{36, 0, 0, 0, 0, 0}), std::nullopt);
    EXPECT_EQ(encodeFingering(std::vector{0, 0, 0}), std::nullopt);
    EXPECT_EQ(decodeFingering("X32010"), (std::vector{-1, 3, 2, 0, 1, 0}));
    EXPECT_EQ(decodeFingering("acwyzx"), (std::vector{10, 12, 32, 34, 35, -1}));
    for (const char* bad : {"xxxxxx", "x3201", "x320100", "x3201!", ""})
        EXPECT_EQ(decodeFingering(bad), std::nullopt) << bad;
}

std::optional<ParsedChordRoute> parse(std::string_view path) {
    return parseChordURL("https://fretquill.app" + std::string(path));
}

TEST(ChordURLParserTest, ReadingLinks) {
    const auto cMajor = parse("/chords/c-major");
    ASSERT_TRUE(cMajor);
    EXPECT_EQ(cMajor->chord, (Chord{Note::C, "major", 0}));
    EXPECT_EQ(cMajor->chordSlug, "c-major");
    for (const char* same : {"/de/chords/c-major", "/pt-BR/chords/c-major",
                             "/zh-Hant-TW/chords/c-major", "/chords/C-Major/"})
        EXPECT_EQ(parse(same).value_or(ParsedChordRoute{}).chord, cMajor->chord) << same;
    EXPECT_EQ(parseChordURL("fretquill://www.FRETQUILL.app/chords/c-major")->chord, cMajor->chord)
        << "scheme not examined";

    EXPECT_EQ(parse("/chords/b-flat-minor-7th")->chord, (Chord{Note::Bf, "minor 7th", 0}));
    EXPECT_EQ(parse("/chords/c-sharp-minor")->chord, (Chord{Note::Cs, "minor", 0}));
    EXPECT_EQ(parse("/chords/c-major%207th")->chord, (Chord{Note::C, "major 7th", 0}));

    const auto withBass = parse("/chords/c-major/e/x32010");
    ASSERT_TRUE(withBass);
    EXPECT_EQ(withBass->chord, (Chord{Note::C, "major", 1}));
    EXPECT_EQ(withBass->bassNote, Note::E);
    EXPECT_EQ(withBass->bassSlug, "e");
    EXPECT_EQ(withBass->selectedPosition, (std::vector{-1, 3, 2, 0, 1, 0}));
    const auto onlyFingering = parse("/chords/c-major/x32010");
    ASSERT_TRUE(onlyFingering);
    EXPECT_EQ(onlyFingering->chord.variant, 0);
    EXPECT_FALSE(onlyFingering->bassNote);

    EXPECT_EQ(parse("/chords/c-major?variant=2")->chord.variant, 2);
    EXPECT_EQ(parse("/chords/c-major?VARIANT=+1")->bassNote, Note::E);
    for (const char* ignored :
         {"/chords/c-major?variant=-1", "/chords/c-major?variant=x", "/chords/c-major?variant=3",
          "/chords/c-major?variant=99999999999", "/chords/c-major?variant"}) {
        const auto route = parse(ignored);
        ASSERT_TRUE(route) << ignored;
        EXPECT_EQ(route->chord.variant, 0) << ignored;
        EXPECT_FALSE(route->bassNote) << ignored;
    }

    for (const char* refused :
         {"/chords/c-major/e/x3201", "/chords/c-major/e/x32010/more", "/abcd/chords/c-major",
          "/chords/c-sharp", "/chords/c", "/chords/h-major", "/chords/cmajor", "/chords/c-mayor",
          "/chords", "/songs/c-major", "/chords/c-major/xxxxxx", "/chords/c-major/q/x32010"})
        EXPECT_FALSE(parse(refused)) << refused;
    EXPECT_FALSE(parseChordURL("https://example.com/chords/c-major"));
    EXPECT_FALSE(parseChordURL("fretquill.app/chords/c-major")) << "no host without a scheme";
    EXPECT_FALSE(parseChordURL("not a url at all"));
}

TEST(ChordURLParserTest, EveryLinkTheProgramWritesReadsBackAsTheSameChord) {
    const auto& manager = core::ChordDataManager::shared();
    std::size_t checked = 0;
    for (const auto root : core::ChordDataManager::allRootNotes()) {
        const auto note = *core::noteFromRawValue(root);
        for (const auto& data : manager.catalogue()) {
            const auto tones = manager.notes(note, data.title);
            for (int variant = 0; variant < static_cast<int>(tones.size()); ++variant) {
                // an inversion whose bass has no slug (a triple flat) cannot be written
                if (variant > 0 && !noteSlug(tones[static_cast<std::size_t>(variant)])) continue;
                const Chord chord{note, data.title, variant};
                const auto url = chordWebURL(chord, std::vector{-1, 3, 2, 0, 1, 0});
                const auto route = parseChordURL(url);
                ASSERT_TRUE(route) << url;
                EXPECT_EQ(route->chord, chord) << url;
                EXPECT_EQ(route->selectedPosition, (std::vector{-1, 3, 2, 0, 1, 0})) << url;
                ++checked;
            }
        }
    }
    EXPECT_GT(checked, 3000u);
    EXPECT_EQ(chordWebURL({Note::C, "major", 1}), "https://fretquill.app/chords/c-major/e");
    EXPECT_EQ(chordWebURL({Note::C, "major", 5}), "https://fretquill.app/chords/c-major?variant=5");
    EXPECT_EQ(chordWebURL({Note::C, "major", 0}, std::vector{33, 3, 2, 0, 1, 0}),
              "https://fretquill.app/chords/c-major");
    EXPECT_EQ(chordWebURL({Note::Dfdf, "major", 0}), "https://fretquill.app/chords")
        << "no slug for a triple flat";
}

} // namespace
} // namespace fq::navigation
