#pragma once

// The one wrapper of the SQLite C API: handles own their objects, status codes become
// `Result`s here, and nothing above this file sees a raw return code.

#include <sqlite3.h>
#include <tl/expected.hpp>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>

namespace fq::documents::sqlite {

/// A failed call: the primary result code (SQLITE_BUSY, SQLITE_NOTADB, ...) and the
/// connection's message for it.
struct Failure {
    int code = SQLITE_ERROR;
    std::string message;
};

template <typename T>
using Result = tl::expected<T, Failure>;

/// A prepared statement borrowed from the connection's cache. Leaving scope resets it,
/// which matters: a statement left mid-result would hold its read snapshot open.
class Query {
public:
    explicit Query(sqlite3_stmt* statement) : statement_(statement) {}
    Query(Query&& other) noexcept;
    Query& operator=(Query&&) = delete;
    ~Query();

    Query& bind(int index, std::int64_t value);
    Query& bind(int index, double value);
    Query& bindText(int index, std::string_view text);
    Query& bindBlob(int index, std::span<const std::uint8_t> bytes);

    /// Steps once: true when a row is ready, false when the statement is done.
    Result<bool> step();
    /// Steps to the end, ignoring rows.
    Result<void> run();

    int columnType(int column) const { return sqlite3_column_type(statement_, column); }
    std::int64_t columnInteger(int column) const {
        return sqlite3_column_int64(statement_, column);
    }
    double columnReal(int column) const { return sqlite3_column_double(statement_, column); }
    std::string_view columnText(int column) const;
    std::span<const std::uint8_t> columnBlob(int column) const;

private:
    void remember(int code);

    sqlite3_stmt* statement_;
    /// The first failed bind, reported by the next step.
    int bindFailure_ = SQLITE_OK;
};

class Connection {
public:
    /// Opens (or creates) the file read-write. Serialisation is the owner's job, so
    /// SQLite's own per-connection mutex is left out.
    static Result<Connection> open(const std::filesystem::path& file);
    /// Opens an existing file for reading only, as it stands on disk: for a file this
    /// process may not write, which SQLite could not otherwise read in WAL mode. Other
    /// processes' later changes are not seen.
    static Result<Connection> openImmutable(const std::filesystem::path& file);

    /// Runs statements that return no rows worth reading.
    Result<void> execute(const char* sql);
    /// A cached prepared statement for `sql`.
    Result<Query> prepare(std::string_view sql);
    /// The single integer a statement such as a PRAGMA returns.
    Result<std::int64_t> integer(std::string_view sql);

    void setBusyTimeout(int milliseconds) { sqlite3_busy_timeout(db_.get(), milliseconds); }
    /// Rows changed by the last statement.
    std::int64_t changes() const { return sqlite3_changes64(db_.get()); }
    std::int64_t lastInsertRowid() const { return sqlite3_last_insert_rowid(db_.get()); }
    bool inTransaction() const { return sqlite3_get_autocommit(db_.get()) == 0; }

private:
    struct CloseConnection {
        void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
    };
    struct FinalizeStatement {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };

    struct SqlHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view sql) const noexcept {
            return std::hash<std::string_view>{}(sql);
        }
    };

    explicit Connection(sqlite3* db) : db_(db) {}
    Failure failure(int code) const;

    std::unique_ptr<sqlite3, CloseConnection> db_;
    // Declared after db_ so that statements are finalised before the connection closes.
    std::unordered_map<std::string, std::unique_ptr<sqlite3_stmt, FinalizeStatement>, SqlHash,
                       std::equal_to<>>
        statements_;
};

} // namespace fq::documents::sqlite
