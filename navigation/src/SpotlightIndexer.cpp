// Feeding and rebuilding the search index, and the SQLite FTS5 index itself.

#include "fq/navigation/SpotlightIndexer.h"

#include "Unicode.h"
#include "fq/navigation/ChordURLParser.h"
#include "fq/navigation/LinkHandler.h"

// the SQLite C API is wrapped once, in the personal store; the index uses that wrapper
#include <fq/core/Diagnostics.h>
#include <fq/documents/DataLocations.h>
#include <fq/documents/Sqlite.h>
#include <fq/personal/PreferenceKeys.h>

#include <algorithm>
#include <cstdlib>

namespace fq::navigation {
namespace {

namespace sqlite = documents::sqlite;
namespace keys = personal::keys;

std::string replaceAll(std::string text, std::string_view from, std::string_view to) {
    for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

std::string lines(const std::vector<std::string>& pieces) {
    std::string text;
    for (const auto& piece : pieces)
        text += piece + "\n";
    return text;
}

/// The signs a keyboard has: "F♯m7" → "F#m7", "B♭" → "Bb".
std::string asciiSigns(std::string text) {
    return replaceAll(replaceAll(replaceAll(std::move(text), "𝄪", "##"), "♯", "#"), "♭", "b");
}

Error errorOf(const sqlite::Failure& failure) {
    return Error{failure.message};
}

tl::expected<void, Error> removeItem(sqlite::Connection& connection, const std::string& id) {
    for (const char* sql :
         {"DELETE FROM items WHERE rowid IN (SELECT row FROM item_rows WHERE id = ?1)",
          "DELETE FROM item_rows WHERE id = ?1"}) {
        auto query = connection.prepare(sql);
        if (!query) return tl::unexpected(errorOf(query.error()));
        if (auto done = query->bindText(1, id).run(); !done)
            return tl::unexpected(errorOf(done.error()));
    }
    return {};
}

// bm25 weights by column: title, symbol, aliases, body. A word in the name or the
// symbol counts most, the other names and search words next, the description least;
// among equally good hits the higher priority goes first. The priority comes from the
// plain table, as reading it from the text table costs a look-up per hit, and the
// records are read only for the rows that are kept, so that the sort stays small.
constexpr const char* searchSql =
    "SELECT r.exact, r.loose, r.priority, r.record FROM (SELECT items.rowid AS hit, "
    "bm25(items, 10.0, 10.0, 4.0, 1.0) - p.priority / 400.0 AS score FROM items "
    "JOIN item_rows p ON p.row = items.rowid WHERE items MATCH ?1 ORDER BY score LIMIT ?2) "
    "JOIN item_rows r ON r.row = hit ORDER BY score";

/// What was typed, in the forms a record's names are compared with.
struct TypedForms {
    std::string asTyped;  ///< trimmed
    std::string squeezed; ///< without blanks: "Bb maj7" → "Bbmaj7"
    std::string folded;   ///< lower case, signs and "maj"/"min" spelled out
    std::string lower;
    explicit TypedForms(std::string_view typed)
        : asTyped(unicode::trimmed(typed)), squeezed(replaceAll(asTyped, " ", "")),
          folded(unicode::lowerCased(FretquillSpotlightItemFactory::normalisedChordName(asTyped))),
          lower(unicode::lowerCased(asTyped)) {}
};

/// The forms a record is compared with when it ranks, one per line, kept beside it so
/// that ranking needs neither its JSON nor case folding: the exact forms (the symbol,
/// with keyboard signs too, and a chord's keywords) and the loose ones (the names,
/// aliases and keywords in lower case).
struct NameForms {
    std::string exact;
    std::string loose;
};

NameForms nameForms(const FretquillSearchIndexRecord& record) {
    std::vector<std::string> exact;
    if (record.symbol) exact = {*record.symbol, asciiSigns(*record.symbol)};
    if (record.kind == FretquillSearchIndexRecord::Kind::chord)
        exact.insert(exact.end(), record.keywords.begin(), record.keywords.end());
    std::vector<std::string> loose{unicode::lowerCased(record.title),
                                   unicode::lowerCased(record.displayName)};
    for (const auto* list : {&record.aliases, &record.keywords})
        for (const auto& name : *list)
            loose.push_back(unicode::lowerCased(name));
    return {lines(exact), lines(loose)};
}

bool hasLine(std::string_view lines, std::string_view wanted) {
    while (!lines.empty()) {
        const auto end = lines.find('\n');
        if (lines.substr(0, end) == wanted) return true;
        if (end == std::string_view::npos) break;
        lines.remove_prefix(end + 1);
    }
    return false;
}

/// How exactly a record names what was typed: 2 for the typed symbol itself
/// ("Cm" is C minor, not C major's "CM"), 1 for a name equal but for case and
/// spelled-out signs, 0 for a mere word match.
int exactness(std::string_view exact, std::string_view loose, const TypedForms& typed) {
    if (hasLine(exact, typed.asTyped) || hasLine(exact, typed.squeezed)) return 2;
    if (hasLine(loose, typed.folded) || hasLine(loose, typed.lower)) return 1;
    return 0;
}

/// The chord of the day as its own item: whatever its suffix, the identifier opens
/// the day's chord, so the suffix only keeps it readable.
FretquillSearchIndexRecord todayChordRecord(const core::Chord& chord) {
    auto record = FretquillSpotlightItemFactory::chordRecord(chord);
    record.id = std::string(config::todayChordIdentifierPrefix) +
                ChordURLParser::identifierSlug(core::rawValue(chord.rootNote)) + "." +
                ChordURLParser::identifierSlug(chord.chordType);
    record.title = "Today's Chord: " + record.title;
    record.appDeepLink = "fretquill://spotlight/" + record.id;
    record.priority = 0; // never before the chord's own record
    return record;
}

} // namespace

namespace FretquillSpotlightItemFactory {
SearchableItem item(const FretquillSearchIndexRecord& record) {
    const bool today = record.id.starts_with(config::todayChordIdentifierPrefix);
    const auto domain = today ? config::todayChordDomain
                        : record.kind == FretquillSearchIndexRecord::Kind::chord
                            ? config::chordsDomain
                            : config::collectionsDomain;
    return {std::string(domain), record};
}
} // namespace FretquillSpotlightItemFactory

std::string ftsQuery(std::string_view typed) {
    if (!unicode::isValidUtf8(typed)) return {};
    const auto phrase = [](const std::string& text) {
        std::string result;
        for (const auto& word : unicode::words(text)) {
            std::string cleaned;
            for (const char c : word)
                if (c != '"') cleaned += c;
            // a word of punctuation alone has no token and would fail the whole query
            const bool searchable = std::any_of(cleaned.begin(), cleaned.end(), [](char c) {
                const auto byte = static_cast<unsigned char>(c);
                return byte >= 0x80 || std::isalnum(byte) || c == '#' || c == '/';
            });
            if (!searchable) continue;
            if (!result.empty()) result += " ";
            result += "\"" + cleaned + "\"*";
        }
        return result;
    };
    const auto asTyped = phrase(asciiSigns(std::string(typed)));
    const auto spelled = phrase(FretquillSpotlightItemFactory::normalisedChordName(typed));
    if (asTyped.empty()) return spelled;
    if (spelled.empty() || spelled == asTyped) return asTyped;
    return "(" + asTyped + ") OR (" + spelled + ")";
}

std::string currentLanguageCode() {
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(name);
        if (!value || !*value) continue;
        std::string code(value);
        code = code.substr(0, code.find_first_of("_.@"));
        if (code == "C" || code == "POSIX" || code.empty()) return "en";
        return code;
    }
    return "en";
}

struct SqliteSearchIndex::State {
    sqlite::Connection connection;
};

SqliteSearchIndex::SqliteSearchIndex(std::unique_ptr<State> state) : state_(std::move(state)) {}
SqliteSearchIndex::~SqliteSearchIndex() = default;

tl::expected<std::unique_ptr<SqliteSearchIndex>, Error>
SqliteSearchIndex::open(const std::filesystem::path& file) {
    auto connection = sqlite::Connection::open(file);
    if (!connection) return tl::unexpected(errorOf(connection.error()));
    // a file of an older layout is only a cache: it is dropped and built again
    const auto layout = connection->integer("PRAGMA user_version");
    if (layout && *layout != config::searchIndexLayout) {
        if (auto dropped =
                connection->execute("DROP TABLE IF EXISTS items; DROP TABLE IF EXISTS item_rows;");
            !dropped)
            return tl::unexpected(errorOf(dropped.error()));
    }
    const std::string schema =
        "PRAGMA journal_mode=WAL;"
        // prefix indexes, as a query grows letter by letter from one letter up
        "CREATE VIRTUAL TABLE IF NOT EXISTS items USING fts5(title, symbol, aliases, body, "
        "prefix = '1 2 3', tokenize = \"unicode61 tokenchars '#/'\");"
        // the record and the keys it is found, ranked and deleted by live beside the text,
        // keyed by the text's row, so a hit is one look-up and an id or a domain an index
        "CREATE TABLE IF NOT EXISTS item_rows (row INTEGER PRIMARY KEY, id TEXT NOT NULL UNIQUE, "
        "domain TEXT NOT NULL, priority INTEGER NOT NULL, exact TEXT NOT NULL, loose TEXT NOT "
        "NULL, record TEXT NOT NULL);"
        "CREATE INDEX IF NOT EXISTS item_rows_domain ON item_rows (domain);"
        "PRAGMA user_version = " +
        std::to_string(config::searchIndexLayout) + ";";
    const auto created = connection->execute(schema.c_str());
    if (!created) return tl::unexpected(errorOf(created.error()));
    connection->setBusyTimeout(5000);
    return std::unique_ptr<SqliteSearchIndex>(
        new SqliteSearchIndex(std::make_unique<State>(State{std::move(*connection)})));
}

tl::expected<std::unique_ptr<SqliteSearchIndex>, Error> SqliteSearchIndex::openDefault() {
    const auto folder = documents::cacheDirectory();
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) return tl::unexpected(Error{error.message()});
    return open(folder / config::searchIndexFile);
}

