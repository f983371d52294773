// The folder of song files: listing, the store's renames, the track list's JSON copies,
// deleting rows, and importing under free names.
#include "SongTestSupport.h"

#include <fq/songmaker/SongMakerDocumentStore.h>
#include <fq/songmaker/TracksViewModel.h>

#include <gtest/gtest.h>

#include <thread>

namespace fq::songmaker {
namespace {

using namespace testing;
namespace fs = std::filesystem;

TEST_F(SongFolderTest, ListingSortsByCollatedTitleAndSkipsBadFiles) {
    for (const auto& [file, title] : std::vector<std::pair<std::string, std::string>>{
             {"b.frtqul", "song 10"},
             {"a.frtqul", "Banana"},
             {"c.frtqul", "song 9"},
             {"d.frtqul", "apple"},
             {"e.frtqul", "Apple"},
             {"upper.FRTQUL", "ignored: extension differs"}})
        song(file, title);
    writeBytes(documents() / "bad.frtqul", "bplist00 torn");
    fs::create_directory(documents() / "sub");
    song("sub/inner.frtqul", "ignored: in a subfolder");
    DiagnosticCapture diagnostics;
    const auto listed = SongMakerDocumentStore(executor(), location()).listDocuments();
    std::vector<std::string> titles;
    for (const auto& item : listed)
        titles.push_back(item.title);
    EXPECT_EQ(titles, (std::vector<std::string>{"apple", "Apple", "Banana", "song 9", "song 10"}));
    EXPECT_TRUE(listed[0].modificationDate.has_value());
    ASSERT_EQ(diagnostics.lines().size(), 1u);
    EXPECT_EQ(diagnostics.lines()[0].rfind("Decode failed: bad.frtqul — ", 0), 0u);
    EXPECT_EQ(readBytes(documents() / "bad.frtqul"), "bplist00 torn") << "a bad file is left alone";
}

TEST_F(SongFolderTest, StoreRenamesMoveTheFileAndKeepTheTrimmedTitle) {
    SongMakerDocumentStore store(executor(), location(), &observer_);
    const auto first = song("First.frtqul", "First");
    song("Taken.frtqul", "Taken");
    struct Case {
        std::string name;
        Error error;
    };
    const std::vector<Case> refused{
        {" \n ", {"Enter a file name.", ErrorKind::refused}},
        {"Taken", {"A Song Maker file named \"Taken\" already exists.", ErrorKind::exists}},
        {" Taken\n", {"A Song Maker file named \"Taken\" already exists.", ErrorKind::exists}}};
    for (const auto& [name, error] : refused)
        EXPECT_EQ(store.renameDocument(first, name).error(), error) << name;
    EXPECT_EQ(store.renameDocument(documents() / "Nowhere.frtqul", "X").error(),
              SongMakerDocumentStoreError::fileNotFound());

    const auto moved = store.renameDocument(first, "  a/b:c  ");
    ASSERT_TRUE(moved) << moved.error().message;
    EXPECT_EQ(moved->url, documents() / "a b c.frtqul");
    EXPECT_EQ(FrtQulDocument::read(moved->url)->title, "a/b:c");
    const auto slash = store.renameDocument(moved->url, "/");
    EXPECT_EQ(slash->url, documents() / "Untitled.frtqul");
    EXPECT_EQ(slash->title, "/");
    const auto same = store.renameDocument(slash->url, "Untitled");
    ASSERT_TRUE(same) << "renaming to its own name rewrites in place";
    EXPECT_EQ(same->url, slash->url);
    ASSERT_TRUE(store.deleteDocument(documents() / "Taken.frtqul"));
    EXPECT_EQ(store.deleteDocument(documents() / "Taken.frtqul").error().kind, ErrorKind::notFound);
    EXPECT_EQ(files(), std::vector<std::string>{"Untitled.frtqul"});
    EXPECT_EQ(observer_.changes, 0) << "the observer is told on the main executor";
    runMain();
    EXPECT_EQ(observer_.changes, 4);
}

TEST_F(SongFolderTest, DuplicateTitlesCountOnFromTheirNumber) {
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
        EXPECT_EQ(duplicateTitleStart(title), std::pair(base, next)) << title;
    }
}

TEST_F(SongFolderTest, DuplicationAndRenamingGoThroughTheJsonForm) {
    TracksViewModel tracks(executor(), location(), &observer_);
    const auto binary = song("Binary.frtqul", "Song 3");
    const auto json = documents() / "Json.frtqul";
    writeBytes(json, toJson(sampleSong("Song 3")).dump());
    song("Song 4.frtqul", "Song 4");
    const auto before = files();
    const auto refused = tracks.duplicateDocument({core::Uuid::random(), binary, "Song 3"});
    EXPECT_EQ(refused.error().message.rfind("Duplication failed: ", 0), 0u);
    EXPECT_EQ(refused.error().kind, ErrorKind::corrupt);
    EXPECT_EQ(files(), before) << "a binary song cannot be duplicated, by design";

    const auto copy = tracks.duplicateDocument({core::Uuid::random(), json, "Song 3"});
    ASSERT_TRUE(copy) << copy.error().message;
    EXPECT_EQ(*copy, documents() / "Song 5.frtqul");
    EXPECT_EQ(nlohmann::json::parse(readBytes(*copy))["title"], "Song 5");
    // the new item enters the cache first; the reload that follows publishes only what
    // reads as a song, and the JSON copy does not
    main_.run_one();
    EXPECT_EQ(tracks.metadataCache().at(*copy).title, "Song 5");
    runMain();
    EXPECT_EQ(tracks.metadataCache().count(*copy), 0u);
    EXPECT_EQ(tracks.documentItems().size(), 2u);

    EXPECT_EQ(tracks.renameDocument({core::Uuid::random(), binary, "Song 3"}, "New")
                  .error()
                  .message.rfind("Rename failed: ", 0),
              0u);
    EXPECT_TRUE(tracks.renameDocument({core::Uuid::random(), json, "Song 3"}, "Renamed"));
    EXPECT_EQ(nlohmann::json::parse(readBytes(json))["title"], "Renamed");
    runMain();
    EXPECT_EQ(observer_.changes, 0) << "these paths schedule no upload";

    // the file of a row vanishes first: the row still goes, and the failure is told
    fs::remove(tracks.documentItems()[1].url);
    DiagnosticCapture diagnostics;
    const std::size_t rows[] = {1};
    tracks.deleteDocuments(rows);
    EXPECT_EQ(tracks.documentItems().size(), 1u);
    EXPECT_EQ(diagnostics.lines().size(), 1u);
}

TEST_F(SongFolderTest, OnlySongsAreImportedEachUnderAFreeName) {
    TracksViewModel tracks(executor(), location(), &observer_);
    TemporaryFolder elsewhere;
    const auto source = elsewhere / "Song.frtqul";
    const auto bytes = *encodeSong(sampleSong("Imported"));
    writeBytes(source, bytes);
    for (const char* expected : {"Song.frtqul", "Song 1.frtqul", "Song 2.frtqul"}) {
        const auto imported = tracks.importDocument(source);
        ASSERT_TRUE(imported) << imported.error().message;
        EXPECT_EQ(imported->filename(), expected);
        EXPECT_EQ(readBytes(*imported), bytes);
    }
    runMain();
    EXPECT_EQ(observer_.changes, 3);
    EXPECT_EQ(tracks.documentItems().size(), 3u);

    // a picture, an empty file or a torn song would spoil every later listing
    const auto before = files();
    for (const std::string& content :
         {std::string("\x89PNG\r\n\x1a\n", 8), std::string(), bytes.substr(0, bytes.size() / 2)}) {
        writeBytes(source, content);
        const auto refused = tracks.importDocument(source);
        ASSERT_FALSE(refused);
        EXPECT_EQ(refused.error(),
                  (Error{"Failed to import file: The file “Song.frtqul” couldn’t be opened because "
                         "it isn’t in the correct format.",
                         ErrorKind::corrupt}));
    }
    EXPECT_EQ(tracks.importDocument(elsewhere / "missing.frtqul").error().message,
              "Failed to access security scoped resource.");
    EXPECT_EQ(files(), before);

    // imports at once, as from processes started together, each find a name of their own
    writeBytes(source, bytes);
    std::vector<std::thread> importers;
    for (int importer = 0; importer < 8; ++importer)
        importers.emplace_back([&] {
            asio::io_context own;
            EXPECT_TRUE(TracksViewModel(own.get_executor(), location()).importDocument(source));
        });
    for (auto& importer : importers)
        importer.join();
    EXPECT_EQ(files().size(), before.size() + 8);
}

} // namespace
} // namespace fq::songmaker
