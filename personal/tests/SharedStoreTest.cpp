// The shared store: typed values, observers, all-or-nothing updates, processes and threads
// racing on one file, and files that are not a usable store.

#include "fq/personal/SharedStore.h"

#include "TemporaryStore.h"

#include <gmock/gmock.h>
#include <grp.h>
#include <nlohmann/json.hpp>
#include <spawn.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <map>
#include <set>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace fq::personal {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using Int = std::int64_t;
using Value = SharedStore::Value;

/// Each test opens its own connections, some only after making the file.
class SharedStoreTest : public TemporaryStoreTest {
protected:
    void SetUp() override {}
};

nlohmann::json listUnder(SharedStore& store, std::string_view key) {
    const auto bytes = store.bytes(key).value_or(bytesOf("[]"));
    return nlohmann::json::parse(bytes);
}

/// Appends `item` to the JSON list under `key` in one transaction.
tl::expected<void, Error> append(SharedStore& store, std::string_view key,
                                 const std::string& item) {
    return store.update([&](SharedStore::Transaction& transaction) {
        auto list = nlohmann::json::parse(transaction.bytes(key).value_or(bytesOf("[]")));
        list.push_back(item);
        (void)transaction.set(key, bytesOf(list.dump()));
    });
}

TEST_F(SharedStoreTest, ValuesComeBackWithTheirTypeAfterReopening) {
    core::Bytes large(3 * 1024 * 1024 + 17);
    for (std::size_t i = 0; i < large.size(); ++i)
        large[i] = static_cast<std::uint8_t>(i * 7);
    const std::vector<std::pair<std::string, Value>> table{
        {"negative", Int{-1}},
        {"smallest", std::numeric_limits<Int>::min()},
        {"largest", std::numeric_limits<Int>::max()},
        {"a4Frequency", 440.5},
        {"infinity", std::numeric_limits<double>::infinity()},
        {"on", true},
        {"emptyText", std::string()},
        {"rootNote", std::string("C♯ minor 7th 𝄪")},
        {"textWithZero", std::string("a\0b", 3)},
        {"notUtf8", std::string("\xff\xfe")},
        {"emptyBytes", core::Bytes{}},
        {"mixedBytes", core::Bytes{0, 255, 0, 1}},
        {"large", large},
        {"key with\nnewline and ♯", Int{5}},
    };
    auto store = openStore();
    ASSERT_TRUE(store);
    for (const auto& [key, value] : table)
        ASSERT_TRUE(store->set(key, value)) << key;

    const auto expectTable = [&table](SharedStore& opened) {
        for (const auto& [key, value] : table) // not EXPECT_EQ: it would print 3 MB
            EXPECT_TRUE(opened.value(key) == value) << key;
    };
    expectTable(*store);
    store.reset();
    store = openStore();
    expectTable(*store);
    // -0.0 equals 0.0, so its sign is checked on its own.
    ASSERT_TRUE(store->set("minusZero", -0.0));
    EXPECT_TRUE(std::signbit(store->real("minusZero").value_or(1.0)));
}

TEST_F(SharedStoreTest, AValueReplacesTheTypeTooAndARefusedOneChangesNothing) {
    auto store = openStore();
    ASSERT_TRUE(store->set("metronomeSound", Int{1}));
    ASSERT_TRUE(store->set("metronomeSound", std::string("wood")));
    EXPECT_EQ(store->integer("metronomeSound"), std::nullopt);
    ASSERT_TRUE(store->set("metronomeSound", true));
    EXPECT_EQ(store->value("metronomeSound"), Value(true));

    std::vector<std::string> heard;
    auto token = record(*store, heard);
    const auto nan = store->set("metronomeSound", std::nan(""));
    ASSERT_FALSE(nan);
    EXPECT_EQ(nan.error().message,
              "Cannot store \"metronomeSound\" in the preference store: the number is NaN");
    const auto empty = store->set("", Int{1});
    ASSERT_FALSE(empty);
    EXPECT_EQ(empty.error().message, "Cannot store \"\" in the preference store: the key is empty");
    EXPECT_EQ(store->value("metronomeSound"), Value(true));
    EXPECT_THAT(store->keys(), ElementsAre("metronomeSound"));
    EXPECT_TRUE(heard.empty());
}

