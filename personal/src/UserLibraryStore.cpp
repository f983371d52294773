// Favourites, collections and recent chords as JSON lists in the shared store.

#include "fq/personal/UserLibraryStore.h"

#include "fq/personal/PreferenceKeys.h"

#include <fq/core/ChordDataManager.h>
#include <fq/core/Diagnostics.h>
#include <fq/core/Text.h>
#include <fq/core/Uuid.h>

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

namespace fq::personal {
namespace {

using core::Chord;

/// A list the way it was found under its key: absent, decoded, or unreadable.
template <typename Item>
struct StoredList {
    std::vector<Item> items;
    bool unreadable = false;
};

std::optional<std::vector<Chord>> decodeChords(const nlohmann::json& json) {
    if (!json.is_array()) return std::nullopt;
    std::vector<Chord> chords;
    for (const auto& item : json) {
        auto chord = core::chordFromJson(item);
        if (!chord) return std::nullopt;
        chords.push_back(std::move(*chord));
    }
    return chords;
}

std::optional<std::vector<ChordCollection>> decodeCollections(const nlohmann::json& json) {
    if (!isCollectionList(json)) return std::nullopt;
    std::vector<ChordCollection> collections;
    for (const auto& item : json)
        collections.push_back({item["id"].get<std::string>(), item["title"].get<std::string>(),
                               item["imageName"].get<std::string>(),
                               *decodeChords(item["chords"])});
    return collections;
}

template <typename Item>
auto decoderFor() {
    if constexpr (std::is_same_v<Item, Chord>)
        return decodeChords;
    else
        return decodeCollections;
}

template <typename Item>
StoredList<Item> decodeList(const std::optional<StoreValue>& stored) {
    if (!stored) return {};
    const auto* bytes = std::get_if<core::Bytes>(&*stored);
    if (!bytes) return {{}, true};
    const auto json = nlohmann::json::parse(bytes->begin(), bytes->end(), nullptr, false);
    if (json.is_discarded()) return {{}, true};
    auto items = decoderFor<Item>()(json);
    if (!items) return {{}, true};
    return {std::move(*items), false};
}

template <typename Item>
nlohmann::ordered_json encode(const std::vector<Item>& items) {
    auto array = nlohmann::ordered_json::array();
    for (const auto& item : items)
        array.push_back(toJson(item));
    return array;
}

template <typename Item>
std::vector<Item> readList(const SharedStore& store, std::string_view key) {
    auto list = decodeList<Item>(store.value(key));
    if (list.unreadable)
        diagnostic(fmt::format(
            "The list under \"{}\" cannot be read and is shown as empty; it is kept until the "
            "next change saves it under a backup key",
            key));
    return std::move(list.items);
}

/// Runs `change` on the list under `key` inside one transaction and stores the result.
/// Unreadable bytes are first saved under "<key>.backup" (or .backup.2, … when an
/// earlier backup is there), so no change ever destroys them.
template <typename Item, typename Change>
tl::expected<void, Error> modifyList(SharedStore& store, std::string_view key, Change change) {
    std::optional<Error> refused;
    auto done = store.update([&](SharedStore::Transaction& transaction) {
        const auto stored = transaction.value(key);
        auto list = decodeList<Item>(stored);
        if (list.unreadable) {
            std::string backup = std::string(key) + ".backup";
            for (int n = 2; transaction.value(backup); ++n)
                backup = fmt::format("{}.backup.{}", key, n);
            if (!transaction.set(backup, *stored)) return;
            diagnostic(
                fmt::format("Saved the unreadable list under \"{}\" as \"{}\"", key, backup));
        }
        if (auto result = change(list.items); !result) {
            refused = result.error();
            return;
        }
        const auto text = encode(list.items).dump();
        transaction.set(key, core::Bytes(text.begin(), text.end()));
    });
    if (!done) return done;
    if (refused) return tl::unexpected(*refused);
    return {};
}

std::string newCollectionID() {
    return "user-" + core::Uuid::random().text();
}

std::string chordIdentifier(const Chord& chord) {
    const auto name =
        core::ChordDataManager::shared().name(chord.rootNote, chord.chordType, chord.variant);
    return name.empty() ? std::string(core::rawValue(chord.rootNote)) + " " + chord.chordType
                        : name;
}

using Done = tl::expected<void, Error>;

template <typename Change>
auto inCollection(std::string_view reference, Change change) {
    return [reference, change](std::vector<ChordCollection>& collections) -> Done {
        const auto index = collectionIndex(collections, reference);
        if (!index) return tl::unexpected(index.error());
        return change(collections, collections.begin() + static_cast<std::ptrdiff_t>(*index));
    };
}

} // namespace

nlohmann::ordered_json toJson(const ChordCollection& collection) {
    auto chords = nlohmann::ordered_json::array();
    for (const auto& chord : collection.chords)
        chords.push_back(core::toJson(chord));
    return {{"id", collection.id},
            {"title", collection.title},
            {"imageName", collection.imageName},
            {"chords", chords}};
}

Error FretquillUserLibraryStoreError::chordNotFound(std::string_view identifier) {
    return {fmt::format("Couldn’t find the chord with identifier \"{}\"", identifier),
            ErrorKind::notFound};
}
Error FretquillUserLibraryStoreError::collectionNotFound(std::string_view identifier) {
    return {fmt::format("Couldn’t find the collection with identifier \"{}\"", identifier),
            ErrorKind::notFound};
}
Error FretquillUserLibraryStoreError::emptyCollectionName() {
    return {"Enter a collection name.", ErrorKind::refused};
}

tl::expected<std::size_t, Error> collectionIndex(std::span<const ChordCollection> collections,
                                                 std::string_view reference) {
    const auto indexWhere = [&](auto matches) -> std::optional<tl::expected<std::size_t, Error>> {
        std::optional<std::size_t> found;
        for (std::size_t i = 0; i < collections.size(); ++i) {
            if (!matches(collections[i])) continue;
            if (found)
                return tl::unexpected(Error{
                    fmt::format("More than one collection is called \"{}\"; name it by its id",
                                core::text::trimmed(reference)),
                    ErrorKind::refused});
            found = i;
        }
        if (!found) return std::nullopt;
        return *found;
    };
    // ids are unique, so an id never needs the title rules
    for (std::size_t i = 0; i < collections.size(); ++i)
        if (collections[i].id == reference) return i;
    const auto title = core::text::trimmed(reference);
    if (auto exact = indexWhere([&](const auto& c) { return c.title == title; })) return *exact;
    const auto folded = core::text::asciiUpper(title);
    if (auto loose =
            indexWhere([&](const auto& c) { return core::text::asciiUpper(c.title) == folded; }))
        return *loose;
    return tl::unexpected(FretquillUserLibraryStoreError::collectionNotFound(reference));
}

std::vector<Chord> FretquillUserLibraryStore::favoriteChords() const {
    return readList<Chord>(*store_, keys::favouritedChords.name);
}

tl::expected<void, Error> FretquillUserLibraryStore::setFavorite(const Chord& chord,
                                                                 bool isFavorite) {
    return modifyList<Chord>(
        *store_, keys::favouritedChords.name, [&](std::vector<Chord>& favourites) -> Done {
            const auto found = std::find(favourites.begin(), favourites.end(), chord);
            if (isFavorite && found == favourites.end()) favourites.push_back(chord);
            if (!isFavorite) {
                if (found == favourites.end())
                    return tl::unexpected(
                        FretquillUserLibraryStoreError::chordNotFound(chordIdentifier(chord)));
                favourites.erase(found);
            }
            return {};
        });
}

std::vector<ChordCollection> FretquillUserLibraryStore::collections() const {
    return readList<ChordCollection>(*store_, keys::chordCollections.name);
}

tl::expected<ChordCollection, Error>
FretquillUserLibraryStore::collection(std::string_view idOrTitle) const {
    auto all = collections();
    return collectionIndex(all, idOrTitle).map([&](std::size_t index) { return all[index]; });
}

tl::expected<ChordCollection, Error>
FretquillUserLibraryStore::createCollection(std::string_view name) {
    const auto title = core::text::trimmed(name);
    if (title.empty()) return tl::unexpected(FretquillUserLibraryStoreError::emptyCollectionName());
    ChordCollection collection{
        newCollectionID(), std::string(title), std::string(config::userCollectionImageName), {}};
    auto done = modifyList<ChordCollection>(*store_, keys::chordCollections.name,
                                            [&](std::vector<ChordCollection>& collections) -> Done {
                                                collections.push_back(collection);
                                                return {};
                                            });
    if (!done) return tl::unexpected(done.error());
    return collection;
}

tl::expected<void, Error> FretquillUserLibraryStore::renameCollection(std::string_view id,
                                                                      std::string_view name) {
    const auto title = core::text::trimmed(name);
    if (title.empty()) return tl::unexpected(FretquillUserLibraryStoreError::emptyCollectionName());
    return modifyList<ChordCollection>(*store_, keys::chordCollections.name,
                                       inCollection(id, [&](auto&, auto found) -> Done {
                                           found->title = std::string(title);
                                           return {};
                                       }));
}

tl::expected<void, Error> FretquillUserLibraryStore::deleteCollection(std::string_view id) {
    return modifyList<ChordCollection>(*store_, keys::chordCollections.name,
                                       inCollection(id, [](auto& collections, auto found) -> Done {
                                           collections.erase(found);
                                           return {};
                                       }));
}

tl::expected<void, Error> FretquillUserLibraryStore::addChord(const Chord& chord,
                                                              std::string_view collectionID) {
    return modifyList<ChordCollection>(*store_, keys::chordCollections.name,
                                       inCollection(collectionID, [&](auto&, auto found) -> Done {
                                           auto& chords = found->chords;
                                           if (std::find(chords.begin(), chords.end(), chord) ==
                                               chords.end())
                                               chords.push_back(chord);
                                           return {};
                                       }));
}

tl::expected<void, Error> FretquillUserLibraryStore::removeChord(const Chord& chord,
                                                                 std::string_view collectionID) {
    return modifyList<ChordCollection>(
        *store_, keys::chordCollections.name,
        inCollection(collectionID, [&](auto&, auto found) -> Done {
            auto& chords = found->chords;
            const auto at = std::find(chords.begin(), chords.end(), chord);
            if (at == chords.end())
                return tl::unexpected(
                    FretquillUserLibraryStoreError::chordNotFound(chordIdentifier(chord)));
            chords.erase(at);
            return {};
        }));
}

std::vector<Chord> FretquillUserLibraryStore::recentChords() const {
    return readList<Chord>(*store_, keys::recentlyViewedChords.name);
}

tl::expected<void, Error> FretquillUserLibraryStore::addRecentChord(const Chord& chord) {
    return modifyList<Chord>(*store_, keys::recentlyViewedChords.name,
                             [&](std::vector<Chord>& recent) -> Done {
                                 std::erase(recent, chord);
                                 recent.insert(recent.begin(), chord);
                                 if (recent.size() > config::recentChordLimit)
                                     recent.resize(config::recentChordLimit);
                                 return {};
                             });
}

} // namespace fq::personal
