#include <gtest/gtest.h>
#include <sqlite3.h>

#include <memory>
#include <string>
#include <vector>

namespace {

struct DbDeleter {
    void operator()(sqlite3* db) const { sqlite3_close(db); }
};
struct StmtDeleter {
    void operator()(sqlite3_stmt* stmt) const { sqlite3_finalize(stmt); }
};
using Db = std::unique_ptr<sqlite3, DbDeleter>;
using Stmt = std::unique_ptr<sqlite3_stmt, StmtDeleter>;

class SqliteSmoke : public ::testing::Test {
protected:
    void SetUp() override {
        sqlite3* raw = nullptr;
        const int rc = sqlite3_open(":memory:", &raw);
        db_.reset(raw);
        ASSERT_EQ(rc, SQLITE_OK);
    }

    void exec(const std::string& sql) {
        char* error = nullptr;
        const int rc = sqlite3_exec(db_.get(), sql.c_str(), nullptr, nullptr, &error);
        const std::string message = error ? error : "";
        sqlite3_free(error);
        ASSERT_EQ(rc, SQLITE_OK) << message << "\n" << sql;
    }

    // First column of every row, with `param` bound to ?1.
    std::vector<std::string> column(const std::string& sql, const std::string& param = {}) {
        sqlite3_stmt* raw = nullptr;
        if (sqlite3_prepare_v2(db_.get(), sql.c_str(), -1, &raw, nullptr) != SQLITE_OK) {
            ADD_FAILURE() << sqlite3_errmsg(db_.get()) << "\n" << sql;
            return {};
        }
        Stmt stmt(raw);
        if (!param.empty()) {
            sqlite3_bind_text(stmt.get(), 1, param.c_str(), -1, SQLITE_TRANSIENT);
        }
        std::vector<std::string> values;
        int rc = SQLITE_ROW;
        while ((rc = sqlite3_step(stmt.get())) == SQLITE_ROW) {
            values.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(stmt.get(), 0)));
        }
        EXPECT_EQ(rc, SQLITE_DONE) << sqlite3_errmsg(db_.get());
        return values;
    }

    void addChords(const std::string& table) {
        exec("INSERT INTO " + table + "(name) VALUES ('E7#9'), ('E7 9'), ('C/G'), ('Am7');");
    }

private:
    Db db_;
};

// Chord symbols are searched as whole words: '#' and '/' must stay inside a token.
TEST_F(SqliteSmoke, Fts5KeepsChordSymbolsAsSingleTokens) {
    exec("CREATE VIRTUAL TABLE chords USING fts5(name, tokenize=\"unicode61 tokenchars '#/'\");");
    addChords("chords");
    exec("CREATE VIRTUAL TABLE chord_terms USING fts5vocab(chords, 'row');");

    EXPECT_EQ(column("SELECT term FROM chord_terms ORDER BY term;"),
              (std::vector<std::string>{"9", "am7", "c/g", "e7", "e7#9"}));

    const std::string match = "SELECT name FROM chords WHERE chords MATCH ?1 ORDER BY rowid;";
    // FTS5 query syntax needs such tokens quoted.
    EXPECT_EQ(column(match, "\"E7#9\""), std::vector<std::string>{"E7#9"});
    EXPECT_EQ(column(match, "\"c/g\""), std::vector<std::string>{"C/G"});
    EXPECT_EQ(column(match, "E7"), std::vector<std::string>{"E7 9"});
}

// The same rows under the default tokenizer, to show the option above is what makes the
// difference: there "E7#9" falls apart into "e7" and "9".
TEST_F(SqliteSmoke, Fts5DefaultTokenizerSplitsChordSymbols) {
    exec("CREATE VIRTUAL TABLE chords USING fts5(name);");
    addChords("chords");

    const std::string match = "SELECT name FROM chords WHERE chords MATCH ?1 ORDER BY rowid;";
    EXPECT_EQ(column(match, "E7"), (std::vector<std::string>{"E7#9", "E7 9"}));
}

} // namespace