TEST_F(SharedStoreTest, ObserversHearEachOwnChangeOnceAndStopWithTheirToken) {
    auto store = openStore();
    ASSERT_TRUE(store->set("gone", Int{1}));
    std::vector<std::string> heard;
    std::optional<Value> seenInside;
    auto token = record(*store, heard);
    // An observer may read the store: no lock is held while it runs.
    auto reader = store->addObserver([&](std::string_view key) {
        if (key == "tempo") seenInside = store->value(key);
    });

    ASSERT_TRUE(store->set("tempo", Int{96}));
    ASSERT_TRUE(store->remove("gone"));
    ASSERT_TRUE(store->remove("gone")); // nothing left to remove: no change
    ASSERT_TRUE(store->update([](SharedStore::Transaction& transaction) {
        (void)transaction.set("beats", Int{3});
        (void)transaction.set("subdivisions", Int{2});
        (void)transaction.set("beats", Int{4});
        (void)transaction.remove("never there");
    }));
    EXPECT_THAT(heard, ElementsAre("tempo", "gone", "beats", "subdivisions"));
    EXPECT_EQ(seenInside, Value(Int{96}));
    EXPECT_THAT(store->keys(), ElementsAre("beats", "subdivisions", "tempo"));

    token.reset();
    ASSERT_TRUE(store->set("tempo", Int{100}));
    EXPECT_EQ(heard.size(), 4u);

    auto outliving = store->addObserver([](std::string_view) {});
    store.reset();
    outliving.reset(); // the store is gone; nothing to remove from
}

TEST_F(SharedStoreTest, AnUpdateLandsWhollyOrNotAtAll) {
    auto store = openStore();
    ASSERT_TRUE(append(*store, "favouritedChords", "C"));
    std::vector<std::string> heard;
    auto token = record(*store, heard);

    const auto failed = store->update([](SharedStore::Transaction& transaction) {
        (void)transaction.set("favouritedChords", bytesOf(R"(["C","D"])"));
        EXPECT_EQ(transaction.bytes("favouritedChords"), bytesOf(R"(["C","D"])"));
        (void)transaction.set("other", Int{5});
        (void)transaction.set("a4Frequency", std::nan(""));
        EXPECT_FALSE(transaction.set("later", Int{1})); // the first failure sticks
    });
    ASSERT_FALSE(failed);
    EXPECT_THAT(failed.error().message, HasSubstr("the number is NaN"));

    const auto throwing = [](SharedStore::Transaction& transaction) {
        (void)transaction.set("favouritedChords", bytesOf("[]"));
        throw std::runtime_error("the caller's own fault");
    };
    EXPECT_THROW((void)store->update(throwing), std::runtime_error);

    EXPECT_EQ(listUnder(*store, "favouritedChords"), nlohmann::json::array({"C"}));
    EXPECT_THAT(store->keys(), ElementsAre("favouritedChords"));
    EXPECT_TRUE(heard.empty());
    ASSERT_TRUE(append(*store, "favouritedChords", "D")); // still usable
    EXPECT_EQ(listUnder(*store, "favouritedChords"), nlohmann::json::array({"C", "D"}));
}

TEST_F(SharedStoreTest, ThreadsOnTwoConnectionsLoseNoAppend) {
    auto first = openStore();
    auto second = openStore();
    constexpr int perThread = 100;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            auto& store = t % 2 ? *first : *second;
            for (int i = 0; i < perThread; ++i)
                EXPECT_TRUE(append(store, "list", std::to_string(t * perThread + i)));
        });
    }
    for (auto& thread : threads)
        thread.join();
    const auto list = listUnder(*first, "list");
    EXPECT_EQ(list.size(), 4u * perThread);
    EXPECT_EQ(std::set<std::string>(list.begin(), list.end()).size(), 4u * perThread);
}

