#include "SongTestSupport.h"

#include <fq/songmaker/SongMakerDocumentStore.h>
#include <fq/songmaker/TracksViewModel.h>

#include <gtest/gtest.h>

#include <deque>

namespace fq::songmaker {
namespace {

using namespace testing;
namespace fs = std::filesystem;

struct CountingObserver : DocumentsChangeObserver {
    int changes = 0;
    void documentsChanged() override { ++changes; }
};

/// A documents folder with a hand-driven main context.
class SongFilesTest : public ::testing::Test {
protected:
    fs::path documents() const { return folder_.path(); }
    DocumentsDirectory location() const {
        return [folder = folder_.path()]() -> tl::expected<fs::path, Error> { return folder; };
    }
    MainContext queue() {
        return [this](std::function<void()> task) { tasks_.push_back(std::move(task)); };
    }
    void runOne() {
        auto task = std::move(tasks_.front());
        tasks_.pop_front();
        task();
    }
    void runMain() {
        while (!tasks_.empty()) {
            auto task = std::move(tasks_.front());
            tasks_.pop_front();
            task();
        }
    }
    fs::path song(const std::string& fileName, const std::string& title) {
        const auto file = documents() / fileName;
        writeBytes(file, *encodeSong(sampleSong(title)));
        return file;
    }
    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(documents()))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

