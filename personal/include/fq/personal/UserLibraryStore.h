#pragma once

// The person's favourites, collections and recent chords, kept as JSON lists in the shared store.

#include "fq/personal/SharedStore.h"

#include <fq/core/Chord.h>

#include <nlohmann/json.hpp>

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace fq::personal {

/// A person's named list of chords.
struct ChordCollection {
    std::string id;
    std::string title;
    std::string imageName;
    std::vector<core::Chord> chords;

    friend bool operator==(const ChordCollection&, const ChordCollection&) = default;
};

nlohmann::ordered_json toJson(const ChordCollection& collection);

/// The library store's failures, with the messages a person sees.
struct FretquillUserLibraryStoreError {
    static Error chordNotFound(std::string_view identifier);
    static Error collectionNotFound(std::string_view identifier);
    static Error emptyCollectionName();
};

/// Which of `collections` a person means by `reference`: the one with that id, else the one
/// with that title (trimmed, then ignoring ASCII case). A title that several collections
/// share names none of them.
tl::expected<std::size_t, Error> collectionIndex(std::span<const ChordCollection> collections,
                                                 std::string_view reference);

namespace config {
/// How many recently viewed chords are kept.
inline constexpr std::size_t recentChordLimit = 30;
/// What a person's collection shows until they choose a picture.
inline constexpr std::string_view userCollectionImageName = "user-collection";
} // namespace config

/// Favourites, collections and recent chords, as JSON under their keys of the
/// shared store. Every change reads, modifies and writes its list inside one store
/// transaction, so changes from several processes at once are all kept. A list
/// whose stored bytes do not decode reads as empty, and the bytes are saved under
/// a backup key before a change replaces them.
class FretquillUserLibraryStore {
public:
    explicit FretquillUserLibraryStore(std::shared_ptr<SharedStore> store)
        : store_(std::move(store)) {}

    std::vector<core::Chord> favoriteChords() const;
    /// Adding a favourite twice, or removing one that is not there, changes nothing;
    /// removing an absent one reports chordNotFound.
    tl::expected<void, Error> setFavorite(const core::Chord& chord, bool isFavorite);

    std::vector<ChordCollection> collections() const;
    /// The collection named by its id or its title (see collectionIndex()).
    tl::expected<ChordCollection, Error> collection(std::string_view idOrTitle) const;
    /// A new collection with a "user-" identifier; the name is trimmed and may not be empty.
    tl::expected<ChordCollection, Error> createCollection(std::string_view name);
    // Each of these names its collection by id or by title.
    tl::expected<void, Error> renameCollection(std::string_view id, std::string_view name);
    tl::expected<void, Error> deleteCollection(std::string_view id);
    /// Adding a chord the collection holds already changes nothing.
    tl::expected<void, Error> addChord(const core::Chord& chord, std::string_view collectionID);
    tl::expected<void, Error> removeChord(const core::Chord& chord, std::string_view collectionID);

    /// Newest first, without repeats, at most config::recentChordLimit.
    std::vector<core::Chord> recentChords() const;
    tl::expected<void, Error> addRecentChord(const core::Chord& chord);

private:
    std::shared_ptr<SharedStore> store_;
};

} // namespace fq::personal