/// Starts one writer program per tag, each appending `count` items to the list under `key`.
std::vector<pid_t> startWriters(const fs::path& file, std::string_view key, int count,
                                const std::vector<std::string>& tags) {
    std::vector<pid_t> children;
    for (const auto& tag : tags) {
        std::vector<std::string> arguments{FQ_STORE_WRITER, file.string(), std::string(key),
                                           std::to_string(count), tag};
        std::vector<char*> argv;
        for (auto& argument : arguments)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        pid_t child = 0;
        if (posix_spawn(&child, FQ_STORE_WRITER, nullptr, nullptr, argv.data(), environ) == 0)
            children.push_back(child);
    }
    EXPECT_EQ(children.size(), tags.size());
    return children;
}

/// Waits for every child; true when all of them succeeded.
bool reap(const std::vector<pid_t>& children) {
    bool succeeded = true;
    for (const auto child : children) {
        int status = 0;
        succeeded &=
            waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }
    return succeeded;
}

TEST_F(SharedStoreTest, ProcessesCreatingAndAppendingAtOnceLoseNothing) {
    constexpr int perProcess = 200;
    // The children start before the file exists, so they also race to create it. No
    // ASSERT until they are reaped: the folder must outlive them.
    const auto children =
        startWriters(file_, "chordCollections", perProcess, {"p0", "p1", "p2", "p3"});
    auto store = openStore();
    for (int i = 0; store && i < perProcess; ++i)
        EXPECT_TRUE(append(*store, "chordCollections", "parent-" + std::to_string(i)));
    EXPECT_TRUE(reap(children));
    ASSERT_TRUE(store);

    const auto list = listUnder(*store, "chordCollections");
    ASSERT_EQ(list.size(), 5u * perProcess);
    // Each writer's items are all there, in the order it appended them.
    std::map<std::string, int> next;
    for (const auto& item : list) {
        const auto text = item.get<std::string>();
        const auto dash = text.find('-');
        EXPECT_EQ(std::stoi(text.substr(dash + 1)), next[text.substr(0, dash)]++) << text;
    }
}

TEST_F(SharedStoreTest, PollingReportsOtherWritersChangesOnceEach) {
    auto mine = openStore();
    auto theirs = openStore();
    ASSERT_TRUE(theirs->set("removed", Int{1}));
    mine->pollExternalChanges(); // catch up with the set-up
    std::vector<std::string> heard;
    auto token = record(*mine, heard);

    ASSERT_TRUE(theirs->set("tempo", Int{90}));
    // Heard at once, never again by polling; and it must not hide "tempo" before it.
    ASSERT_TRUE(mine->set("beats", Int{3}));
    ASSERT_TRUE(theirs->set("level", std::string("beginner")));
    ASSERT_TRUE(theirs->remove("removed"));
    ASSERT_TRUE(theirs->remove("absent"));
    ASSERT_TRUE(theirs->set("level", std::string("advanced")));
    heard.clear();

    mine->pollExternalChanges();
    EXPECT_THAT(heard, ElementsAre("tempo", "level", "removed"));
    EXPECT_EQ(mine->text("level"), "advanced");
    mine->pollExternalChanges();
    EXPECT_EQ(heard.size(), 3u);

    // Only this object's own writes since: nothing to report.
    ASSERT_TRUE(mine->set("beats", Int{4}));
    heard.clear();
    mine->pollExternalChanges();
    EXPECT_TRUE(heard.empty());
}

TEST_F(SharedStoreTest, APollerFallenBehindTheLogHearsEveryKey) {
    auto mine = openStore();
    auto theirs = openStore();
    ASSERT_TRUE(theirs->set("level", std::string("beginner")));
    ASSERT_TRUE(theirs->set("tempo", Int{0}));
    mine->pollExternalChanges();
    std::vector<std::string> heard;
    auto token = record(*mine, heard);

    ASSERT_TRUE(theirs->update([](SharedStore::Transaction& transaction) {
        for (Int i = 0; i <= config::changeLogLength; ++i)
            (void)transaction.set("tempo", i);
    }));
    mine->pollExternalChanges();
    EXPECT_THAT(heard, ElementsAre("tempo", "level"));
}

