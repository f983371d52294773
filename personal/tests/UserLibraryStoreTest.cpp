// Favourites, collections and recent chords: their rules, their messages, and bytes that never
// get lost.

#include "fq/personal/UserLibraryStore.h"

#include "TemporaryStore.h"
#include "fq/personal/PreferenceKeys.h"

#include <fq/core/CapturedDiagnostics.h>

namespace fq::personal {
namespace {

using core::Chord;
using core::Note;

const Chord cMajor{Note::C, "major", 0};
const Chord aMinor{Note::A, "minor", 0};
const Chord g7{Note::G, "dominant 7th", 0};

class UserLibraryStoreTest : public TemporaryStoreTest {
protected:
    FretquillUserLibraryStore library() { return FretquillUserLibraryStore(store_); }
};

TEST_F(UserLibraryStoreTest, FavouritesKeepTheirOrderAndNeverRepeat) {
    auto lib = library();
    ASSERT_TRUE(lib.setFavorite(aMinor, true));
    ASSERT_TRUE(lib.setFavorite(cMajor, true));
    ASSERT_TRUE(lib.setFavorite(aMinor, true));
    EXPECT_EQ(lib.favoriteChords(), (std::vector<Chord>{aMinor, cMajor}));
    ASSERT_TRUE(lib.setFavorite(aMinor, false));
    EXPECT_EQ(FretquillUserLibraryStore(openStore()).favoriteChords(),
              (std::vector<Chord>{cMajor}));

    const auto absent = lib.setFavorite(g7, false);
    ASSERT_FALSE(absent);
    EXPECT_EQ(absent.error().message, "Couldn’t find the chord with identifier \"G dominant 7th\"");
    EXPECT_EQ(read(*store_, keys::favouritedChords).dump(),
              R"([{"chordType":"major","rootNote":"C","variant":0}])");
}

TEST_F(UserLibraryStoreTest, CollectionsFromCreationToDeletion) {
    auto lib = library();
    const auto jazz = lib.createCollection("  Jazz standards ");
    ASSERT_TRUE(jazz);
    EXPECT_EQ(jazz->title, "Jazz standards");
    EXPECT_EQ(jazz->id.rfind("user-", 0), 0u);
    EXPECT_EQ(jazz->id.size(), 5u + 36u);
    EXPECT_EQ(jazz->imageName, config::userCollectionImageName);
    const auto campfire = lib.createCollection("Campfire");
    ASSERT_TRUE(campfire);
    EXPECT_NE(campfire->id, jazz->id);

    ASSERT_TRUE(lib.addChord(g7, jazz->id));
    ASSERT_TRUE(lib.addChord(cMajor, jazz->id));
    ASSERT_TRUE(lib.addChord(g7, jazz->id));
    ASSERT_TRUE(lib.removeChord(cMajor, jazz->id));
    ASSERT_TRUE(lib.renameCollection(jazz->id, "Bebop"));
    auto collections = lib.collections();
    ASSERT_EQ(collections.size(), 2u);
    EXPECT_EQ(collections[0], (ChordCollection{jazz->id, "Bebop", jazz->imageName, {g7}}));

    ASSERT_TRUE(lib.deleteCollection(jazz->id));
    EXPECT_EQ(lib.collections(), (std::vector<ChordCollection>{*campfire}));
}

TEST_F(UserLibraryStoreTest, MistakesAreRefusedWithTheirMessagesAndChangeNothing) {
    auto lib = library();
    const auto campfire = lib.createCollection("Campfire");
    ASSERT_TRUE(campfire);
    const auto before = store_->bytes(keys::chordCollections.name);

    const auto message = [](const auto& result) {
        return result ? std::string("succeeded") : result.error().message;
    };
    EXPECT_EQ(message(lib.createCollection("")), "Enter a collection name.");
    EXPECT_EQ(message(lib.createCollection(" \t ")), "Enter a collection name.");
    EXPECT_EQ(message(lib.renameCollection(campfire->id, "  ")), "Enter a collection name.");
    EXPECT_EQ(message(lib.renameCollection("user-nope", "x")),
              "Couldn’t find the collection with identifier \"user-nope\"");
    EXPECT_EQ(message(lib.deleteCollection("")),
              "Couldn’t find the collection with identifier \"\"");
    EXPECT_EQ(message(lib.addChord(cMajor, "user-nope")),
              "Couldn’t find the collection with identifier \"user-nope\"");
    EXPECT_EQ(message(lib.removeChord(Chord{Note::C, "major", 1}, campfire->id)),
              "Couldn’t find the chord with identifier \"C major/E\"");
    EXPECT_EQ(store_->bytes(keys::chordCollections.name), before);
}

TEST_F(UserLibraryStoreTest, CollectionsAreNamedByIdOrByTitleAsTyped) {
    auto lib = library();
    const auto campfire = lib.createCollection("Campfire");
    ASSERT_TRUE(campfire);
    for (const auto* title : {"Jazz", "jazz", "Blues", "Blues"})
        ASSERT_TRUE(lib.createCollection(title));
    const std::vector<std::pair<std::string, std::string>> references{
        {campfire->id, "Campfire"},
        {" Campfire ", "Campfire"},
        {"CAMPFIRE", "Campfire"},
        {"jazz", "jazz"}, // an exact title wins over one that differs only in case
        {"JAZZ", "More than one collection is called \"JAZZ\"; name it by its id"},
        {"Blues", "More than one collection is called \"Blues\"; name it by its id"},
        {"user-", "Couldn’t find the collection with identifier \"user-\""},
    };
    for (const auto& [reference, expected] : references) {
        const auto found = lib.collection(reference);
        EXPECT_EQ(found ? found->title : found.error().message, expected) << reference;
    }
    ASSERT_TRUE(lib.addChord(g7, "campfire"));
    ASSERT_TRUE(lib.renameCollection("campfire", "Fireside"));
    EXPECT_EQ(lib.collection(campfire->id)->chords, std::vector<Chord>{g7});
    EXPECT_EQ(lib.deleteCollection("Blues").error().kind, ErrorKind::refused);
    EXPECT_EQ(lib.collections().size(), 5u);
}

TEST_F(UserLibraryStoreTest, RecentChordsNewestFirstWithoutRepeatsAndAtMostThirty) {
    auto lib = library();
    for (const auto& chord : {cMajor, aMinor, g7, cMajor})
        ASSERT_TRUE(lib.addRecentChord(chord));
    EXPECT_EQ(lib.recentChords(), (std::vector<Chord>{cMajor, g7, aMinor}));
    for (int variant = 0; variant < 40; ++variant)
        ASSERT_TRUE(lib.addRecentChord(Chord{Note::D, "11", variant}));
    const auto recent = lib.recentChords();
    ASSERT_EQ(recent.size(), 30u);
    EXPECT_EQ(recent.front(), (Chord{Note::D, "11", 39}));
    EXPECT_EQ(recent.back(), (Chord{Note::D, "11", 10}));
}

TEST_F(UserLibraryStoreTest, UnreadableBytesAreNeverDestroyed) {
    auto lib = library();
    const auto garbage = bytesOf("[{\"rootNote\":\"C\",\"chordType\":\"maj");
    ASSERT_TRUE(store_->set(keys::favouritedChords.name, garbage));

    CapturedDiagnostics diagnostics;
    EXPECT_TRUE(lib.favoriteChords().empty());
    const auto printed = diagnostics.text();
    EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 1) << printed;
    EXPECT_EQ(store_->bytes(keys::favouritedChords.name), garbage)
        << "reading leaves the bytes alone";

