#pragma once

// The shared preference store: typed values in one SQLite file that every process of the program
// shares.

#include "fq/personal/StoreValue.h"

#include <fq/core/BytesStore.h>
#include <fq/core/Error.h>

#include <tl/expected.hpp>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace fq::personal {

namespace config {
/// The file of the suite "group.com.kelvane.frtqul.shared", which every process of the
/// program shares, inside configDirectory().
inline constexpr std::string_view sharedStoreFile = "group.com.kelvane.frtqul.shared.sqlite";
/// How long a write waits for another process's write to finish before it retries.
inline constexpr std::chrono::milliseconds busyTimeout{5000};
/// How many times a write starts that wait before it gives up.
inline constexpr int busyAttempts = 3;
/// Change-log entries kept for other processes to poll. A poller that falls further
/// behind than this is told that every stored key may have changed.
inline constexpr std::int64_t changeLogLength = 4096;
} // namespace config

class SharedStore;

/// Keeps an observer registered; destroying or resetting it removes the observer.
/// It may outlive the store.
class [[nodiscard]] ObserverToken {
public:
    ObserverToken() = default;
    ObserverToken(ObserverToken&& other) noexcept;
    ObserverToken& operator=(ObserverToken&& other) noexcept;
    ~ObserverToken() { reset(); }

    void reset();

private:
    friend class SharedStore;
    ObserverToken(std::weak_ptr<SharedStore> store, std::uint64_t id)
        : store_(std::move(store)), id_(id) {}

    std::weak_ptr<SharedStore> store_;
    std::uint64_t id_ = 0;
};

/// The shared preference store: typed values under text keys in one SQLite file that
/// every process of the program opens at once (write-ahead log, busy timeout, writes
/// as short immediate transactions, so concurrent writers queue rather than fail).
///
/// Threads: every function is safe from any thread. One connection behind a mutex
/// serves them all: writes are serialised by SQLite's file lock anyway and a read takes
/// microseconds, so connections per thread would buy little, while one connection keeps
/// the change-log position and PRAGMA data_version (which is per connection) in one place.
///
/// Observers: changes made through this object are reported, key by key, on the
/// writing thread after the commit; changes committed by other processes (or other
/// store objects) are reported by pollExternalChanges() on the polling thread. No
/// lock is held while an observer runs, so observers may use the store.
class SharedStore final : public core::BytesStore,
                          public std::enable_shared_from_this<SharedStore> {
public:
    using Value = StoreValue;
    using Observer = std::function<void(std::string_view key)>;
    class Transaction;

    /// Opens the store in `file`, creating the file (not its folder) when missing. A file
    /// that is not a store of this program, or whose pages are damaged, is refused (the
    /// message says which file to move away) and left as it is. A store this process may
    /// not write is opened as it stands on disk: it reads, and every write fails.
    static tl::expected<std::shared_ptr<SharedStore>, Error>
    open(const std::filesystem::path& file);
    /// Opens the store in configDirectory(), creating the folder first.
    static tl::expected<std::shared_ptr<SharedStore>, Error> openDefault();

    SharedStore(const SharedStore&) = delete;
    SharedStore& operator=(const SharedStore&) = delete;
    ~SharedStore() override;

    const std::filesystem::path& file() const { return file_; }

    /// The stored value with the type it was stored with; none when absent (or when the
    /// store cannot be read, which prints one diagnostic line).
    std::optional<Value> value(std::string_view key) const;
    // Lenient typed reads; see StoreValue.h for which types stand in for which.
    std::optional<std::int64_t> integer(std::string_view key) const;
    std::optional<double> real(std::string_view key) const;
    std::optional<bool> boolean(std::string_view key) const;
    std::optional<std::string> text(std::string_view key) const;
    std::optional<core::Bytes> bytes(std::string_view key) const;
    /// Every stored key, sorted by byte value.
    std::vector<std::string> keys() const;

    /// Stores `value` under `key`. An empty key and a NaN are refused; on any failure
    /// the store keeps what it had.
    tl::expected<void, Error> set(std::string_view key, const Value& value);
    /// Removes `key`; removing an absent key succeeds and reports no change.
    tl::expected<void, Error> remove(std::string_view key);

    /// Runs `change` inside one write transaction that no other process or thread can
    /// interleave with, so read-modify-write (appending to a list) loses nothing. All
    /// of its writes land together or, when one fails or `change` throws, none do.
    /// `change` must use only the Transaction, never this store, and should be short:
    /// every other writer waits for it.
    tl::expected<void, Error> update(const std::function<void(Transaction&)>& change);

    ObserverToken addObserver(Observer observer);

    /// Reports each key that other processes changed since the last poll, once. Cheap
    /// when nothing changed (one PRAGMA), so the owner of the main loop may call it on
    /// a short timer.
    void pollExternalChanges();

    // core::BytesStore
    std::optional<core::Bytes> data(std::string_view key) const override;
    /// A failure prints one line and is otherwise survived.
    void setData(std::string_view key, std::span<const std::uint8_t> bytes) override;

private:
    struct State;
    friend class ObserverToken;

    SharedStore(std::filesystem::path file, std::unique_ptr<State> state);

    /// Runs `work` inside BEGIN IMMEDIATE ... COMMIT; the caller holds mutex_. Failures
    /// of the transaction itself are reported as `failure` followed by SQLite's reason.
    tl::expected<void, Error> write(std::string_view failure,
                                    const std::function<tl::expected<void, Error>()>& work);
    void notify(const std::vector<std::string>& keys);
    void removeObserver(std::uint64_t id);
    /// Catches a caller that would deadlock by using the store inside update().
    void assertNotInsideUpdate() const;

    const std::filesystem::path file_;
    mutable std::mutex mutex_;
    std::unique_ptr<State> state_;
    /// The thread running an update() callback, if any.
    std::atomic<std::thread::id> updatingThread_{};

    std::mutex observersMutex_;
    std::map<std::uint64_t, std::shared_ptr<const Observer>> observers_;
    std::uint64_t nextObserverId_ = 1;
};

/// The store as seen from inside SharedStore::update(): reads see the transaction's own
/// writes; nothing is visible to others before the commit.
class SharedStore::Transaction {
public:
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    std::optional<Value> value(std::string_view key) const;
    std::optional<std::int64_t> integer(std::string_view key) const {
        return integerValue(value(key));
    }
    std::optional<double> real(std::string_view key) const { return realValue(value(key)); }
    std::optional<bool> boolean(std::string_view key) const { return booleanValue(value(key)); }
    std::optional<std::string> text(std::string_view key) const { return textValue(value(key)); }
    std::optional<core::Bytes> bytes(std::string_view key) const { return bytesValue(value(key)); }

    /// A failed write fails the whole transaction: later writes are refused and
    /// update() rolls back and returns this error.
    tl::expected<void, Error> set(std::string_view key, const Value& value);
    tl::expected<void, Error> remove(std::string_view key);

private:
    friend class SharedStore;
    explicit Transaction(State& state) : state_(state) {}

    State& state_;
    std::vector<std::string> changedKeys_;
    std::optional<Error> failure_;
};

} // namespace fq::personal