void runSql(const fs::path& file, const char* sql) {
    sqlite3* db = nullptr;
    sqlite3_open(file.c_str(), &db);
    sqlite3_exec(db, sql, nullptr, nullptr, nullptr);
    sqlite3_close(db);
}

TEST_F(SharedStoreTest, UnusableFilesAreRefusedInOneLineAndLeftUntouched) {
    std::string noise(8192, '\0');
    for (std::size_t i = 0; i < noise.size(); ++i)
        noise[i] = static_cast<char>(i * 131 + 7);
    const auto writeText = [this](std::string text) {
        return [this, text] { test::writeBytes(file_, text); };
    };
    /// A store with values, then `change` made to its second page (where the values live).
    const auto storeWithDamage = [this](std::function<void(std::string&)> change) {
        return [this, change] {
            for (Int i = 0; i < 50; ++i)
                ASSERT_TRUE(openStore()->set("key" + std::to_string(i), i));
            auto bytes = test::readBytes(file_);
            ASSERT_GT(bytes.size(), 2u * 4096u);
            change(bytes);
            test::writeBytes(file_, bytes);
        };
    };
    const std::string damaged = "; move " + file_.string() + " away to start afresh";
    const std::vector<std::tuple<const char*, std::function<void()>, std::string, ErrorKind>> cases{
        {"text", writeText(std::string(200, 'x') + "\nnot a database\n"),
         "it is damaged (file is not a database)" + damaged, ErrorKind::corrupt},
        {"noise", writeText(noise), "it is damaged (file is not a database)" + damaged,
         ErrorKind::corrupt},
        {"a damaged header", writeText(std::string("SQLite format 3\0", 16) + noise),
         "it is damaged (file is not a database)" + damaged, ErrorKind::corrupt},
        // these two would otherwise read as a store holding only defaults
        {"a page of noise",
         storeWithDamage([&](std::string& bytes) { bytes.replace(4096, 4096, noise, 0, 4096); }),
         "it is damaged (database disk image is malformed)" + damaged, ErrorKind::corrupt},
        {"a page's header zeroed",
         storeWithDamage([](std::string& bytes) { bytes.replace(4096 + 8, 92, 92, '\0'); }),
         "it is damaged (database disk image is malformed)" + damaged, ErrorKind::corrupt},
        {"another program's database",
         [this] {
             runSql(file_, "CREATE TABLE songs (title TEXT); INSERT INTO songs VALUES ('x')");
         },
         "the file belongs to another program", ErrorKind::refused},
        {"a newer store",
         [this] {
             ASSERT_TRUE(openStore()->set("tempo", Int{90}));
             runSql(file_, "PRAGMA user_version = 2");
         },
         "it was written by a newer version of Fret Quill", ErrorKind::refused},
    };
    for (const auto& [what, make, reason, kind] : cases) {
        SCOPED_TRACE(what);
        fs::remove_all(folder_.path());
        fs::create_directory(folder_.path());
        make();
        const auto before = test::readBytes(file_);
        const auto opened = SharedStore::open(file_);
        ASSERT_FALSE(opened);
        EXPECT_EQ(opened.error().message,
                  "Cannot open the preference store at " + file_.string() + ": " + reason);
        EXPECT_EQ(opened.error().kind, kind);
        EXPECT_EQ(test::readBytes(file_), before);
        EXPECT_EQ(std::distance(fs::directory_iterator(folder_.path()), fs::directory_iterator()),
                  1);
    }
    for (const auto& [path, reason] :
         {std::pair{folder_ / "missing" / "store.sqlite", "its folder does not exist"},
          std::pair{folder_.path(), "it is a folder"}}) {
        const auto opened = SharedStore::open(path);
        ASSERT_FALSE(opened) << path;
        EXPECT_EQ(opened.error().message,
                  "Cannot open the preference store at " + path.string() + ": " + reason);
    }
    EXPECT_FALSE(fs::exists(folder_ / "missing"));
}

