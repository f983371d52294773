// Search records, the indexer's rebuild rule and batches, and what typed queries find.

#include "fq/navigation/LinkHandler.h"
#include "fq/navigation/SpotlightIndexer.h"

#include <fq/core/CapturedDiagnostics.h>
#include <fq/core/Diagnostics.h>
#include <fq/personal/PreferenceKeys.h>
#include <fq/test/TemporaryFolder.h>

#include <asio/io_context.hpp>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>

namespace fq::navigation {
namespace {

using core::Chord;
using core::Note;
namespace factory = FretquillSpotlightItemFactory;

TEST(SpotlightItemFactoryTest, ChordIdentifiers) {
    const std::vector<std::tuple<Note, std::string_view, int, std::string_view>> cases{
        {Note::Cs, "minor 7th", 0, "com.kelvane.fretquill.chord.guitar.standard.c-sharp.minor-7th"},
        {Note::C, "major", 2, "com.kelvane.fretquill.chord.guitar.standard.c.major.inversion-2"},
        {Note::Ef, "6 add 9", 0, "com.kelvane.fretquill.chord.guitar.standard.e-flat.6-add-9"},
        {Note::B, "dominant 7th sharp 9th", 0,
         "com.kelvane.fretquill.chord.guitar.standard.b.dominant-7th-sharp-9th"},
        {Note::G, "", 0, "com.kelvane.fretquill.chord.guitar.standard.g"},
    };
    for (const auto& [root, type, variant, id] : cases)
        EXPECT_EQ(factory::chordIdentifier(root, type, variant), id) << type;
}

TEST(SpotlightItemFactoryTest, NormalisedNames) {
    const std::vector<std::pair<std::string_view, std::string_view>> names{
        {"Bmaj7", "B major 7"},
        {"Bmin", "B minor"},
        {"E♭maj9", "E flat major 9"},
        {"Cmin7(♭5)", "C minor 7( flat 5)"},
        {"majestic minimal", "majestic minimal"},
        {"C dominant", "C dominant"},
        {"C♯ minor 7th", "C sharp minor seventh"},
        {"F#m7", "F sharp m7"},
        {"G dominant 7th flat 9th", "G dominant seventh flat ninth"},
        {"A 11th and 13th", "A eleventh and thirteenth"},
        {"  D𝄪   maj  ", "D double sharp major"},
        {"", ""},
    };
    for (const auto& [name, normal] : names)
        EXPECT_EQ(factory::normalisedChordName(name), normal) << name;
    EXPECT_EQ(factory::normalisedChordName("\xff maj"), "");
}

TEST(SpotlightItemFactoryTest, DifficultyAndFamily) {
    const std::vector<std::tuple<std::string_view, std::string_view, std::string_view>> types{
        {"major", "beginner", "major"},
        {"minor 7th", "beginner", "minor"},
        {"5", "beginner", "power"},
        {"suspended 4th", "beginner", "suspended"},
        {"6", "intermediate", "major"},
        {"diminished 7th", "intermediate", "diminished"},
        {"major add 9", "intermediate", "major"},
        {"9", "intermediate", "dominant"},
        {"minor 7th flat 5", "advanced", "minor"},
        {"13", "advanced", "major"},
        {"dominant 7th sharp 9th", "advanced", "dominant"},
        {"minor 11", "advanced", "minor"},
    };
    for (const auto& [type, level, family] : types) {
        EXPECT_EQ(factory::difficulty(type), level) << type;
        EXPECT_EQ(factory::chordFamily(type), family) << type;
    }
}

TEST(SpotlightItemFactoryTest, ChordRecordOfCSharpMinorSeventh) {
    const auto record = factory::chordRecord(Chord{Note::Cs, "minor 7th", 0});
    EXPECT_EQ(record.id, "com.kelvane.fretquill.chord.guitar.standard.c-sharp.minor-7th");
    EXPECT_EQ(record.kind, FretquillSearchIndexRecord::Kind::chord);
    EXPECT_EQ(record.title, "C♯ minor 7th");
    EXPECT_EQ(record.displayName, "C sharp minor seventh");
    EXPECT_EQ(record.symbol, "C♯m7");
    EXPECT_EQ(record.notes, (std::vector<std::string>{"C♯", "E", "G♯", "B"}));
    EXPECT_EQ(record.difficulty, "beginner");
    EXPECT_EQ(record.tuning, "standard tuning");
    EXPECT_EQ(record.instrument, "guitar");
    EXPECT_EQ(record.universalLink, "https://fretquill.app/chords/c-sharp-minor-7th");
    EXPECT_EQ(
        record.appDeepLink,
        "fretquill://spotlight/com.kelvane.fretquill.chord.guitar.standard.c-sharp.minor-7th");
    EXPECT_TRUE(record.searchText.starts_with("C♯ minor 7th Guitar Chord. Also known as "));
    EXPECT_TRUE(record.searchText.ends_with(". Chord family: minor"));
    EXPECT_NE(std::find(record.aliases.begin(), record.aliases.end(), "C sharp m7"),
              record.aliases.end());
    // JSON keeps the field order and reads back
    const auto json = toJson(record);
    EXPECT_EQ(json.begin().key(), "id");
    EXPECT_EQ((--json.end()).key(), "priority");
    EXPECT_EQ(recordFromJson(json), record);
    EXPECT_EQ(recordFromJson(nlohmann::json::parse(R"({"id":1})")), std::nullopt);
}

TEST(SpotlightItemFactoryTest, CollectionRecord) {
    FretquillResolvedChordCollection collection{
        "com.kelvane.fretquill.collection.campfire",
        "Campfire",
        "This is a collection created by you",
        {Chord{Note::G, "major", 0}, Chord{Note::E, "minor", 0}},
        {},
        false,
        std::nullopt};
    const auto record = factory::collectionRecord(collection);
    EXPECT_EQ(record.kind, FretquillSearchIndexRecord::Kind::chordCollection);
    EXPECT_EQ(record.title, "Campfire");
    EXPECT_EQ(record.searchText,
              "This is a collection created by you.  A Fret Quill chord collection containing 2 "
              "chords including G major, E minor. Category: my collections");
    EXPECT_EQ(record.keywords,
              (std::vector<std::string>{"guitar chords", "chord collection", "chord pack"}));
    EXPECT_EQ(record.difficulty, std::nullopt);
    EXPECT_EQ(factory::item(record).domain, "fretquill.chordCollections");
}

TEST(SpotlightItemFactoryTest, EveryIndexedChordIdentifierResolvesToItsChord) {
    const auto& chords = factory::indexedChords();
    ASSERT_GT(chords.size(), 17u * 40u);
    EXPECT_TRUE(std::is_sorted(chords.begin(), chords.end()));
    asio::io_context main;
    Router router{main.get_executor()};
    const NavigationContext context{router, nullptr, nullptr};
    for (std::size_t i = 0; i < chords.size(); i += 37) {
        EXPECT_EQ(chords[i].variant, 0);
        handleSearchIdentifier(factory::chordIdentifier(chords[i].rootNote, chords[i].chordType, 0),
                               context);
        main.restart();
        main.poll();
        EXPECT_EQ(router.path(), Router::Path{chordRoute(chords[i])}) << chords[i].chordType;
    }
}

/// Records every call; fails when told to.
struct RecordingIndex : SearchIndex {
    std::vector<std::size_t> batches;
    std::vector<std::string> deletedDomains;
    std::vector<std::string> deletedIds;
    bool failIndexing = false;
    bool failDeleting = false;
    tl::expected<void, Error> deleteDomains(std::span<const std::string_view> domains) override {
        if (failDeleting) return tl::unexpected(Error{"disk gone"});
        deletedDomains.insert(deletedDomains.end(), domains.begin(), domains.end());
        return {};
    }
    tl::expected<void, Error> deleteItems(std::span<const std::string> ids) override {
        if (failDeleting) return tl::unexpected(Error{"disk gone"});
        deletedIds.insert(deletedIds.end(), ids.begin(), ids.end());
        return {};
    }
    tl::expected<void, Error> indexSearchableItems(std::span<const SearchableItem> items) override {
        if (failIndexing) return tl::unexpected(Error{"quota"});
        batches.push_back(items.size());
        return {};
    }
};

struct IndexerFixture : ::testing::Test {
    test::TemporaryFolder folder;
    std::shared_ptr<personal::SharedStore> store =
        personal::SharedStore::open(folder / "store.sqlite").value();
    RecordingIndex index;
};

TEST_F(IndexerFixture, BatchesSplitOneOverTheSize) {
    const auto total =
        FretquillSpotlightIndexer(index, store, {"1.0 (1)", "en"}).allRecords().size();
    FretquillSpotlightIndexer indexer(index, store, {"1.0 (1)", "en"}, total - 1);
    indexer.reindexEverything();
    EXPECT_EQ(index.batches, (std::vector<std::size_t>{total - 1, 1}));
    EXPECT_EQ(index.deletedDomains,
              (std::vector<std::string>{"fretquill.chords", "fretquill.chordCollections",
                                        "fretquill.todayChord"}));

    index.batches.clear();
    FretquillSpotlightIndexer(index, store, {"1.0 (1)", "en"}, 200)
        .reindexEverything(Chord{Note::A, "minor", 0});
    const auto full = total / 200;
    ASSERT_EQ(index.batches.size(), full + (total % 200 ? 1 : 0) + 1);
    EXPECT_EQ(index.batches.front(), 200u);
    EXPECT_EQ(index.batches.back(), 1u) << "the chord of the day goes alone";
}

TEST_F(IndexerFixture, AChangedLanguageRebuildsOnceAndNotAgain) {
    FretquillSpotlightIndexer english(index, store, {"1.0 (1)", "en"});
    EXPECT_TRUE(english.needsFullReindex());
    english.reindexEverything();
    EXPECT_FALSE(english.needsFullReindex());
    EXPECT_EQ(store->integer("FretquillSpotlightIndexedSchemaVersion"), 4);
    EXPECT_EQ(store->text("FretquillSpotlightIndexedAppBuildVersion"), "1.0 (1)");
    EXPECT_EQ(store->text("FretquillSpotlightIndexedLanguageCode"), "en");
    EXPECT_EQ(store->integer("FretquillSpotlightChordLibraryVersion"), 1);

    FretquillSpotlightIndexer german(index, store, {"1.0 (1)", "de"});
    EXPECT_TRUE(german.needsFullReindex());
    german.reindexEverything();
    EXPECT_FALSE(german.needsFullReindex());
    EXPECT_TRUE(FretquillSpotlightIndexer(index, store, {"1.0 (2)", "de"}).needsFullReindex());
    ASSERT_TRUE(personal::write(*store, personal::keys::spotlightChordLibraryVersion, 0));
    EXPECT_TRUE(german.needsFullReindex());
}

TEST_F(IndexerFixture, FailuresAreToldAndLeaveTheRebuildDue) {
    CapturedDiagnostics diagnostics;
    index.failIndexing = true;
    index.failDeleting = true;
    FretquillSpotlightIndexer indexer(index, store, {"1.0 (1)", "en"});
    indexer.reindexEverything();
    EXPECT_TRUE(indexer.needsFullReindex());
    indexer.indexTodayChord(Chord{Note::C, "major", 0});
    const std::vector<std::string> ids{"x"};
    indexer.deleteItems(ids);
    EXPECT_EQ(diagnostics.text(), "Fret Quill Spotlight delete failed: disk gone\n"
                                  "Fret Quill Spotlight indexing failed: quota\n"
                                  "Fret Quill Today's Chord Spotlight indexing failed: quota\n"
                                  "Fret Quill Spotlight item delete failed: disk gone\n");
}

TEST(FtsQueryTest, TypedAndSpelledFormsAreBothTried) {
    const std::vector<std::pair<std::string_view, std::string_view>> queries{
        {"F#m7", R"(("F#m7"*) OR ("F"* "sharp"* "m7"*))"},
        {"jazz", R"("jazz"*)"},
        {"C♯ maj", R"(("C#"* "maj"*) OR ("C"* "sharp"* "major"*))"},
        {R"(" OR ")", R"("OR"*)"},
        {"+ - ()", ""},
        {"   ", ""},
    };
    for (const auto& [typed, fts] : queries)
        EXPECT_EQ(ftsQuery(typed), fts) << typed;
}

struct SqliteIndexFixture : ::testing::Test {
    static inline test::TemporaryFolder* folder = nullptr;
    static inline std::unique_ptr<SqliteSearchIndex> index;
    static void SetUpTestSuite() {
        folder = new test::TemporaryFolder;
        auto opened = SqliteSearchIndex::open(folder->path() / "index.sqlite");
        ASSERT_TRUE(opened);
        index = std::move(*opened);
        auto store = personal::SharedStore::open(folder->path() / "store.sqlite");
        ASSERT_TRUE(store);
        FretquillSpotlightIndexer(*index, *store, {"1.0 (1)", "en"})
            .reindexEverything(Chord{Note::D, "major", 0});
    }
    static void TearDownTestSuite() {
        index.reset();
        delete folder;
    }
    std::string firstHit(std::string_view query) {
        const auto hits = index->search(query, 5);
        return hits.empty() ? std::string() : hits.front().id;
    }
};

TEST_F(SqliteIndexFixture, WhatPeopleTypeFindsWhatTheyMean) {
    const std::string chord = "com.kelvane.fretquill.chord.guitar.standard.";
    const std::vector<std::pair<std::string_view, std::string>> queries{
        {"F#m7", chord + "f-sharp.minor-7th"},
        {"F♯m7", chord + "f-sharp.minor-7th"},
        {"Bb maj7", chord + "b-flat.major-7th"},
        {"c sharp minor", chord + "c-sharp.minor"},
        {"Cm", chord + "c.minor"},
        {"CM", chord + "c.major"},
        {"E7#9", chord + "e.dominant-7th-sharp-9th"},
        {"G6/9", chord + "g.6-add-9"},
        {"a minor", chord + "a.minor"},
        {"Dsus4", chord + "d.suspended-4th"},
        {"jazz", "com.kelvane.fretquill.collection.jazz-chords-collection"},
        {"blues", "com.kelvane.fretquill.collection.blues-chord-vault"},
        {"common chords", "com.kelvane.fretquill.collection.common-chords"},
    };
    for (const auto& [query, id] : queries)
        EXPECT_EQ(firstHit(query), id) << query;

    // every root names it equally: the natural root with the most common spelling wins
    EXPECT_EQ(firstHit("half diminished"), chord + "c.minor-7th-flat-5");
}

TEST_F(SqliteIndexFixture, PrefixesMatchAndNonsenseFindsNothing) {
    const auto hits = index->search("dimin", 50);
    ASSERT_FALSE(hits.empty());
    for (const auto& hit : hits)
        EXPECT_NE(hit.searchText.find("iminished"), std::string::npos) << hit.id;
    EXPECT_EQ(index->search("zzqx", 5).size(), 0u);
    EXPECT_EQ(index->search("\"", 5).size(), 0u);
    EXPECT_EQ(index->search("C", 0).size(), 0u);
    EXPECT_EQ(index->search("major", 7).size(), 7u);
}

TEST_F(SqliteIndexFixture, DeleteByIdAndDomain) {
    auto opened = SqliteSearchIndex::open(folder->path() / "scratch.sqlite");
    ASSERT_TRUE(opened);
    auto& scratch = **opened;
    const std::vector<SearchableItem> items{
        factory::item(factory::chordRecord(Chord{Note::C, "major", 0})),
        factory::item(factory::chordRecord(Chord{Note::G, "major", 0})),
        factory::item(factory::collectionRecord(builtInCollections().front())),
    };
    ASSERT_TRUE(scratch.indexSearchableItems(items));
    ASSERT_TRUE(scratch.indexSearchableItems(items)) << "indexing again replaces";
    EXPECT_EQ(scratch.count(), 3u);
    const std::vector<std::string> ids{items[0].record.id};
    ASSERT_TRUE(scratch.deleteItems(ids));
    EXPECT_EQ(scratch.count(), 2u);
    const std::array<std::string_view, 1> domains{"fretquill.chordCollections"};
    ASSERT_TRUE(scratch.deleteDomains(domains));
    EXPECT_EQ(scratch.count(), 1u);
    EXPECT_EQ(firstHit("today"), "com.kelvane.fretquill.today-chord.d.major");
}

} // namespace
} // namespace fq::navigation
