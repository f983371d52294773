// Links, identifiers and activities: which route or keys each gives, and silence for the rest.

#include "fq/navigation/LinkHandler.h"

#include "fq/navigation/SpotlightItemFactory.h"

#include <fq/core/TodayChordLibrary.h>
#include <fq/core/Uuid.h>
#include <fq/personal/PreferenceKeys.h>
#include <fq/personal/UserLibraryStore.h>
#include <fq/test/TemporaryFolder.h>

#include <asio/io_context.hpp>
#include <gtest/gtest.h>

namespace fq::navigation {
namespace {

using core::Chord;
using core::Note;
using namespace std::chrono_literals;

constexpr std::chrono::year_month_day fixedDay{std::chrono::year{2026}, std::chrono::February,
                                               std::chrono::day{14}};

struct LinkFixture : ::testing::Test {
    test::TemporaryFolder folder;
    std::shared_ptr<personal::SharedStore> store =
        personal::SharedStore::open(folder / "store.sqlite").value();
    asio::io_context main;
    Router router{main.get_executor()};
    NavigationContext context{router, store, [] { return fixedDay; }};
    std::vector<std::string> writtenKeys;
    personal::ObserverToken token =
        store->addObserver([this](std::string_view key) { writtenKeys.emplace_back(key); });

