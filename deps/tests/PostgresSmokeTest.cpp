// libpq talks to a throwaway PostgreSQL server of the machine's own installation, reached only
// through a Unix socket in a private folder.

#include "DepsTestSupport.h"

#include <fq/test/TemporaryFolder.h>

#include <gtest/gtest.h>
#include <libpq-fe.h>
#include <pwd.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <memory>

namespace {

namespace fs = std::filesystem;

/// The newest server's programs: Debian keeps them per major version, off the PATH.
std::optional<fs::path> serverPrograms() {
    std::optional<std::pair<int, fs::path>> newest;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator("/usr/lib/postgresql", error)) {
        const auto name = entry.path().filename().string();
        if (!fs::exists(entry.path() / "bin" / "initdb") ||
            name.find_first_not_of("0123456789") != std::string::npos)
            continue;
        if (!newest || std::stoi(name) > newest->first)
            newest = {std::stoi(name), entry.path() / "bin"};
    }
    return newest ? std::optional(newest->second) : std::nullopt;
}

TEST(PostgresSmoke, ConnectsOverTheSocketAndQueries) {
    const auto bin = serverPrograms();
    ASSERT_TRUE(bin) << "PostgreSQL server programs not found";
    const fq::test::TemporaryFolder folder;
    const auto data = folder / "data";
    const auto log = folder / "commands.log";
    // initdb refuses to run as root: then the server runs as the postgres system user
    std::vector<std::string> asUser;
    if (::geteuid() == 0) {
        const passwd* postgres = ::getpwnam("postgres");
        ASSERT_NE(postgres, nullptr);
        ASSERT_EQ(::chown(folder.path().c_str(), postgres->pw_uid, postgres->pw_gid), 0);
        asUser = {"/usr/sbin/runuser", "-u", "postgres", "--"};
    }
    const auto run = [&](std::vector<std::string> argv) {
        argv.insert(argv.begin(), asUser.begin(), asUser.end());
        return fq::deps_test::runProgram(argv, log, folder.path());
    };
    ASSERT_EQ(run({(*bin / "initdb").string(), "-D", data.string(), "--username=postgres",
                   "--auth=trust", "--no-locale", "--no-sync"}),
              0)
        << std::ifstream(log).rdbuf();
    // no TCP listener: the port only names the socket file in our folder
    std::ofstream(data / "postgresql.conf", std::ios::app)
        << "listen_addresses = ''\nunix_socket_directories = '" << folder.path().string()
        << "'\nfsync = off\n";
    const auto started = run({(*bin / "pg_ctl").string(), "-D", data.string(), "-l",
                              (folder / "server.log").string(), "-w", "start"});
    struct Stop {
        std::function<void()> stop;
        ~Stop() { stop(); }
    } stop{[&] { run({(*bin / "pg_ctl").string(), "-D", data.string(), "-m", "fast", "stop"}); }};
    ASSERT_EQ(started, 0) << std::ifstream(folder / "server.log").rdbuf();

    const std::string conninfo =
        "host=" + folder.path().string() + " user=postgres dbname=postgres";
    const std::unique_ptr<PGconn, decltype(&PQfinish)> connection(PQconnectdb(conninfo.c_str()),
                                                                  PQfinish);
    ASSERT_EQ(PQstatus(connection.get()), CONNECTION_OK) << PQerrorMessage(connection.get());
    // parameters travel apart from the SQL text, so '#' and quotes need no escaping
    const char* parameters[] = {"E7#9 'dominant'"};
    const std::unique_ptr<PGresult, decltype(&PQclear)> result(
        PQexecParams(connection.get(), "SELECT upper($1::text)", 1, nullptr, parameters, nullptr,
                     nullptr, 0),
        PQclear);
    ASSERT_EQ(PQresultStatus(result.get()), PGRES_TUPLES_OK) << PQerrorMessage(connection.get());
    EXPECT_STREQ(PQgetvalue(result.get(), 0, 0), "E7#9 'DOMINANT'");
}

} // namespace
