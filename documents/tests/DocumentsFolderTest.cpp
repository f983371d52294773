// The documents folder: finding a document a person names, and the folder lock that keeps
// concurrent read-modify-write cycles from losing each other's changes.
#include "fq/documents/DocumentsFolder.h"

#include <fq/documents/DurableFile.h>
#include <fq/test/TemporaryFolder.h>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

namespace fq::documents {
namespace {

namespace fs = std::filesystem;

TEST(DocumentsFolderTest, ANameFindsAPathOrAFileInTheFolder) {
    test::TemporaryFolder folder;
    const auto documents = folder / "Documents";
    fs::create_directory(documents);
    for (const char* name : {"Song.frtqul", "notes.txt", "Sheet.frtqulsheet"})
        test::writeBytes(documents / name, "x");
    fs::create_directory(documents / "Folder.frtqul");
    const DocumentsDirectory location = [documents] {
        return tl::expected<fs::path, Error>(documents);
    };
    struct Case {
        std::string text;
        FolderMatch match;
        std::optional<fs::path> found;
    };
    const std::vector<Case> cases{
        {"Song", FolderMatch::anyFile, documents / "Song.frtqul"},
        {"Song.frtqul", FolderMatch::anyFile, documents / "Song.frtqul"},
        {(documents / "notes.txt").string(), FolderMatch::onlyOfThisType, documents / "notes.txt"},
        {"notes.txt", FolderMatch::anyFile, documents / "notes.txt"},
        {"notes.txt", FolderMatch::onlyOfThisType, std::nullopt},
        {"Sheet", FolderMatch::anyFile, std::nullopt}, // another type's extension
        {"Folder", FolderMatch::anyFile, std::nullopt},
        {"", FolderMatch::anyFile, std::nullopt},
    };
    for (const auto& [text, match, found] : cases) {
        const auto result = findDocument(text, "frtqul", location, match);
        ASSERT_TRUE(result) << text;
        EXPECT_EQ(*result, found) << text;
    }
    const DocumentsDirectory none = [] {
        return tl::expected<fs::path, Error>(tl::unexpect, Error{"gone", ErrorKind::notFound});
    };
    EXPECT_EQ(findDocument("Song", "frtqul", none).error().message, "gone");
    EXPECT_TRUE(findDocument((documents / "Song.frtqul").string(), "frtqul", none).value())
        << "a path needs no documents folder";
}

// Each writer reads a count, adds one and writes it back; the lock lets none be lost, among
// threads of one process as among processes.
TEST(DocumentsFolderTest, TheFolderLockKeepsEveryReadModifyWrite) {
    test::TemporaryFolder folder;
    const auto counter = folder / "count";
    ASSERT_TRUE(writeFileDurably(counter, "0"));
    const auto increment = [&](int times) {
        for (int round = 0; round < times; ++round) {
            const auto lock = FolderLock::acquire(folder.path());
            ASSERT_TRUE(lock);
            const auto value = std::stoi(readWholeFile(counter).value());
            ASSERT_TRUE(writeFileDurably(counter, std::to_string(value + 1)));
        }
    };
    std::vector<pid_t> children;
    for (int child = 0; child < 3; ++child)
        if (const pid_t pid = ::fork(); pid == 0) {
            increment(20);
            ::_exit(::testing::Test::HasFailure() ? 1 : 0);
        } else {
            children.push_back(pid);
        }
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 3; ++thread)
        threads.emplace_back(increment, 20);
    for (auto& thread : threads)
        thread.join();
    for (const auto pid : children) {
        int status = 0;
        ::waitpid(pid, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    EXPECT_EQ(test::readBytes(counter), "120");
    EXPECT_EQ(FolderLock::acquire(folder / "missing").error().kind, ErrorKind::notFound);
}

} // namespace
} // namespace fq::documents
