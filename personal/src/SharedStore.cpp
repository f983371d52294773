// The shared preference store over SQLite: schema, transactions, change log and polling.

#include "fq/personal/SharedStore.h"

#include "fq/documents/DataLocations.h"

#include <fq/core/Diagnostics.h>
#include <fq/documents/Sqlite.h>

#include <fmt/format.h>

#include <algorithm>
#include <cassert>
#include <cmath>
#include <random>
#include <system_error>
#include <unordered_set>
#include <utility>

namespace fq::personal {
namespace {

namespace fs = std::filesystem;
namespace sqlite = documents::sqlite;

/// Marks the file as ours ("FQst"), so that a database of another program at the same
/// path is refused rather than having our tables added to it.
constexpr std::int64_t applicationId = 0x46517374;
constexpr std::int64_t schemaVersion = 1;

// `entries` is STRICT with an ANY column so that SQLite keeps each value exactly as
// bound (no affinity turning the text "42" into a number). Every write also appends
// its key to `changes` in the same transaction: that log is how other processes learn
// which keys changed. AUTOINCREMENT keeps its sequence from ever going back.
constexpr const char* schema = R"(
    CREATE TABLE IF NOT EXISTS entries (
        key TEXT PRIMARY KEY NOT NULL,
        type INTEGER NOT NULL,
        value ANY NOT NULL
    ) STRICT, WITHOUT ROWID;
    CREATE TABLE IF NOT EXISTS changes (
        sequence INTEGER PRIMARY KEY AUTOINCREMENT,
        key TEXT NOT NULL,
        origin INTEGER NOT NULL
    ) STRICT;
    PRAGMA application_id = {};
    PRAGMA user_version = {};
)";

enum class Contents { ours, empty };

/// What the file holds, found by reading only. Anything but an empty database or one
/// of ours is refused.
sqlite::Result<Contents> inspect(sqlite::Connection& db) {
    auto tables = db.integer("SELECT count(*) FROM sqlite_schema");
    if (!tables) return tl::unexpected(std::move(tables.error()));
    auto application = db.integer("PRAGMA application_id");
    if (!application) return tl::unexpected(std::move(application.error()));
    auto version = db.integer("PRAGMA user_version");
    if (!version) return tl::unexpected(std::move(version.error()));
    if (*application == 0 && *tables == 0) return Contents::empty;
    if (*application != applicationId)
        return tl::unexpected(sqlite::Failure{SQLITE_ERROR, "the file belongs to another program"});
    if (*version > schemaVersion)
        return tl::unexpected(
            sqlite::Failure{SQLITE_ERROR, "it was written by a newer version of Fret Quill"});
    return *version == schemaVersion ? Contents::ours : Contents::empty;
}

/// The type column's codes, part of the file format.
enum class StoredType : std::int64_t { integer = 0, real = 1, boolean = 2, text = 3, bytes = 4 };

std::string storeFailure(std::string_view key) {
    return fmt::format("Cannot store {:?} in the preference store", key);
}

std::string removeFailure(std::string_view key) {
    return fmt::format("Cannot remove {:?} from the preference store", key);
}

constexpr std::string_view updateFailure = "Cannot change the preference store";

Error failed(std::string_view what, std::string_view reason, ErrorKind kind = ErrorKind::refused) {
    return Error{fmt::format("{}: {}", what, reason), kind};
}

bool isDamage(const sqlite::Failure& failure) {
    return failure.code == SQLITE_CORRUPT || failure.code == SQLITE_NOTADB;
}

/// SQLite's reason, and for the failures a person can end themselves, how.
std::string reasonOf(const sqlite::Failure& failure, const fs::path& file) {
    if (isDamage(failure))
        return fmt::format("it is damaged ({}); move {} away to start afresh", failure.message,
                           file.string());
    if (failure.code == SQLITE_READONLY)
        return fmt::format("{} is read-only; nothing was changed", file.string());
    return failure.message;
}

Error failed(std::string_view what, const sqlite::Failure& failure, const fs::path& file) {
    return failed(what, reasonOf(failure, file),
                  isDamage(failure) ? ErrorKind::corrupt : ErrorKind::io);
}

/// The first problem PRAGMA quick_check finds in the file, if any. Damaged pages
/// otherwise read as missing rows or fail one key at a time, which looks like a store
/// holding defaults.
sqlite::Result<void> checkPages(sqlite::Connection& db) {
    auto check = db.prepare("PRAGMA quick_check(1)");
    if (!check) return tl::unexpected(std::move(check.error()));
    auto row = check->step();
    if (!row) return tl::unexpected(std::move(row.error()));
    // its report spans lines; SQLite's own words for the code say it in one
    if (*row && check->columnText(0) != "ok")
        return tl::unexpected(sqlite::Failure{SQLITE_CORRUPT, sqlite3_errstr(SQLITE_CORRUPT)});
    return {};
}

/// Why a value may not be stored under a key, if it may not.
std::optional<Error> refusal(std::string_view key, const StoreValue& value) {
    if (key.empty()) return failed(storeFailure(key), "the key is empty");
    // SQLite has no NaN (it would store NULL); a preference that is not a number is a
    // fault upstream, so it is refused rather than kept as something else.
    if (const auto* real = std::get_if<double>(&value); real && std::isnan(*real))
        return failed(storeFailure(key), "the number is NaN");
    return std::nullopt;
}

/// Retries `attempt` while another connection holds the lock past the busy timeout.
template <typename Attempt>
auto retryingBusy(Attempt attempt) {
    auto result = attempt();
    for (int tries = 1;
         !result && result.error().code == SQLITE_BUSY && tries < config::busyAttempts; ++tries)
        result = attempt();
    return result;
}

/// Switching a new file to WAL needs a moment alone with it, and SQLite does not wait
/// for that through the busy handler, so two processes creating the store at once would
/// fail without this loop. On a file already in WAL mode the switch is a no-op.
sqlite::Result<void> useWriteAheadLog(sqlite::Connection& db) {
    const auto deadline = std::chrono::steady_clock::now() + config::busyTimeout;
    for (;;) {
        auto switched = db.execute("PRAGMA journal_mode = WAL");
        if (switched || switched.error().code != SQLITE_BUSY ||
            std::chrono::steady_clock::now() > deadline)
            return switched;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

/// Random, so that two store objects never mistake each other's log entries for their own.
std::int64_t newOrigin() {
    std::random_device device;
    const auto high = static_cast<std::uint64_t>(device()) << 31;
    return static_cast<std::int64_t>(high ^ device());
}

} // namespace

struct SharedStore::State {
    sqlite::Connection connection;
    fs::path file;
    /// Opened as it stands on disk because this process may not write it.
    bool readOnly = false;
    std::int64_t origin = newOrigin();
    /// The change-log position up to which this object knows every change.
    std::int64_t lastSequence = 0;
    /// PRAGMA data_version at the last poll; other connections' commits change it.
    std::int64_t dataVersion = 0;
    /// The sequences the running write transaction logged, applied once it commits.
    std::int64_t pendingFirst = 0;
    std::int64_t pendingLast = 0;

    sqlite::Result<std::optional<StoreValue>> read(std::string_view key);
    sqlite::Result<void> store(std::string_view key, const StoreValue& value);
    /// True when there was something to remove.
    sqlite::Result<bool> erase(std::string_view key);
    sqlite::Result<std::vector<std::string>> allKeys();
    sqlite::Result<std::vector<std::string>> externalChanges();

private:
    sqlite::Result<void> log(std::string_view key);
};

sqlite::Result<std::optional<StoreValue>> SharedStore::State::read(std::string_view key) {
    auto query = connection.prepare("SELECT type, value FROM entries WHERE key = ?1");
    if (!query) return tl::unexpected(std::move(query.error()));
    query->bindText(1, key);
    auto row = query->step();
    if (!row) return tl::unexpected(std::move(row.error()));
    if (!*row) return std::nullopt;

    const auto type = static_cast<StoredType>(query->columnInteger(0));
    const int storage = query->columnType(1);
    if (type == StoredType::integer && storage == SQLITE_INTEGER)
        return StoreValue(query->columnInteger(1));
    if (type == StoredType::real && storage == SQLITE_FLOAT)
        return StoreValue(query->columnReal(1));
    if (type == StoredType::boolean && storage == SQLITE_INTEGER)
        return StoreValue(query->columnInteger(1) != 0);
    if (type == StoredType::text && storage == SQLITE_TEXT)
        return StoreValue(std::string(query->columnText(1)));
    if (type == StoredType::bytes && storage == SQLITE_BLOB) {
        const auto blob = query->columnBlob(1);
        return StoreValue(core::Bytes(blob.begin(), blob.end()));
    }
    // Only a foreign writer or a newer version could leave such a row.
    return tl::unexpected(sqlite::Failure{SQLITE_MISMATCH, "the stored value has an unknown type"});
}

sqlite::Result<void> SharedStore::State::store(std::string_view key, const StoreValue& value) {
    auto query =
        connection.prepare("INSERT OR REPLACE INTO entries (key, type, value) VALUES (?1, ?2, ?3)");
    if (!query) return tl::unexpected(std::move(query.error()));
    query->bindText(1, key);
    const auto type = [&query](StoredType code) -> sqlite::Query& {
        return query->bind(2, static_cast<std::int64_t>(code));
    };
    std::visit(
        [&](const auto& content) {
            using T = std::decay_t<decltype(content)>;
            if constexpr (std::is_same_v<T, std::int64_t>) {
                type(StoredType::integer).bind(3, content);
            } else if constexpr (std::is_same_v<T, double>) {
                type(StoredType::real).bind(3, content);
            } else if constexpr (std::is_same_v<T, bool>) {
                type(StoredType::boolean).bind(3, std::int64_t{content ? 1 : 0});
            } else if constexpr (std::is_same_v<T, std::string>) {
                type(StoredType::text).bindText(3, content);
            } else {
                type(StoredType::bytes).bindBlob(3, content);
            }
        },
        value);
    if (auto done = query->run(); !done) return done;
    return log(key);
}

sqlite::Result<bool> SharedStore::State::erase(std::string_view key) {
    auto query = connection.prepare("DELETE FROM entries WHERE key = ?1");
    if (!query) return tl::unexpected(std::move(query.error()));
    query->bindText(1, key);
    if (auto done = query->run(); !done) return tl::unexpected(std::move(done.error()));
    if (connection.changes() == 0) return false;
    if (auto logged = log(key); !logged) return tl::unexpected(std::move(logged.error()));
    return true;
}

sqlite::Result<void> SharedStore::State::log(std::string_view key) {
    auto insert = connection.prepare("INSERT INTO changes (key, origin) VALUES (?1, ?2)");
    if (!insert) return tl::unexpected(std::move(insert.error()));
    insert->bindText(1, key).bind(2, origin);
    if (auto done = insert->run(); !done) return done;
    const auto sequence = connection.lastInsertRowid();
    if (pendingFirst == 0) pendingFirst = sequence;
    pendingLast = sequence;

    auto trim = connection.prepare("DELETE FROM changes WHERE sequence <= ?1");
    if (!trim) return tl::unexpected(std::move(trim.error()));
    trim->bind(1, sequence - config::changeLogLength);
    return trim->run();
}

sqlite::Result<std::vector<std::string>> SharedStore::State::allKeys() {
    auto query = connection.prepare("SELECT key FROM entries ORDER BY key");
    if (!query) return tl::unexpected(std::move(query.error()));
    std::vector<std::string> keys;
    for (;;) {
        auto row = query->step();
        if (!row) return tl::unexpected(std::move(row.error()));
        if (!*row) return keys;
        keys.emplace_back(query->columnText(0));
    }
}

sqlite::Result<std::vector<std::string>> SharedStore::State::externalChanges() {
    auto version = connection.integer("PRAGMA data_version");
    if (!version) return tl::unexpected(std::move(version.error()));
    if (*version == dataVersion) return std::vector<std::string>{};

    // One read snapshot, so that the log and the fallback key list agree.
    if (auto begun = connection.execute("BEGIN"); !begun)
        return tl::unexpected(std::move(begun.error()));
    struct EndRead {
        sqlite::Connection& connection;
        ~EndRead() { (void)connection.execute("COMMIT"); }
    } endRead{connection};

    auto query = connection.prepare("SELECT sequence, key, origin FROM changes WHERE sequence > ?1 "
                                    "ORDER BY sequence");
    if (!query) return tl::unexpected(std::move(query.error()));
    query->bind(1, lastSequence);
    std::vector<std::string> keys;
    std::unordered_set<std::string> seen;
    std::int64_t newest = lastSequence;
    bool missedSome = false;
    for (;;) {
        auto row = query->step();
        if (!row) return tl::unexpected(std::move(row.error()));
        if (!*row) break;
        const auto sequence = query->columnInteger(0);
        // Sequences have no gaps except where the log was trimmed.
        if (newest == lastSequence && sequence != lastSequence + 1) missedSome = true;
        newest = sequence;
        if (query->columnInteger(2) == origin) continue;
        if (std::string key(query->columnText(1)); seen.insert(key).second)
            keys.push_back(std::move(key));
    }
    if (missedSome) {
        // The entries that said what changed are gone: every stored key may have.
        // (A key removed in that stretch cannot be named any more.)
        auto stored = allKeys();
        if (!stored) return tl::unexpected(std::move(stored.error()));
        for (auto& key : *stored)
            if (seen.insert(key).second) keys.push_back(std::move(key));
    }
    dataVersion = *version;
    lastSequence = newest;
    return keys;
}

SharedStore::SharedStore(fs::path file, std::unique_ptr<State> state)
    : file_(std::move(file)), state_(std::move(state)) {}

SharedStore::~SharedStore() = default;

tl::expected<std::shared_ptr<SharedStore>, Error> SharedStore::open(const fs::path& file) {
    const auto fail = [&file](std::string_view reason, ErrorKind kind) {
        return tl::unexpected(
            Error{fmt::format("Cannot open the preference store at {}: {}", file.string(), reason),
                  kind});
    };
    const auto failWith = [&](const sqlite::Failure& failure) {
        const auto kind = isDamage(failure)              ? ErrorKind::corrupt
                          : failure.code == SQLITE_ERROR ? ErrorKind::refused
                                                         : ErrorKind::io;
        return fail(reasonOf(failure, file), kind);
    };
    // SQLite would say only "unable to open database file" for these two.
    std::error_code error;
    if (fs::is_directory(file, error)) return fail("it is a folder", ErrorKind::refused);
    const auto folder = file.has_parent_path() ? file.parent_path() : fs::path(".");
    if (!fs::is_directory(folder, error))
        return fail("its folder does not exist", ErrorKind::notFound);

    // Only reads until the file is known to be ours or empty: a file of another kind
    // fails here and is left exactly as it was.
    auto opened = sqlite::Connection::open(file);
    sqlite::Result<Contents> contents = tl::unexpected(sqlite::Failure{});
    if (opened) {
        opened->setBusyTimeout(static_cast<int>(config::busyTimeout.count()));
        contents = retryingBusy([&opened] { return inspect(*opened); });
    }
    // In WAL mode even a reader writes the shared-memory file beside the store, so a
    // store this process may not write is read as it stands on disk instead.
    const auto failure = !opened    ? opened.error()
                         : contents ? sqlite::Failure{SQLITE_OK, {}}
                                    : contents.error();
    bool readOnly = false;
    if ((failure.code == SQLITE_READONLY || failure.code == SQLITE_CANTOPEN) &&
        fs::exists(file, error)) {
        opened = sqlite::Connection::openImmutable(file);
        if (opened) contents = inspect(*opened);
        readOnly = true;
    }
    if (!opened) return failWith(opened.error());
    if (!contents) return failWith(contents.error());
    auto& db = *opened;
    if (*contents == Contents::ours)
        if (auto checked = checkPages(db); !checked) return failWith(checked.error());

    if (readOnly) {
        if (*contents == Contents::empty)
            return fail("it is read-only and holds no store yet", ErrorKind::io);
    } else {
        if (auto wal = useWriteAheadLog(db); !wal) return failWith(wal.error());
        // In WAL mode NORMAL loses nothing when a process dies; only a power cut may
        // drop the last commits, and the file stays consistent either way.
        if (auto sync = db.execute("PRAGMA synchronous = NORMAL"); !sync)
            return failWith(sync.error());
    }

    if (*contents == Contents::empty) {
        // Another process may be creating the store at this moment: look again under
        // the write lock. The statements only add what is missing.
        if (auto begun = retryingBusy([&db] { return db.execute("BEGIN IMMEDIATE"); }); !begun)
            return failWith(begun.error());
        auto created = inspect(db).and_then([&db](Contents) {
            return db.execute(fmt::format(schema, applicationId, schemaVersion).c_str());
        });
        if (created) created = db.execute("COMMIT");
        if (!created) {
            (void)db.execute("ROLLBACK");
            return failWith(created.error());
        }
    }

    auto last = db.integer("SELECT coalesce(max(sequence), 0) FROM changes");
    if (!last) return failWith(last.error());
    auto version = db.integer("PRAGMA data_version");
    if (!version) return failWith(version.error());
    auto state = std::make_unique<State>(State{std::move(db), file, readOnly});
    state->lastSequence = *last;
    state->dataVersion = *version;
    return std::shared_ptr<SharedStore>(new SharedStore(file, std::move(state)));
}

tl::expected<std::shared_ptr<SharedStore>, Error> SharedStore::openDefault() {
    const auto folder = documents::configDirectory();
    std::error_code error;
    fs::create_directories(folder, error);
    if (error)
        return tl::unexpected(
            Error{fmt::format("Cannot create the folder {}: {}", folder.string(), error.message()),
                  ErrorKind::io});
    return open(folder / config::sharedStoreFile);
}

void SharedStore::assertNotInsideUpdate() const {
    assert(updatingThread_.load() != std::this_thread::get_id() &&
           "use the Transaction inside update(), not the store");
}

std::optional<StoreValue> SharedStore::value(std::string_view key) const {
    assertNotInsideUpdate();
    if (key.empty()) return std::nullopt;
    std::lock_guard lock(mutex_);
    auto found = state_->read(key);
    if (!found) {
        fq::diagnostic(fmt::format("Cannot read {:?} from the preference store: {}", key,
                                   reasonOf(found.error(), file_)));
        return std::nullopt;
    }
    return std::move(*found);
}

std::optional<std::int64_t> SharedStore::integer(std::string_view key) const {
    return integerValue(value(key));
}
std::optional<double> SharedStore::real(std::string_view key) const {
    return realValue(value(key));
}
std::optional<bool> SharedStore::boolean(std::string_view key) const {
    return booleanValue(value(key));
}
std::optional<std::string> SharedStore::text(std::string_view key) const {
    return textValue(value(key));
}
std::optional<core::Bytes> SharedStore::bytes(std::string_view key) const {
    return bytesValue(value(key));
}

std::vector<std::string> SharedStore::keys() const {
    assertNotInsideUpdate();
    std::lock_guard lock(mutex_);
    auto keys = state_->allKeys();
    if (!keys) {
        fq::diagnostic(fmt::format("Cannot list the keys of the preference store: {}",
                                   reasonOf(keys.error(), file_)));
        return {};
    }
    return std::move(*keys);
}

tl::expected<void, Error>
SharedStore::write(std::string_view failure,
                   const std::function<tl::expected<void, Error>()>& work) {
    if (state_->readOnly)
        return tl::unexpected(failed(failure, sqlite::Failure{SQLITE_READONLY, {}}, file_));
    auto& db = state_->connection;
    state_->pendingFirst = state_->pendingLast = 0;
    // IMMEDIATE takes the write lock before the first read, so a read-modify-write
    // never works on a snapshot another process is about to replace; waiting for the
    // lock is the busy timeout's job, and a lock held past it is retried.
    if (auto begun = retryingBusy([&db] { return db.execute("BEGIN IMMEDIATE"); }); !begun)
        return tl::unexpected(failed(failure, begun.error(), file_));
    struct RollBackUnlessCommitted {
        sqlite::Connection& db;
        ~RollBackUnlessCommitted() {
            if (db.inTransaction()) (void)db.execute("ROLLBACK");
        }
    } rollBack{db};

    if (auto done = work(); !done) return done;
    if (auto committed = db.execute("COMMIT"); !committed)
        return tl::unexpected(failed(failure, committed.error(), file_));

    // Our own entries need no polling; skip past them unless another process's
    // entries lie between, which the next poll must still read.
    if (state_->pendingFirst == state_->lastSequence + 1)
        state_->lastSequence = state_->pendingLast;
    return {};
}

tl::expected<void, Error> SharedStore::set(std::string_view key, const Value& value) {
    assertNotInsideUpdate();
    if (auto refused = refusal(key, value)) return tl::unexpected(std::move(*refused));
    {
        std::lock_guard lock(mutex_);
        const auto failure = storeFailure(key);
        auto done = write(failure, [&]() -> tl::expected<void, Error> {
            if (auto stored = state_->store(key, value); !stored)
                return tl::unexpected(failed(failure, stored.error(), file_));
            return {};
        });
        if (!done) return done;
    }
    notify({std::string(key)});
    return {};
}

tl::expected<void, Error> SharedStore::remove(std::string_view key) {
    assertNotInsideUpdate();
    if (key.empty()) return {};
    bool removed = false;
    {
        std::lock_guard lock(mutex_);
        const auto failure = removeFailure(key);
        auto done = write(failure, [&]() -> tl::expected<void, Error> {
            auto erased = state_->erase(key);
            if (!erased) return tl::unexpected(failed(failure, erased.error(), file_));
            removed = *erased;
            return {};
        });
        if (!done) return done;
    }
    if (removed) notify({std::string(key)});
    return {};
}

tl::expected<void, Error> SharedStore::update(const std::function<void(Transaction&)>& change) {
    assertNotInsideUpdate();
    std::vector<std::string> changed;
    {
        std::lock_guard lock(mutex_);
        auto done = write(updateFailure, [&]() -> tl::expected<void, Error> {
            Transaction transaction(*state_);
            struct Inside {
                std::atomic<std::thread::id>& thread;
                explicit Inside(std::atomic<std::thread::id>& t) : thread(t) {
                    thread = std::this_thread::get_id();
                }
                ~Inside() { thread = std::thread::id(); }
            } inside(updatingThread_);
            change(transaction);
            if (transaction.failure_) return tl::unexpected(std::move(*transaction.failure_));
            changed = std::move(transaction.changedKeys_);
            return {};
        });
        if (!done) return done;
    }
    notify(changed);
    return {};
}

std::optional<StoreValue> SharedStore::Transaction::value(std::string_view key) const {
    if (key.empty()) return std::nullopt;
    auto found = state_.read(key);
    if (!found) {
        fq::diagnostic(fmt::format("Cannot read {:?} from the preference store: {}", key,
                                   reasonOf(found.error(), state_.file)));
        return std::nullopt;
    }
    return std::move(*found);
}

tl::expected<void, Error> SharedStore::Transaction::set(std::string_view key, const Value& value) {
    if (failure_) return tl::unexpected(*failure_);
    if (auto refused = refusal(key, value)) {
        failure_ = std::move(refused);
        return tl::unexpected(*failure_);
    }
    if (auto stored = state_.store(key, value); !stored) {
        failure_ = failed(storeFailure(key), stored.error(), state_.file);
        return tl::unexpected(*failure_);
    }
    if (std::find(changedKeys_.begin(), changedKeys_.end(), key) == changedKeys_.end())
        changedKeys_.emplace_back(key);
    return {};
}

tl::expected<void, Error> SharedStore::Transaction::remove(std::string_view key) {
    if (failure_) return tl::unexpected(*failure_);
    if (key.empty()) return {};
    auto erased = state_.erase(key);
    if (!erased) {
        failure_ = failed(removeFailure(key), erased.error(), state_.file);
        return tl::unexpected(*failure_);
    }
    if (*erased && std::find(changedKeys_.begin(), changedKeys_.end(), key) == changedKeys_.end())
        changedKeys_.emplace_back(key);
    return {};
}

ObserverToken SharedStore::addObserver(Observer observer) {
    std::lock_guard lock(observersMutex_);
    const auto id = nextObserverId_++;
    observers_.emplace(id, std::make_shared<const Observer>(std::move(observer)));
    return ObserverToken(weak_from_this(), id);
}

void SharedStore::removeObserver(std::uint64_t id) {
    std::lock_guard lock(observersMutex_);
    observers_.erase(id);
}

void SharedStore::notify(const std::vector<std::string>& keys) {
    if (keys.empty()) return;
    std::vector<std::shared_ptr<const Observer>> observers;
    {
        std::lock_guard lock(observersMutex_);
        for (const auto& [id, observer] : observers_)
            observers.push_back(observer);
    }
    for (const auto& key : keys)
        for (const auto& observer : observers)
            (*observer)(key);
}

void SharedStore::pollExternalChanges() {
    assertNotInsideUpdate();
    std::vector<std::string> changed;
    {
        std::lock_guard lock(mutex_);
        auto found = state_->externalChanges();
        if (!found) {
            fq::diagnostic(
                fmt::format("Cannot read other writers' changes from the preference store: {}",
                            reasonOf(found.error(), file_)));
            return;
        }
        changed = std::move(*found);
    }
    notify(changed);
}

std::optional<core::Bytes> SharedStore::data(std::string_view key) const {
    return bytes(key);
}

void SharedStore::setData(std::string_view key, std::span<const std::uint8_t> bytes) {
    if (auto done = set(key, core::Bytes(bytes.begin(), bytes.end())); !done)
        fq::diagnostic(done.error().message);
}

ObserverToken::ObserverToken(ObserverToken&& other) noexcept
    : store_(std::move(other.store_)), id_(std::exchange(other.id_, 0)) {}

ObserverToken& ObserverToken::operator=(ObserverToken&& other) noexcept {
    if (this != &other) {
        reset();
        store_ = std::move(other.store_);
        id_ = std::exchange(other.id_, 0);
    }
    return *this;
}

void ObserverToken::reset() {
    if (auto store = store_.lock()) store->removeObserver(id_);
    store_.reset();
    id_ = 0;
}

} // namespace fq::personal