tl::expected<void, Error>
SqliteSearchIndex::deleteDomains(std::span<const std::string_view> domains) {
    for (const auto domain : domains) {
        for (const char* sql :
             {"DELETE FROM items WHERE rowid IN (SELECT row FROM item_rows WHERE domain = ?1)",
              "DELETE FROM item_rows WHERE domain = ?1"}) {
            auto query = state_->connection.prepare(sql);
            if (!query) return tl::unexpected(errorOf(query.error()));
            if (auto done = query->bindText(1, domain).run(); !done)
                return tl::unexpected(errorOf(done.error()));
        }
    }
    return {};
}

tl::expected<void, Error> SqliteSearchIndex::deleteItems(std::span<const std::string> ids) {
    for (const auto& id : ids) {
        if (auto done = removeItem(state_->connection, id); !done) return done;
    }
    return {};
}

tl::expected<void, Error>
SqliteSearchIndex::indexSearchableItems(std::span<const SearchableItem> items) {
    auto& connection = state_->connection;
    if (auto begun = connection.execute("BEGIN IMMEDIATE"); !begun)
        return tl::unexpected(errorOf(begun.error()));
    const auto insertAll = [&]() -> tl::expected<void, Error> {
        for (const auto& item : items) {
            const auto& record = item.record;
            // an item indexed again replaces the one it had
            if (auto done = removeItem(connection, record.id); !done) return done;
            auto insert = connection.prepare(
                "INSERT INTO items (title, symbol, aliases, body) VALUES (?1, ?2, ?3, ?4)");
            if (!insert) return tl::unexpected(errorOf(insert.error()));
            std::vector<std::string> aliasForms = record.aliases;
            aliasForms.insert(aliasForms.end(), record.keywords.begin(), record.keywords.end());
            std::vector<std::string> bodyForms{record.searchText};
            for (const auto* list : {&record.notes, &record.intervals, &record.categoryTags})
                bodyForms.insert(bodyForms.end(), list->begin(), list->end());
            const auto symbol =
                record.symbol ? *record.symbol + "\n" + asciiSigns(*record.symbol) : std::string();
            const auto done = insert->bindText(1, record.title + "\n" + record.displayName)
                                  .bindText(2, symbol)
                                  .bindText(3, lines(aliasForms))
                                  .bindText(4, lines(bodyForms))
                                  .run();
            if (!done) return tl::unexpected(errorOf(done.error()));
            auto row =
                connection.prepare("INSERT INTO item_rows (row, id, domain, priority, "
                                   "exact, loose, record) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7)");
            if (!row) return tl::unexpected(errorOf(row.error()));
            const auto forms = nameForms(record);
            if (auto kept = row->bind(1, connection.lastInsertRowid())
                                .bindText(2, record.id)
                                .bindText(3, item.domain)
                                .bind(4, record.priority)
                                .bindText(5, forms.exact)
                                .bindText(6, forms.loose)
                                .bindText(7, toJson(record).dump())
                                .run();
                !kept)
                return tl::unexpected(errorOf(kept.error()));
        }
        return {};
    };
    auto inserted = insertAll();
    if (!inserted) {
        (void)connection.execute("ROLLBACK");
        return inserted;
    }
    if (auto committed = connection.execute("COMMIT"); !committed) {
        (void)connection.execute("ROLLBACK");
        return tl::unexpected(errorOf(committed.error()));
    }
    return {};
}

