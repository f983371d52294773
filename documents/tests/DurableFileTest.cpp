#include "fq/documents/DurableFile.h"

#include <fq/test/TemporaryFolder.h>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>

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
}

} // namespace
} // namespace fq::documents