/// Runs `check` as a person without special rights and gives what it reports. Root may
/// write any file, so as root it runs in a child process that has become "nobody".
std::string unprivileged(const std::function<std::string()>& check) {
    if (::geteuid() != 0) return check();
    int pipe[2];
    if (::pipe(pipe) != 0) return "no pipe";
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(pipe[0]);
        const bool dropped =
            ::setgroups(0, nullptr) == 0 && ::setgid(65534) == 0 && ::setuid(65534) == 0;
        const auto report = dropped ? check() : std::string("cannot become nobody");
        (void)!::write(pipe[1], report.data(), report.size());
        ::_exit(0);
    }
    ::close(pipe[1]);
    std::string report;
    char buffer[512];
    for (ssize_t n; (n = ::read(pipe[0], buffer, sizeof buffer)) > 0;)
        report.append(buffer, static_cast<std::size_t>(n));
    ::close(pipe[0]);
    ::waitpid(child, nullptr, 0);
    return report;
}

TEST_F(SharedStoreTest, AStoreThatCannotBeWrittenIsReadAndKeptAsItWas) {
    ASSERT_TRUE(openStore()->set("tempo", Int{90}));
    ASSERT_FALSE(fs::exists(file_.string() + "-wal")) << "the last connection cleans up";
    const auto before = test::readBytes(file_);
    // a read-only file in a folder others may write; then a read-only folder as well
    for (const auto folderMode : {0777, 0555}) {
        SCOPED_TRACE(folderMode);
        ::chmod(file_.c_str(), 0444);
        ::chmod(folder_.path().c_str(), static_cast<mode_t>(folderMode));
        const auto report = unprivileged([this]() -> std::string {
            auto store = SharedStore::open(file_);
            if (!store) return "open: " + store.error().message;
            if ((*store)->integer("tempo") != 90) return "the value is not read";
            const auto expected =
                "Cannot store \"tempo\" in the preference store: " + file_.string() +
                " is read-only; nothing was changed";
            const auto set = (*store)->set("tempo", Int{120});
            if (set || set.error().message != expected || set.error().kind != ErrorKind::io)
                return "set: " + (set ? "succeeded" : set.error().message);
            if ((*store)->update([](auto& transaction) { (void)transaction.remove("tempo"); }))
                return "update succeeded";
            return (*store)->integer("tempo") == 90 ? "" : "the value changed";
        });
        ::chmod(folder_.path().c_str(), 0700);
        ::chmod(file_.c_str(), 0644);
        EXPECT_EQ(report, "");
        EXPECT_EQ(test::readBytes(file_), before);
    }
}

TEST_F(SharedStoreTest, TheTheoryCoreSeesBytesThroughItsInterface) {
    auto store = openStore();
    core::BytesStore& bytesStore = *store;
    const core::Bytes shapes{0, 3, 2, 0, 1, 0, 255};
    bytesStore.setData("positions.C.major", shapes);
    bytesStore.setData("positions.none", core::Bytes{});
    EXPECT_EQ(bytesStore.data("positions.C.major"), shapes);
    EXPECT_EQ(bytesStore.data("positions.none"), core::Bytes{});
    EXPECT_EQ(bytesStore.data("positions.unknown"), std::nullopt);
    ASSERT_TRUE(store->set("text", std::string("not bytes")));
    EXPECT_EQ(bytesStore.data("text"), std::nullopt);

    testing::internal::CaptureStdout();
    bytesStore.setData("", shapes);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Cannot store \"\" in the preference store: the key is empty\n");
    EXPECT_THAT(store->keys(), ElementsAre("positions.C.major", "positions.none", "text"));
}

} // namespace
} // namespace fq::personal