    ASSERT_TRUE(lib.setFavorite(aMinor, true));
    EXPECT_EQ(store_->bytes("favouritedChords.backup"), garbage);
    EXPECT_EQ(lib.favoriteChords(), (std::vector<Chord>{aMinor}));

    // a second breakage keeps the first backup and takes the next name
    const StoreValue wrongType = std::int64_t{7};
    ASSERT_TRUE(store_->set(keys::favouritedChords.name, wrongType));
    ASSERT_TRUE(lib.setFavorite(cMajor, true));
    EXPECT_EQ(store_->bytes("favouritedChords.backup"), garbage);
    EXPECT_EQ(store_->value("favouritedChords.backup.2"), std::optional<StoreValue>(wrongType));

    // collections whose chords name no note are unreadable too, and kept the same way
    const auto badCollections = bytesOf(
        R"([{"id":"user-1","title":"x","imageName":"y","chords":[{"rootNote":"H","chordType":"major"}]}])");
    ASSERT_TRUE(store_->set(keys::chordCollections.name, badCollections));
    EXPECT_TRUE(lib.collections().empty());
    ASSERT_TRUE(lib.createCollection("Fresh"));
    EXPECT_EQ(store_->bytes("chordCollections.backup"), badCollections);
}

} // namespace
} // namespace fq::personal
