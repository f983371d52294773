#pragma once

// The search index: its rebuild rule, batched feeding, and the SQLite FTS5 index behind `search`.

#include "fq/navigation/SpotlightItemFactory.h"

#include <fq/core/Chord.h>
#include <fq/core/Error.h>
#include <fq/personal/SharedStore.h>

#include <tl/expected.hpp>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace fq::navigation {

namespace config {
inline constexpr std::string_view chordsDomain = "fretquill.chords";
inline constexpr std::string_view collectionsDomain = "fretquill.chordCollections";
/// The chord of the day lives apart, so that refreshing it leaves the library alone.
inline constexpr std::string_view todayChordDomain = "fretquill.todayChord";
inline constexpr std::int64_t indexSchemaVersion = 4;
inline constexpr std::int64_t chordLibraryVersion = 1;
inline constexpr std::size_t indexBatchSize = 200;
/// The index's own database inside cacheDirectory(): a cache, rebuilt when lost.
inline constexpr std::string_view searchIndexFile = "search-index.sqlite";
/// The layout of that file's tables; a file of another layout is rebuilt.
inline constexpr std::int64_t searchIndexLayout = 3;
} // namespace config

/// A record as the index holds it: with the domain it is deleted by.
struct SearchableItem {
    std::string domain;
    FretquillSearchIndexRecord record;
};

namespace FretquillSpotlightItemFactory {
SearchableItem item(const FretquillSearchIndexRecord& record);
}

/// What the indexer needs of a search index.
class SearchIndex {
public:
    virtual ~SearchIndex() = default;
    virtual tl::expected<void, Error> deleteDomains(std::span<const std::string_view> domains) = 0;
    virtual tl::expected<void, Error> deleteItems(std::span<const std::string> ids) = 0;
    virtual tl::expected<void, Error>
    indexSearchableItems(std::span<const SearchableItem> items) = 0;
};

/// A full-text index in its own SQLite file (FTS5, "unicode61" with "#" and "/" as
/// word characters, so "E7#9" and "6/9" stay whole). One connection; not for
/// several threads at once.
class SqliteSearchIndex final : public SearchIndex {
public:
    static tl::expected<std::unique_ptr<SqliteSearchIndex>, Error>
    open(const std::filesystem::path& file);
    /// The default file in the cache folder, which is created when missing.
    static tl::expected<std::unique_ptr<SqliteSearchIndex>, Error> openDefault();
    ~SqliteSearchIndex() override;

    tl::expected<void, Error> deleteDomains(std::span<const std::string_view> domains) override;
    tl::expected<void, Error> deleteItems(std::span<const std::string> ids) override;
    tl::expected<void, Error> indexSearchableItems(std::span<const SearchableItem> items) override;
    /// Best hits first for what a person types ("F#m7", "Bb maj7", "c sharp minor",
    /// "half dim", "jazz"); empty for a query with no words or no hit.
    std::vector<FretquillSearchIndexRecord> search(std::string_view query, std::size_t limit = 20);
    /// Items held; 0 for a new or emptied file, which then needs a full rebuild.
    std::size_t count();

private:
    struct State;
    explicit SqliteSearchIndex(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

/// The FTS5 query for what a person typed: each word as a quoted prefix, all words
/// required, the typed form or the spelled-out form ("F#m7" or "F sharp minor 7").
/// Empty when nothing searchable is left.
std::string ftsQuery(std::string_view typed);

/// What decides whether the stored index is still right for this program.
struct IndexEnvironment {
    std::string buildVersion; ///< short version and build number, e.g. "0.1.0 (42)"
    std::string languageCode; ///< e.g. "en"
};

/// The language of LC_ALL, LC_MESSAGES or LANG ("de_DE.UTF-8" → "de"); "en" when unset.
std::string currentLanguageCode();

/// Feeds the index: everything, the collections alone, the chord of the day, or
/// deletions. A serial object: one operation at a time, whatever the thread.
class FretquillSpotlightIndexer {
public:
    FretquillSpotlightIndexer(SearchIndex& index, std::shared_ptr<personal::SharedStore> store,
                              IndexEnvironment environment,
                              std::size_t batchSize = config::indexBatchSize);

    /// True unless the four stored keys match this program's schema, build,
    /// language and chord library.
    bool needsFullReindex() const;
    /// Deletes the program's domains, indexes every chord and collection (and the
    /// chord of the day when given) in batches, then stores the four keys.
    void reindexEverything(const std::optional<core::Chord>& todayChord = std::nullopt);
    void reindexCollections();
    void indexTodayChord(const core::Chord& chord);
    void deleteAll();
    void deleteItems(std::span<const std::string> ids);
    /// Every record of a full rebuild, chords first, then collections.
    std::vector<FretquillSearchIndexRecord> allRecords() const;

private:
    std::vector<FretquillSearchIndexRecord> collectionRecords() const;
    bool indexInBatches(const std::vector<FretquillSearchIndexRecord>& records,
                        std::string_view failure);

    SearchIndex& index_;
    std::shared_ptr<personal::SharedStore> store_;
    IndexEnvironment environment_;
    std::size_t batchSize_;
    mutable std::mutex serial_;
};

} // namespace fq::navigation