    /// The path once every queued task has run.
    Router::Path settle() {
        main.restart();
        main.poll();
        return router.path();
    }
    void expectNothing(std::string_view what) {
        EXPECT_TRUE(settle().empty()) << what;
        EXPECT_TRUE(writtenKeys.empty()) << what;
    }
};

TEST_F(LinkFixture, WebLinkOpensTheChordWithItsShape) {
    handleChordURL("https://fretquill.app/chords/c-major/e/x32010", context);
    EXPECT_TRUE(router.path().empty()) << "routes arrive through the main executor";
    EXPECT_EQ(settle(), Router::Path{chordRoute(Chord{Note::C, "major", 1},
                                                std::vector<int>{-1, 3, 2, 0, 1, 0})});
}

TEST_F(LinkFixture, SpotlightHostResolvesTheLastPathComponent) {
    const auto id = FretquillSpotlightItemFactory::chordIdentifier(Note::Cs, "minor 7th", 0);
    handleChordURL("fretquill://spotlight/anything/" + id, context);
    EXPECT_EQ(settle(), Router::Path{chordRoute(Chord{Note::Cs, "minor 7th", 0})});
}

TEST_F(LinkFixture, IdentifiersThatDoNotResolveDoNothing) {
    const std::vector<std::string> identifiers{
        FretquillSpotlightItemFactory::chordIdentifier(Note::C, "major",
                                                       1), // inversions are never indexed
        "com.kelvane.fretquill.chord.guitar.standard.h.major",
        "com.kelvane.fretquill.collection.no-such-pack",
        "com.kelvane.fretquill.progression.pop-punk",
        "com.kelvane.fretquill.chord.",
        "",
        "com.example.other",
    };
    for (const auto& id : identifiers) {
        handleSearchIdentifier(id, context);
        expectNothing(id);
    }
}

TEST_F(LinkFixture, OpenHostWritesTheProgressionKeysInOrder) {
    handleChordURL(
        "fretquill://open?Progression=pop-punk&root=c%20sharp&pattern=%20I-V-vi-IV%20&sequence=x",
        context);
    EXPECT_TRUE(settle().empty());
    EXPECT_EQ(writtenKeys, (std::vector<std::string>{
                               "selectedTab", "rootNote", "libraryProgressionType",
                               "libraryProgressionPattern", "libraryProgressionDeepLinkID"}));
    EXPECT_EQ(store->integer("selectedTab"), 2);
    EXPECT_EQ(store->text("rootNote"), "C♯");
    EXPECT_EQ(store->text("libraryProgressionType"), "pop-punk");
    EXPECT_EQ(store->text("libraryProgressionPattern"), "I-V-vi-IV");
    const auto id = store->text("libraryProgressionDeepLinkID");
    ASSERT_TRUE(id);
    EXPECT_TRUE(core::Uuid::fromText(*id));

    // the pattern falls back to the sequence, then to nothing; each link gets a new id
    handleChordURL("fretquill://open?progression=blues&root=E&sequence=I-IV-V", context);
    EXPECT_EQ(store->text("libraryProgressionPattern"), "I-IV-V");
    EXPECT_NE(store->text("libraryProgressionDeepLinkID"), id);
    handleChordURL("fretquill://open?progression=blues&root=E&pattern=", context);
    EXPECT_EQ(store->text("libraryProgressionPattern"), "");
}

TEST_F(LinkFixture, OpenHostWithoutBothProgressionAndRootDoesNothing) {
    for (const std::string link :
         {"fretquill://open?pattern=I-V-vi-IV", "fretquill://open?progression=pop&root=",
          "fretquill://open?progression=pop&root=H", "fretquill://open", "fretquill://open?"}) {
        handleChordURL(link, context);
        expectNothing(link);
    }
}

TEST(RootFromLinkTextTest, TypedRootsFollowTheLinkRule) {
    const std::vector<std::pair<std::string_view, std::optional<Note>>> roots{
        {"C♯", Note::Cs},    {"c#", Note::Cs},   {"c sharp", Note::Cs}, {"E-flat", Note::Ef},
        {"b♭", Note::Bf},    {"F𝄪", Note::Fds},  {"g", Note::G},        {"Bb", std::nullopt},
        {"H", std::nullopt}, {"", std::nullopt},
    };
    for (const auto& [text, note] : roots)
        EXPECT_EQ(rootFromLinkText(text), note) << text;
}

TEST_F(LinkFixture, CollectionsOpenByTitleOrIdentifierBuiltInFirst) {
    handleChordURL("fretquill://open?collection=Jazz%20Chords%20Collection", context);
    auto path = settle();
    ASSERT_EQ(path.size(), 1u);
    ASSERT_NE(path[0].chordCollection(), nullptr);
    EXPECT_EQ(path[0].chordCollection()->id,
              "com.kelvane.fretquill.collection.jazz-chords-collection");
    EXPECT_TRUE(path[0].chordCollection()->allowsUserCollectionCreation);

    personal::FretquillUserLibraryStore library(store);
    auto mine = library.createCollection("Campfire Songs");
    ASSERT_TRUE(mine);
    ASSERT_TRUE(library.addChord(Chord{Note::G, "major", 0}, mine->id));
    // a collection of one's own named like a pack loses to the pack
    ASSERT_TRUE(library.createCollection("Common Chords"));
    writtenKeys.clear();

    handleChordURL("fretquill://open?collection=com.kelvane.fretquill.collection.campfire-songs",
                   context);
    path = settle();
    ASSERT_EQ(path.size(), 1u);
    const auto* own = path[0].chordCollection();
    ASSERT_NE(own, nullptr);
    EXPECT_EQ(own->title, "Campfire Songs");
    EXPECT_EQ(own->subtitle, "This is a collection created by you");
    EXPECT_EQ(own->chords, std::vector<Chord>{Chord(Note::G, "major", 0)});

    handleSearchIdentifier("com.kelvane.fretquill.collection.common-chords", context);
    path = settle();
    ASSERT_EQ(path.size(), 1u);
    EXPECT_EQ(path[0].chordCollection()->subtitle, "Most commonly used major and minor chords");
    EXPECT_TRUE(writtenKeys.empty());
}

TEST_F(LinkFixture, ChordOfTheDayIgnoresTheSuffix) {
    const auto expected = core::TodayChordLibrary().chord(fixedDay, core::ChordCategory::beginner);
    ASSERT_TRUE(expected);
    handleSearchIdentifier("com.kelvane.fretquill.today-chord.whatever-was-indexed", context);
    EXPECT_EQ(settle(), Router::Path{chordRoute(*expected)});

    ASSERT_TRUE(personal::write(*store, personal::keys::todayChordCategory, "jazz"));
    const auto jazz = core::TodayChordLibrary().chord(fixedDay, core::ChordCategory::jazz);
    handleChordURL("fretquill://spotlight/com.kelvane.fretquill.today-chord.", context);
    EXPECT_EQ(settle(), Router::Path{chordRoute(*jazz)});
}

TEST_F(LinkFixture, UserActivitiesReachTheRightHandler) {
    const auto cMajor = Router::Path{chordRoute(Chord{Note::C, "major", 0})};
    const auto id = FretquillSpotlightItemFactory::chordIdentifier(Note::C, "major", 0);
    const std::vector<std::pair<UserActivity, bool>> activities{
        {{"NSUserActivityTypeBrowsingWeb", "https://fretquill.app/chords/c-major", {}}, true},
        {{"com.kelvane.frtqul.chord.view",
          std::nullopt,
          {{"url", "https://fretquill.app/chords/c-major"}}},
         true},
        {{"com.apple.corespotlightitem",
          std::nullopt,
          {{"kCSSearchableItemActivityIdentifier", id}}},
         true},
        {{"com.apple.corespotlightitem",
          std::nullopt,
          {{"kCSSearchableItemActivityIdentifier", 42}}},
         false},
        {{"com.apple.corespotlightitem", std::nullopt, nlohmann::json::array()}, false},
        {{"com.kelvane.frtqul.chord.view", std::nullopt, {{"url", 7}}}, false},
        {{"com.kelvane.frtqul.chord.view", std::nullopt, {}}, false},
        {{"com.kelvane.frtqul.other", "https://fretquill.app/chords/c-major", {}}, false},
    };
    for (const auto& [activity, opens] : activities) {
        router.setPath({});
        handleUserActivity(activity, context);
        EXPECT_EQ(settle(), opens ? cMajor : Router::Path{})
            << activity.type << " " << activity.userInfo.dump();
    }
}

TEST_F(LinkFixture, MalformedLinksAreSilence) {
    const std::vector<std::string> links{
        "",
        "fretquill://",
        "fretquill://spotlight",
        "fretquill://spotlight/",
        "fretquill://open?collection=",
        "fretquill://open?%zz=%zz&&&=",
        std::string("https://fretquill.app/chords/c-major\0x", 38),
        "\xff\xfe",
        "https://example.org/chords/c-major",
        "https://fretquill.app/chords/c-major/e/x3201",
        "::::",
        "fretquill://elsewhere/com.kelvane.fretquill.chord.guitar.standard.c.major",
    };
    for (const auto& link : links) {
        handleChordURL(link, context);
        expectNothing(link);
        router.setPath({});
    }
}

TEST_F(LinkFixture, WithoutAStoreProgressionLinksAndOwnCollectionsAreIgnored) {
    NavigationContext bare{router, nullptr, [] { return fixedDay; }};
    handleChordURL("fretquill://open?progression=pop&root=C", bare);
    handleSearchIdentifier("com.kelvane.fretquill.collection.campfire-songs", bare);
    EXPECT_TRUE(settle().empty());
    handleSearchIdentifier("com.kelvane.fretquill.collection.common-chords", bare);
    EXPECT_EQ(settle().size(), 1u);
}

} // namespace
} // namespace fq::navigation
