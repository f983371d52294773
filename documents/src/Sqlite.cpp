#include "fq/documents/Sqlite.h"

#include <fmt/format.h>

#include <utility>

namespace fq::documents::sqlite {
namespace {

Failure failureOf(sqlite3* db, int code) {
    // The extended code keeps the message specific (SQLITE_BUSY_SNAPSHOT, ...), but
    // callers decide on the primary code.
    const char* message = db ? sqlite3_errmsg(db) : sqlite3_errstr(code);
    return Failure{code & 0xff, message ? message : sqlite3_errstr(code)};
}

} // namespace

Query::Query(Query&& other) noexcept
    : statement_(std::exchange(other.statement_, nullptr)), bindFailure_(other.bindFailure_) {}

Query::~Query() {
    if (statement_ == nullptr) return;
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
}

void Query::remember(int code) {
    if (code != SQLITE_OK && bindFailure_ == SQLITE_OK) bindFailure_ = code;
}

Query& Query::bind(int index, std::int64_t value) {
    remember(sqlite3_bind_int64(statement_, index, value));
    return *this;
}

Query& Query::bind(int index, double value) {
    remember(sqlite3_bind_double(statement_, index, value));
    return *this;
}

Query& Query::bindText(int index, std::string_view text) {
    // A null pointer would bind NULL, not the empty text.
    const char* data = text.data() ? text.data() : "";
    remember(
        sqlite3_bind_text64(statement_, index, data, text.size(), SQLITE_TRANSIENT, SQLITE_UTF8));
    return *this;
}

Query& Query::bindBlob(int index, std::span<const std::uint8_t> bytes) {
    // Likewise, an empty span may carry a null pointer, which would bind NULL.
    if (bytes.empty()) {
        remember(sqlite3_bind_zeroblob(statement_, index, 0));
    } else {
        remember(
            sqlite3_bind_blob64(statement_, index, bytes.data(), bytes.size(), SQLITE_TRANSIENT));
    }
    return *this;
}

Result<bool> Query::step() {
    sqlite3* db = sqlite3_db_handle(statement_);
    if (bindFailure_ != SQLITE_OK) return tl::unexpected(failureOf(db, bindFailure_));
    const int code = sqlite3_step(statement_);
    if (code == SQLITE_ROW) return true;
    if (code == SQLITE_DONE) return false;
    return tl::unexpected(failureOf(db, code));
}

Result<void> Query::run() {
    for (;;) {
        auto row = step();
        if (!row) return tl::unexpected(std::move(row.error()));
        if (!*row) return {};
    }
}

std::string_view Query::columnText(int column) const {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_, column));
    return text ? std::string_view(text, size) : std::string_view();
}

std::span<const std::uint8_t> Query::columnBlob(int column) const {
    const auto* bytes = static_cast<const std::uint8_t*>(sqlite3_column_blob(statement_, column));
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_, column));
    return bytes ? std::span(bytes, size) : std::span<const std::uint8_t>();
}

Result<Connection> Connection::open(const std::filesystem::path& file) {
    sqlite3* db = nullptr;
    const int code = sqlite3_open_v2(file.c_str(), &db,
                                     SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE |
                                         SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE,
                                     nullptr);
    Connection connection(db); // closes db on every path, even a failed open
    if (code != SQLITE_OK) return tl::unexpected(failureOf(db, code));
    return connection;
}

Result<Connection> Connection::openImmutable(const std::filesystem::path& file) {
    // As a URI, so that "immutable" can be said; '?' and '#' in the path must be escaped.
    std::string uri = "file:";
    for (const char c : std::filesystem::absolute(file).string()) {
        if (c == '?' || c == '#' || c == '%')
            uri += fmt::format("%{:02X}", static_cast<unsigned char>(c));
        else
            uri += c;
    }
    uri += "?immutable=1";
    sqlite3* db = nullptr;
    const int code = sqlite3_open_v2(uri.c_str(), &db,
                                     SQLITE_OPEN_READONLY | SQLITE_OPEN_URI | SQLITE_OPEN_NOMUTEX |
                                         SQLITE_OPEN_EXRESCODE,
                                     nullptr);
    Connection connection(db);
    if (code != SQLITE_OK) return tl::unexpected(failureOf(db, code));
    return connection;
}

Failure Connection::failure(int code) const {
    return failureOf(db_.get(), code);
}

Result<void> Connection::execute(const char* sql) {
    const int code = sqlite3_exec(db_.get(), sql, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) return tl::unexpected(failure(code));
    return {};
}

Result<Query> Connection::prepare(std::string_view sql) {
    auto found = statements_.find(sql);
    if (found == statements_.end()) {
        sqlite3_stmt* statement = nullptr;
        const int code = sqlite3_prepare_v3(db_.get(), sql.data(), static_cast<int>(sql.size()),
                                            SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
        if (code != SQLITE_OK) {
            sqlite3_finalize(statement);
            return tl::unexpected(failure(code));
        }
        found = statements_.emplace(std::string(sql), statement).first;
    }
    return Query(found->second.get());
}

Result<std::int64_t> Connection::integer(std::string_view sql) {
    auto query = prepare(sql);
    if (!query) return tl::unexpected(std::move(query.error()));
    auto row = query->step();
    if (!row) return tl::unexpected(std::move(row.error()));
    return *row ? query->columnInteger(0) : 0;
}

} // namespace fq::documents::sqlite