std::vector<FretquillSearchIndexRecord> SqliteSearchIndex::search(std::string_view typed,
                                                                  std::size_t limit) {
    const auto match = ftsQuery(typed);
    if (match.empty() || limit == 0) return {};
    // a few more than asked, so that an exact name further down can still come first
    const auto candidates = static_cast<std::int64_t>(std::max<std::size_t>(limit * 4, 60));
    auto query = state_->connection.prepare(searchSql);
    if (!query) return {};
    query->bindText(1, match).bind(2, candidates);
    struct Candidate {
        int exactness = 0;
        std::int64_t priority = 0;
        std::string record;
    };
    std::vector<Candidate> ranked;
    const TypedForms forms(typed);
    for (;;) {
        const auto row = query->step();
        if (!row || !*row) break;
        ranked.push_back({exactness(query->columnText(0), query->columnText(1), forms),
                          query->columnInteger(2), std::string(query->columnText(3))});
    }
    // names that equal what was typed come first, and among them the easier, more
    // common chord (C before C♯); word matches keep the order of their scores
    std::stable_sort(ranked.begin(), ranked.end(), [](const auto& a, const auto& b) {
        if (a.exactness != b.exactness) return a.exactness > b.exactness;
        return a.exactness > 0 && a.priority > b.priority;
    });
    std::vector<FretquillSearchIndexRecord> result;
    for (const auto& candidate : ranked) {
        if (result.size() == limit) break;
        if (auto record = recordFromJson(nlohmann::json::parse(candidate.record, nullptr, false)))
            result.push_back(std::move(*record));
    }
    return result;
}

