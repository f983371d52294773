#include "SheetTestSupport.h"

#include <fq/core/CapturedDiagnostics.h>
#include <fq/documents/DurableFile.h>
#include <fq/scanner/SheetsViewModel.h>
#include <fq/test/Python.h>
#include <fq/test/TemporaryFolder.h>

#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <deque>
#include <random>
#include <set>
#include <thread>

extern char** environ;

namespace fq::scanner {
namespace {

using namespace testing;
using DiagnosticCapture = CapturedDiagnostics;
using test::readBytes;
using test::TemporaryFolder;
using test::writeBytes;
namespace fs = std::filesystem;

/// A documents folder with a hand-driven main context.
class SheetFilesTest : public ::testing::Test {
protected:
    fs::path documents() const { return folder_.path(); }
    documents::DocumentsDirectory location() const {
        return [folder = folder_.path()]() -> tl::expected<fs::path, Error> { return folder; };
    }
    documents::MainContext queue() {
        return [this](std::function<void()> task) { tasks_.push_back(std::move(task)); };
    }
    void runMain() {
        while (!tasks_.empty()) {
            auto task = std::move(tasks_.front());
            tasks_.pop_front();
            task();
        }
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
    std::deque<std::function<void()>> tasks_;
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

    SheetsViewModel model(location(), queue());
    DiagnosticCapture capture;
    model.loadDocuments();
    EXPECT_TRUE(model.documentItems().empty()) << "published on the main context only";
    runMain();
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

    SheetsViewModel nowhere(
        [] { return tl::expected<fs::path, Error>(tl::unexpect, Error{"no folder"}); });
    DiagnosticCapture second;
    nowhere.loadDocuments();
    EXPECT_TRUE(nowhere.documentItems().empty());
    EXPECT_EQ(second.lines(), std::vector<std::string>{"Error reading documents: no folder"});
}

TEST_F(SheetFilesTest, AListedSheetIsNotReadAgain) {
    const auto file = sheet("Cached.frtqulsheet", "Before");
    SheetsViewModel model(location(), queue());
    model.loadDocuments();
    runMain();
    const auto id = model.documentItems().at(0).id;

    writeBytes(file, *encodeSheet(testing::sampleSheet("After")));
    sheet("New.frtqulsheet", "New");
    model.loadDocuments();
    runMain();
    EXPECT_EQ(titles(model), (std::vector<std::string>{"Before", "New"}))
        << "the cached item stands";
    EXPECT_EQ(model.documentItems()[0].id, id);
    EXPECT_EQ(model.metadataCache().size(), 2u);

    // a file that went leaves the cache, so a new file under its name is read afresh
    fs::remove(file);
    model.loadDocuments();
    runMain();
    EXPECT_EQ(titles(model), std::vector<std::string>{"New"});
    EXPECT_EQ(model.metadataCache().count(file), 0u);
    sheet("Cached.frtqulsheet", "Again");
    model.loadDocuments();
    runMain();
    EXPECT_EQ(titles(model), (std::vector<std::string>{"Again", "New"}));
}

TEST_F(SheetFilesTest, DeletingRemovesRowsEvenWhenAFileIsAlreadyGone) {
    sheet("a.frtqulsheet", "A");
    sheet("b.frtqulsheet", "B");
    sheet("c.frtqulsheet", "C");
    SheetsViewModel model(location(), queue());
    model.loadDocuments();
    runMain();
    fs::remove(documents() / "c.frtqulsheet");
    DiagnosticCapture capture;
    const std::vector<std::size_t> offsets{2, 0, 0, 9};
    model.deleteDocuments(offsets);
    EXPECT_EQ(titles(model), std::vector<std::string>{"B"});
    EXPECT_EQ(files(), std::vector<std::string>{"b.frtqulsheet"});
    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].rfind("Failed to delete c.frtqulsheet: ", 0), 0u) << lines[0];
    EXPECT_EQ(model.metadataCache().count(documents() / "a.frtqulsheet"), 0u);
}

// A writer killed at any moment leaves the old sheet or the new one, whole.
TEST_F(SheetFilesTest, AKilledWriterLeavesAWholeSheet) {
    const auto file = documents() / "Sheet.frtqulsheet";
    sheet("Sheet.frtqulsheet", "First");
    std::mt19937 random(11);
    std::uniform_int_distribution<int> delay(0, 100000);
    std::set<std::string> titles;
    for (int round = 0; round < 40; ++round) {
        pid_t child = 0;
        const char* arguments[] = {FQ_SHEET_WRITER, file.c_str(), nullptr};
        ASSERT_EQ(::posix_spawn(&child, FQ_SHEET_WRITER, nullptr, nullptr,
                                const_cast<char**>(arguments), environ),
                  0);
        std::this_thread::sleep_for(std::chrono::microseconds(delay(random)));
        ::kill(child, SIGKILL);
        int status = 0;
        ::waitpid(child, &status, 0);
        const auto read = FrtSheetDocument::read(file);
        ASSERT_TRUE(read) << "round " << round << ": " << read.error().message;
        titles.insert(read->title);
    }
    EXPECT_GE(titles.size(), 2u) << "the writer was caught at different points";
    std::size_t hidden = 0;
    for (const auto& entry : fs::directory_iterator(documents()))
        if (entry.path().filename().string().front() == '.') ++hidden;
    EXPECT_LE(hidden, 40u) << "at most one temporary file per killed write";
}

} // namespace
} // namespace fq::scanner
