// Durable writes: replacing, refusing, and surviving a writer killed at any moment.
#include "fq/documents/DurableFile.h"

#include <fq/test/TemporaryFolder.h>

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <set>
#include <thread>

namespace fq::documents {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> folderNames(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

TEST(DurableWriteTest, ReplacesOrRefusesAndLeavesNothingBehind) {
    test::TemporaryFolder folder;
    const auto file = folder.path() / "a.frtqul";
    ASSERT_TRUE(writeFileDurably(file, "first"));
    ::chmod(file.c_str(), 0640);
    ASSERT_TRUE(writeFileDurably(file, "second"));
    EXPECT_EQ(test::readBytes(file), "second");
    struct stat status {};
    ::stat(file.c_str(), &status);
    EXPECT_EQ(status.st_mode & 0777, 0640u) << "a replaced file keeps its permissions";

    const auto refused = writeFileDurably(file, "third", ExistingFile::refuse);
    ASSERT_FALSE(refused);
    EXPECT_EQ(test::readBytes(file), "second");
    EXPECT_FALSE(writeFileDurably(folder.path() / "missing" / "b.frtqul", "x"));
    EXPECT_EQ(folderNames(folder.path()), std::vector<std::string>{"a.frtqul"})
        << "no temporary file is left";

    ASSERT_TRUE(writeFileDurably(folder.path() / "b.frtqul", "other"));
    EXPECT_FALSE(moveFileDurably(file, folder.path() / "b.frtqul", ExistingFile::refuse));
    EXPECT_EQ(test::readBytes(folder.path() / "b.frtqul"), "other");
    EXPECT_TRUE(removeFileDurably(file));
    EXPECT_FALSE(removeFileDurably(file));
    EXPECT_FALSE(readWholeFile(folder.path()));
    EXPECT_EQ(writeFileDurably(folder.path() / "b.frtqul", "x", ExistingFile::refuse).error().kind,
              ErrorKind::exists);
    EXPECT_EQ(readWholeFile(file).error().kind, ErrorKind::notFound);
}

// A writer killed at any moment leaves the old file or the new one, whole, never a torn
// or empty one. Songs and sheets are saved by this write.
TEST(DurableWriteTest, AKilledWriterLeavesTheOldFileOrTheNewOneWhole) {
    test::TemporaryFolder folder;
    const auto file = folder.path() / "Song.frtqul";
    const std::string versions[2] = {std::string(16, 's'), std::string(1 << 20, 'L')};
    ASSERT_TRUE(writeFileDurably(file, versions[0]));
    std::mt19937 random(7);
    std::uniform_int_distribution<int> delay(0, 30000);
    std::set<std::size_t> seen;
    for (int round = 0; round < 50; ++round) {
        int ready[2];
        ASSERT_EQ(::pipe(ready), 0);
        const pid_t child = ::fork();
        if (child == 0) {
            ::close(ready[0]);
            // tells the test that writing starts now, so its kill lands among the writes
            if (::write(ready[1], "w", 1) != 1) ::_exit(2);
            for (unsigned long count = 0;; ++count)
                if (!writeFileDurably(file, versions[count % 2])) ::_exit(1);
        }
        ::close(ready[1]);
        char signal = 0;
        ASSERT_EQ(::read(ready[0], &signal, 1), 1);
        ::close(ready[0]);
        std::this_thread::sleep_for(std::chrono::microseconds(delay(random)));
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        const auto bytes = test::readBytes(file);
        ASSERT_TRUE(bytes == versions[0] || bytes == versions[1])
            << "round " << round << ": " << bytes.size() << " bytes";
        seen.insert(bytes.size());
    }
    EXPECT_EQ(seen.size(), 2u) << "the writer was caught at different points";
    EXPECT_LE(folderNames(folder.path()).size(), 51u) << "at most one temporary file per kill";
}

} // namespace
} // namespace fq::documents