std::size_t SqliteSearchIndex::count() {
    const auto total = state_->connection.integer("SELECT count(*) FROM item_rows");
    return total ? static_cast<std::size_t>(*total) : 0;
}

FretquillSpotlightIndexer::FretquillSpotlightIndexer(SearchIndex& index,
                                                     std::shared_ptr<personal::SharedStore> store,
                                                     IndexEnvironment environment,
                                                     std::size_t batchSize)
    : index_(index), store_(std::move(store)), environment_(std::move(environment)),
      batchSize_(std::max<std::size_t>(batchSize, 1)) {}

bool FretquillSpotlightIndexer::needsFullReindex() const {
    const std::lock_guard lock(serial_);
    if (!store_) return true;
    return personal::read(*store_, keys::spotlightIndexedSchemaVersion) !=
               config::indexSchemaVersion ||
           personal::read(*store_, keys::spotlightIndexedAppBuildVersion) !=
               environment_.buildVersion ||
           personal::read(*store_, keys::spotlightIndexedLanguageCode) !=
               environment_.languageCode ||
           personal::read(*store_, keys::spotlightChordLibraryVersion) !=
               config::chordLibraryVersion;
}

std::vector<FretquillSearchIndexRecord> FretquillSpotlightIndexer::collectionRecords() const {
    std::vector<FretquillSearchIndexRecord> records;
    for (const auto& collection : builtInCollections())
        records.push_back(FretquillSpotlightItemFactory::collectionRecord(collection));
    for (const auto& collection : userCollections(store_))
        records.push_back(FretquillSpotlightItemFactory::collectionRecord(collection));
    return records;
}

