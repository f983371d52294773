// The folder of sheet files: saving under safe free names, listing once, deleting rows.
#include "SheetTestSupport.h"

#include <fq/core/CapturedDiagnostics.h>
#include <fq/documents/DurableFile.h>
#include <fq/scanner/SheetsViewModel.h>
#include <fq/test/TemporaryFolder.h>

#include <asio/io_context.hpp>
#include <gtest/gtest.h>

#include <set>

namespace fq::scanner {
namespace {

using namespace testing;
using DiagnosticCapture = CapturedDiagnostics;
using test::readBytes;
using test::TemporaryFolder;
using test::writeBytes;
namespace fs = std::filesystem;

/// A documents folder with a main executor the test runs by hand.
class SheetFilesTest : public ::testing::Test {
protected:
    fs::path documents() const { return folder_.path(); }
    documents::DocumentsDirectory location() const {
        return [folder = folder_.path()]() -> tl::expected<fs::path, Error> { return folder; };
    }
    /// A model over the folder that lists it once.
    std::unique_ptr<SheetsViewModel> listed() {
        auto model = std::make_unique<SheetsViewModel>(main_.get_executor(), location());
        load(*model);
        return model;
    }
    void load(SheetsViewModel& model) {
        model.loadDocuments();
        main_.restart();
        main_.run();
    }
    fs::path sheet(const std::string& fileName, const std::string& title) {
        const auto file = documents() / fileName;
        writeBytes(file, *encodeSheet(testing::sampleSheet(title)));
        return file;
    }
    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(documents()))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
    static std::vector<std::string> titles(const SheetsViewModel& model) {
        std::vector<std::string> result;
        for (const auto& item : model.documentItems())
            result.push_back(item.title);
        return result;
    }
    static std::vector<FrtSheetDocument::Page> pages() {
        return {{core::Uuid::random(), Bitmap::filled(8, 6, 0x10203000u), {}}};
    }

    TemporaryFolder folder_;
    asio::io_context main_;
};

TEST_F(SheetFilesTest, SavedSheetsGetSafeNumberedNamesAndNeverReplaceAFile) {
    const std::vector<std::pair<std::string, std::string>> saves{
        {"Hallelujah", "Hallelujah.frtqulsheet"},
        {"Hallelujah", "Hallelujah 2.frtqulsheet"},
        {" Hallelujah\n", "Hallelujah 3.frtqulsheet"},
        {"///", "---.frtqulsheet"},
        {" \t ", "Songsheet Scan.frtqulsheet"},
        {"", "Songsheet Scan 2.frtqulsheet"},
        {"AC/DC: a\\b?c%d*e|f\"g<h>", "AC-DC- a-b-c-d-e-f-g-h-.frtqulsheet"},
        {"\u00a0Espa\u00f1ol\u2028", "Espa\u00f1ol.frtqulsheet"},
    };
    for (const auto& [title, name] : saves) {
        const auto saved = saveSheet(title, pages(), location());
        ASSERT_TRUE(saved) << saved.error().message;
        EXPECT_EQ(saved->filename().string(), name);
        const auto read = FrtSheetDocument::read(*saved);
        ASSERT_TRUE(read) << read.error().message;
        EXPECT_EQ(read->title, title) << "the title inside is kept as given";
    }
    // a name taken by something else is counted past, and that thing is left alone
    fs::create_directory(documents() / "Tabs.frtqulsheet");
    writeBytes(documents() / "Tabs 2.frtqulsheet", "not mine");
    EXPECT_EQ(saveSheet("Tabs", pages(), location())->filename().string(), "Tabs 3.frtqulsheet");
    EXPECT_EQ(readBytes(documents() / "Tabs 2.frtqulsheet"), "not mine");
    // failures write nothing
    const auto before = files();
    auto broken = pages();
    broken.push_back({core::Uuid::random(), Bitmap(), {}});
    EXPECT_EQ(saveSheet("Broken", broken, location()).error(), fileWriteUnknownError());
    EXPECT_FALSE(saveSheet("Gone", pages(), [this] {
        return tl::expected<fs::path, Error>(documents() / "missing");
    }));
    EXPECT_EQ(files(), before);
}

TEST_F(SheetFilesTest, ListingSkipsBadFilesAndLeavesThemAlone) {
    sheet("b.frtqulsheet", "Second");
    sheet("a.frtqulsheet", "First");
    sheet("other.FRTQULSHEET", "Wrong case");
    sheet("old.frtqulsheet.bak", "Backup");
    sheet("song.frtqul", "A song");
    writeBytes(documents() / "torn.frtqulsheet",
               readBytes(documents() / "a.frtqulsheet").substr(0, 200));
    writeBytes(documents() / "empty.frtqulsheet", "");
    fs::create_directory(documents() / "folder.frtqulsheet");
    // one page's image is not a picture: that page alone is left out
    auto partly = testing::sampleSheet("Partly readable");
    partly.pages[0].image = {'n', 'o', 'p', 'e'};
    writeBytes(documents() / "partly.frtqulsheet", *encodeSheet(partly));
    const auto tornBytes = readBytes(documents() / "torn.frtqulsheet");

    SheetsViewModel model(main_.get_executor(), location());
    DiagnosticCapture capture;
    model.loadDocuments();
    EXPECT_TRUE(model.documentItems().empty()) << "published on the main executor only";
    main_.run();
    EXPECT_EQ(titles(model), (std::vector<std::string>{"First", "Second", "Partly readable"}));
    ASSERT_EQ(model.documentItems()[2].pages.size(), 1u);
    EXPECT_EQ(model.documentItems()[2].pages[0].id, partly.pages[1].id);
    EXPECT_EQ(FrtSheetDocument::read(documents() / "partly.frtqulsheet").error(),
              documents::corruptFileError(documents() / "partly.frtqulsheet"))
        << "opened as a document, a page that does not decode spoils the whole file";
    EXPECT_EQ(model.documentItems()[0].pages[0].detectedChordBoxes.size(), 2u);
    EXPECT_EQ(model.documentItems()[0].pages[0].image.width(), 40);

    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 3u);
    std::set<std::string> failed;
    for (const auto& line : lines) {
        EXPECT_EQ(line.rfind("Decode failed: ", 0), 0u) << line;
        failed.insert(line.substr(15, line.find(" — ") - 15));
    }
    EXPECT_EQ(failed, (std::set<std::string>{"empty.frtqulsheet", "folder.frtqulsheet",
                                             "torn.frtqulsheet"}));
    EXPECT_EQ(readBytes(documents() / "torn.frtqulsheet"), tornBytes);