    TemporaryFolder folder_;
    std::deque<std::function<void()>> tasks_;
    CountingObserver observer_;
};

TEST_F(SongFilesTest, ListingSortsByCollatedTitleAndSkipsBadFiles) {
    song("b.frtqul", "song 10");
    song("a.frtqul", "Banana");
    song("c.frtqul", "song 9");
    song("d.frtqul", "apple");
    song("e.frtqul", "Apple");
    song("upper.FRTQUL", "ignored: extension differs");
    writeBytes(documents() / "bad.frtqul", "bplist00 torn");
    fs::create_directory(documents() / "sub");
    song("sub/inner.frtqul", "ignored: in a subfolder");
    DiagnosticCapture diagnostics;
    const auto listed = SongMakerDocumentStore(location()).listDocuments();
    std::vector<std::string> titles;
    for (const auto& item : listed)
        titles.push_back(item.title);
    EXPECT_EQ(titles, (std::vector<std::string>{"apple", "Apple", "Banana", "song 9", "song 10"}));
    EXPECT_TRUE(listed[0].modificationDate.has_value());
    ASSERT_EQ(diagnostics.lines().size(), 1u);
    EXPECT_EQ(diagnostics.lines()[0].rfind("Decode failed: bad.frtqul — ", 0), 0u);
    EXPECT_EQ(readBytes(documents() / "bad.frtqul"), "bplist00 torn") << "a bad file is left alone";
}

TEST_F(SongFilesTest, StoreRenamesMoveTheFileAndKeepTheTrimmedTitle) {
    SongMakerDocumentStore store(location(), &observer_, queue());
    const auto first = song("First.frtqul", "First");
    song("Taken.frtqul", "Taken");

    struct Case {
        std::string name;
        std::string error;
    };
    for (const auto& [name, error] :
         std::vector<Case>{{" \n ", "Enter a file name."},
                           {"Taken", "A Song Maker file named \"Taken\" already exists."},
                           {" Taken\n", "A Song Maker file named \"Taken\" already exists."}}) {
        const auto result = store.renameDocument(first, name);
        ASSERT_FALSE(result);
        EXPECT_EQ(result.error().message, error);
    }
    EXPECT_EQ(store.renameDocument(documents() / "Nowhere.frtqul", "X").error().message,
              "Couldn’t find the Song Maker file.");

    const auto moved = store.renameDocument(first, "  a/b:c  ");
    ASSERT_TRUE(moved) << moved.error().message;
    EXPECT_EQ(moved->url, documents() / "a b c.frtqul");
    EXPECT_EQ(moved->title, "a/b:c");
    EXPECT_EQ(FrtQulDocument::read(moved->url)->title, "a/b:c");

    const auto slash = store.renameDocument(moved->url, "/");
    ASSERT_TRUE(slash);
    EXPECT_EQ(slash->url, documents() / "Untitled.frtqul");
    EXPECT_EQ(slash->title, "/");

    const auto same = store.renameDocument(slash->url, "Untitled");
    ASSERT_TRUE(same) << "renaming to its own name rewrites in place";
    EXPECT_EQ(same->url, slash->url);
    EXPECT_EQ(files(), (std::vector<std::string>{"Taken.frtqul", "Untitled.frtqul"}));
    EXPECT_EQ(observer_.changes, 0) << "the observer is told on the main context";
    runMain();
    EXPECT_EQ(observer_.changes, 3);
}

TEST_F(SongFilesTest, StoreDeletesAndTellsTheObserver) {
    SongMakerDocumentStore store(location(), &observer_, queue());
    const auto file = song("Gone.frtqul", "Gone");
    ASSERT_TRUE(store.deleteDocument(file));
    EXPECT_EQ(store.deleteDocument(file).error().message, "Couldn’t find the Song Maker file.");
    runMain();
    EXPECT_EQ(observer_.changes, 1);
    EXPECT_TRUE(files().empty());
}

TEST_F(SongFilesTest, DuplicateTitlesCountOnFromTheirNumber) {
    struct Case {
        std::string title, base;
        long long next;
    };
    for (const auto& [title, base, next] :
         std::vector<Case>{{"Song 3", "Song", 4},
                           {"Song", "Song", 2},
                           {"12", "12", 2},
                           {"Take 2 of 3", "Take 2 of", 4},
                           {"Song  7", "Song ", 8},
                           {"Song 99999999999999999999", "Song", 2}}) {
        const auto [foundBase, foundNext] = duplicateTitleStart(title);
        EXPECT_EQ(foundBase, base) << title;
        EXPECT_EQ(foundNext, next) << title;
    }
}

TEST_F(SongFilesTest, DuplicationAndRenamingGoThroughTheJsonForm) {
    TracksViewModel tracks(location(), &observer_, queue());
    const auto binary = song("Binary.frtqul", "Song 3");
    const auto json = documents() / "Json.frtqul";
    writeBytes(json, toJson(sampleSong("Song 3")).dump());
    song("Song 4.frtqul", "Song 4");
    tracks.loadDocuments();
    runMain();
    ASSERT_EQ(tracks.documentItems().size(), 2u) << "the JSON file is no song for the listing";

    DiagnosticCapture diagnostics;
    const auto before = files();
    EXPECT_FALSE(tracks.duplicateDocument({core::Uuid::random(), binary, "Song 3"}));
    EXPECT_EQ(files(), before) << "a binary song cannot be duplicated, by design";
    ASSERT_FALSE(diagnostics.lines().empty());
    EXPECT_EQ(diagnostics.lines()[0].rfind("Duplication failed: ", 0), 0u);

    const auto copy = tracks.duplicateDocument({core::Uuid::random(), json, "Song 3"});
    ASSERT_TRUE(copy);
    EXPECT_EQ(*copy, documents() / "Song 5.frtqul");
    EXPECT_EQ(nlohmann::json::parse(readBytes(*copy))["title"], "Song 5");
    // the new item enters the cache first; the reload that follows publishes only what
    // reads as a song, and the JSON copy does not
    ASSERT_EQ(tasks_.size(), 1u);
    runOne();
    EXPECT_EQ(tracks.metadataCache().at(*copy).title, "Song 5");
    runMain();
    EXPECT_EQ(tracks.metadataCache().count(*copy), 0u);
    EXPECT_EQ(tracks.documentItems().size(), 2u);

    EXPECT_FALSE(tracks.renameDocument({core::Uuid::random(), binary, "Song 3"}, "New"));
    EXPECT_EQ(diagnostics.lines().back().rfind("Rename failed: ", 0), 0u);
    EXPECT_TRUE(tracks.renameDocument({core::Uuid::random(), json, "Song 3"}, "Renamed"));
    EXPECT_EQ(nlohmann::json::parse(readBytes(json))["title"], "Renamed");
    EXPECT_EQ(observer_.changes, 0) << "these paths schedule no upload";
}

TEST_F(SongFilesTest, DeletingRowsAndImporting) {
    TracksViewModel tracks(location(), &observer_, queue());
    song("One.frtqul", "One");
    song("Two.frtqul", "Two");
    tracks.loadDocuments();
    runMain();
    ASSERT_EQ(tracks.documentItems().size(), 2u);
    // the file of row 1 vanishes first: the row still goes
    fs::remove(tracks.documentItems()[1].url);
    DiagnosticCapture diagnostics;
    const std::size_t rows[] = {1};
    tracks.deleteDocuments(rows);
    EXPECT_EQ(tracks.documentItems().size(), 1u);
    EXPECT_EQ(diagnostics.lines().size(), 1u);

    TemporaryFolder elsewhere;
    const auto source = elsewhere.path() / "Song.frtqul";
    writeBytes(source, *encodeSong(sampleSong("Imported")));
    for (const char* expected : {"Song.frtqul", "Song 1.frtqul", "Song 2.frtqul"}) {
        const auto imported = tracks.importDocument(source);
        ASSERT_TRUE(imported);
        EXPECT_EQ(imported->filename(), expected);
        EXPECT_EQ(readBytes(*imported), readBytes(source));
    }
    EXPECT_FALSE(tracks.importDocument(elsewhere.path() / "missing.frtqul"));
    EXPECT_EQ(diagnostics.lines().back(), "Failed to access security scoped resource.");
    runMain();
    EXPECT_EQ(observer_.changes, 3);
    EXPECT_EQ(tracks.documentItems().size(), 4u);
}

} // namespace
} // namespace fq::songmaker