std::vector<FretquillSearchIndexRecord> FretquillSpotlightIndexer::allRecords() const {
    std::vector<FretquillSearchIndexRecord> records;
    for (const auto& chord : FretquillSpotlightItemFactory::indexedChords())
        records.push_back(FretquillSpotlightItemFactory::chordRecord(chord));
    auto collections = collectionRecords();
    records.insert(records.end(), collections.begin(), collections.end());
    return records;
}

bool FretquillSpotlightIndexer::indexInBatches(
    const std::vector<FretquillSearchIndexRecord>& records, std::string_view failure) {
    std::vector<SearchableItem> batch;
    for (std::size_t start = 0; start < records.size(); start += batchSize_) {
        batch.clear();
        const auto end = std::min(records.size(), start + batchSize_);
        for (auto i = start; i < end; ++i)
            batch.push_back(FretquillSpotlightItemFactory::item(records[i]));
        if (auto done = index_.indexSearchableItems(batch); !done) {
            diagnostic(std::string(failure) + done.error().message);
            return false;
        }
    }
    return true;
}

void FretquillSpotlightIndexer::reindexEverything(const std::optional<core::Chord>& todayChord) {
    const std::lock_guard lock(serial_);
    const std::array<std::string_view, 3> domains{config::chordsDomain, config::collectionsDomain,
                                                  config::todayChordDomain};
    if (auto deleted = index_.deleteDomains(domains); !deleted)
        diagnostic("Fret Quill Spotlight delete failed: " + deleted.error().message);
    std::vector<FretquillSearchIndexRecord> records;
    for (const auto& chord : FretquillSpotlightItemFactory::indexedChords())
        records.push_back(FretquillSpotlightItemFactory::chordRecord(chord));
    auto collections = collectionRecords();
    records.insert(records.end(), collections.begin(), collections.end());
    // a rebuild that did not finish must run again next time: the keys stay as they were
    if (!indexInBatches(records, "Fret Quill Spotlight indexing failed: ")) return;
    if (store_) {
        (void)personal::write(*store_, keys::spotlightIndexedSchemaVersion,
                              config::indexSchemaVersion);
        (void)personal::write(*store_, keys::spotlightIndexedAppBuildVersion,
                              environment_.buildVersion);
        (void)personal::write(*store_, keys::spotlightIndexedLanguageCode,
                              environment_.languageCode);
        (void)personal::write(*store_, keys::spotlightChordLibraryVersion,
                              config::chordLibraryVersion);
    }
    if (todayChord) {
        (void)indexInBatches({todayChordRecord(*todayChord)},
                             "Fret Quill Today's Chord Spotlight indexing failed: ");
    }
}

void FretquillSpotlightIndexer::reindexCollections() {
    const std::lock_guard lock(serial_);
    const std::array<std::string_view, 1> domains{config::collectionsDomain};
    if (auto deleted = index_.deleteDomains(domains); !deleted)
        diagnostic("Fret Quill Spotlight delete failed: " + deleted.error().message);
    (void)indexInBatches(collectionRecords(), "Fret Quill Spotlight indexing failed: ");
}

void FretquillSpotlightIndexer::indexTodayChord(const core::Chord& chord) {
    const std::lock_guard lock(serial_);
    const std::array<std::string_view, 1> domains{config::todayChordDomain};
    (void)index_.deleteDomains(domains);
    (void)indexInBatches({todayChordRecord(chord)},
                         "Fret Quill Today's Chord Spotlight indexing failed: ");
}

void FretquillSpotlightIndexer::deleteAll() {
    const std::lock_guard lock(serial_);
    const std::array<std::string_view, 3> domains{config::chordsDomain, config::collectionsDomain,
                                                  config::todayChordDomain};
    if (auto deleted = index_.deleteDomains(domains); !deleted)
        diagnostic("Fret Quill Spotlight delete failed: " + deleted.error().message);
}

void FretquillSpotlightIndexer::deleteItems(std::span<const std::string> ids) {
    const std::lock_guard lock(serial_);
    if (auto deleted = index_.deleteItems(ids); !deleted)
        diagnostic("Fret Quill Spotlight item delete failed: " + deleted.error().message);
}

} // namespace fq::navigation