    SheetsViewModel nowhere(main_.get_executor(), [] {
        return tl::expected<fs::path, Error>(tl::unexpect, Error{"no folder"});
    });
    DiagnosticCapture second;
    load(nowhere);
    EXPECT_TRUE(nowhere.documentItems().empty());
    EXPECT_EQ(second.lines(), std::vector<std::string>{"Error reading documents: no folder"});
}

// A file once listed is not read again, since its images make it large; a file that went
// leaves the cache, and deleting a row goes on when its file is already gone.
TEST_F(SheetFilesTest, AListedSheetIsNotReadAgainAndRowsGoWithTheirFiles) {
    const auto file = sheet("Cached.frtqulsheet", "Before");
    sheet("Other.frtqulsheet", "Other");
    const auto model = listed();
    const auto id = model->documentItems().at(0).id;
    writeBytes(file, *encodeSheet(testing::sampleSheet("After")));
    load(*model);
    EXPECT_EQ(titles(*model), (std::vector<std::string>{"Before", "Other"}));
    EXPECT_EQ(model->documentItems()[0].id, id);

    fs::remove(file);
    load(*model);
    EXPECT_EQ(model->metadataCache().count(file), 0u);
    sheet("Cached.frtqulsheet", "Again");
    load(*model);
    EXPECT_EQ(titles(*model), (std::vector<std::string>{"Again", "Other"}));

    fs::remove(file);
    DiagnosticCapture capture;
    const std::vector<std::size_t> offsets{0, 0, 9};
    model->deleteDocuments(offsets);
    EXPECT_EQ(titles(*model), std::vector<std::string>{"Other"});
    ASSERT_EQ(capture.lines().size(), 1u);
    EXPECT_EQ(capture.lines()[0].rfind("Failed to delete Cached.frtqulsheet: ", 0), 0u);
    const std::vector<std::size_t> last{0};
    model->deleteDocuments(last);
    EXPECT_TRUE(files().empty());
    EXPECT_EQ(model->metadataCache().count(documents() / "Other.frtqulsheet"), 0u);
}

} // namespace
} // namespace fq::scanner
