#include "DepsTestSupport.h"

#include <gtest/gtest.h>
#include <libpq-fe.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

struct ConnDeleter {
    void operator()(PGconn* conn) const { PQfinish(conn); }
};
struct ResultDeleter {
    void operator()(PGresult* result) const { PQclear(result); }
};
using Conn = std::unique_ptr<PGconn, ConnDeleter>;
using Result = std::unique_ptr<PGresult, ResultDeleter>;

// The server programs are not on PATH on Debian: they live per major version under
// /usr/lib/postgresql, while pg_config there may describe only the client. Newest wins.
std::optional<fs::path> serverBinDir() {
    std::vector<std::pair<int, fs::path>> found;
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator("/usr/lib/postgresql", ec)) {
        const fs::path bin = entry.path() / "bin";
        if (!fs::exists(bin / "initdb") || !fs::exists(bin / "pg_ctl")) continue;
        const std::string name = entry.path().filename().string();
        const auto isDigit = [](unsigned char c) { return c >= '0' && c <= '9'; };
        if (name.empty() || !std::all_of(name.begin(), name.end(), isDigit)) continue;
        found.emplace_back(std::stoi(name), bin);
    }
    if (found.empty()) {
        if (fs::exists("/usr/bin/initdb") && fs::exists("/usr/bin/pg_ctl")) return "/usr/bin";
        return std::nullopt;
    }
    return std::max_element(found.begin(), found.end())->second;
}

std::string slurp(const fs::path& file) {
    std::ifstream in(file);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// A throwaway cluster reachable only through a Unix socket in its own directory. initdb will
// not run as root, so as root the server programs run as the postgres system user.
class PostgresSmoke : public ::testing::Test {
protected:
    // The port only names the socket file inside our private directory; with no TCP listener
    // it cannot clash with any other server on this machine.
    static constexpr int kPort = 5432;

    void SetUp() override {
        const std::optional<fs::path> bin = serverBinDir();
        ASSERT_TRUE(bin.has_value()) << "PostgreSQL server programs not found";
        bin_ = *bin;
        dir_.emplace("fq-pg-");
        log_ = dir_->path() / "commands.log";

        if (::geteuid() == 0) {
            const passwd* postgres = ::getpwnam("postgres");
            ASSERT_NE(postgres, nullptr) << "no postgres system user to run the server as";
            ASSERT_EQ(::chown(dir_->path().c_str(), postgres->pw_uid, postgres->pw_gid), 0);
            asUser_ = {"/usr/sbin/runuser", "-u", "postgres", "--"};
            ASSERT_TRUE(fs::exists(asUser_.front())) << "runuser not found";
        }

        ASSERT_EQ(run({(bin_ / "initdb").string(), "-D", dataDir().string(), "--username=postgres",
                       "--auth=trust", "--encoding=UTF8", "--no-locale", "--no-sync"}),
                  0)
            << slurp(log_);
        {
            std::ofstream conf(dataDir() / "postgresql.conf", std::ios::app);
            conf << "listen_addresses = ''\n"
                 << "unix_socket_directories = '" << dir_->path().string() << "'\n"
                 << "port = " << kPort << "\n"
                 << "fsync = off\n";
            ASSERT_TRUE(conf.good());
        }
        // A start that times out may still leave a server behind, so stop whenever one was tried.
        startTried_ = true;
        ASSERT_EQ(run({(bin_ / "pg_ctl").string(), "-D", dataDir().string(), "-l",
                       serverLog().string(), "-w", "-t", "60", "start"}),
                  0)
            << slurp(log_) << slurp(serverLog());
        started_ = true;
    }

    void TearDown() override {
        if (startTried_) {
            const std::optional<int> stopped = run(
                {(bin_ / "pg_ctl").string(), "-D", dataDir().string(), "-m", "fast", "-w", "stop"});
            if (started_) {
                EXPECT_EQ(stopped, 0) << slurp(log_);
            }
        }
        dir_.reset();
    }

    std::string conninfo() const {
        return "host=" + dir_->path().string() + " port=" + std::to_string(kPort) +
               " user=postgres dbname=postgres connect_timeout=10";
    }

    std::string serverLogText() const { return slurp(serverLog()); }

private:
    fs::path dataDir() const { return dir_->path() / "data"; }
    fs::path serverLog() const { return dir_->path() / "server.log"; }

    std::optional<int> run(std::vector<std::string> argv) const {
        argv.insert(argv.begin(), asUser_.begin(), asUser_.end());
        return fq::deps_test::runProgram(argv, log_, dir_->path());
    }

    fs::path bin_;
    std::optional<fq::deps_test::TempDir> dir_;
    fs::path log_;
    std::vector<std::string> asUser_;
    bool startTried_ = false;
    bool started_ = false;
};

TEST_F(PostgresSmoke, ConnectsOverTheSocketAndQueries) {
    const Conn conn(PQconnectdb(conninfo().c_str()));
    ASSERT_NE(conn, nullptr);
    ASSERT_EQ(PQstatus(conn.get()), CONNECTION_OK) << PQerrorMessage(conn.get()) << serverLogText();

    const Result sum(PQexec(conn.get(), "SELECT 1+1"));
    ASSERT_EQ(PQresultStatus(sum.get()), PGRES_TUPLES_OK) << PQerrorMessage(conn.get());
    ASSERT_EQ(PQntuples(sum.get()), 1);
    ASSERT_EQ(PQnfields(sum.get()), 1);
    EXPECT_STREQ(PQgetvalue(sum.get(), 0, 0), "2");

    // Parameters travel separately from the SQL text, so '#' and quotes need no escaping.
    const char* params[] = {"E7#9 'dominant'"};
    const Result echoed(PQexecParams(conn.get(), "SELECT upper($1::text)", 1, nullptr, params,
                                     nullptr, nullptr, 0));
    ASSERT_EQ(PQresultStatus(echoed.get()), PGRES_TUPLES_OK) << PQerrorMessage(conn.get());
    EXPECT_STREQ(PQgetvalue(echoed.get(), 0, 0), "E7#9 'DOMINANT'");
}

} // namespace
