// The `sheet` commands from outside: saving, listing, showing, deleting and refusals.
#include "CliRun.h"

#include <fq/scanner/SheetDocument.h>

#include <gtest/gtest.h>
#include <leptonica/allheaders.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

// FRETQUILL_HOME points at a temporary folder for the whole test program (CliTest.cpp).

namespace fq::cli {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

class SheetCommandsTest : public ::testing::Test {
protected:
    void SetUp() override {
        home_ = fs::path(std::getenv("FRETQUILL_HOME"));
        documents_ = home_ / "Documents";
        fs::remove_all(documents_);
        images_ = home_ / "images";
        fs::create_directories(images_);
        // a page in each of two formats, written by the image library itself
        Pix* page = pixCreate(120, 80, 32);
        pixSetAllArbitrary(page, 0xf0f0f000);
        pixSetPixel(page, 3, 4, 0x11223300);
        ASSERT_EQ(pixWrite((images_ / "page1.png").c_str(), page, IFF_PNG), 0);
        ASSERT_EQ(pixWrite((images_ / "page2.jpg").c_str(), page, IFF_JFIF_JPEG), 0);
        pixDestroy(&page);
        std::ofstream(images_ / "notes.txt") << "C G Am F\n";
    }
    std::vector<std::string> files() const {
        std::vector<std::string> names;
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(documents_, error))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
    std::string image(const char* name) const { return (images_ / name).string(); }

    fs::path home_, documents_, images_;
};

TEST_F(SheetCommandsTest, ImagesBecomeASheetThatIsListedShownAndDeleted) {
    const auto png = image("page1.png"), jpeg = image("page2.jpg");
    const auto saved =
        json({"sheet", "save", "--title", "Let It Be / live", png.c_str(), jpeg.c_str()});
    EXPECT_EQ(saved["title"], "Let It Be / live");
    const std::regex date(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)");
    EXPECT_TRUE(std::regex_match(saved["modificationDate"].get<std::string>(), date));
    EXPECT_TRUE(std::regex_match(saved["url"].get<std::string>(),
                                 std::regex("file:///.*/Let%20It%20Be%20-%20live.frtqulsheet")))
        << saved.dump();
    json({"sheet", "save", "--title", "Let It Be / live", png.c_str()});
    json({"sheet", "save", png.c_str()});
    EXPECT_EQ(files(), (std::vector<std::string>{"Let It Be - live 2.frtqulsheet",
                                                 "Let It Be - live.frtqulsheet",
                                                 "Songsheet Scan.frtqulsheet"}));

    // every page is stored as PNG, whatever it came as
    const auto stored = scanner::decodeSheet(bytesOf(documents_ / "Let It Be - live.frtqulsheet"));
    ASSERT_TRUE(stored) << stored.error().message;
    ASSERT_EQ(stored->pages.size(), 2u);
    for (const auto& page : stored->pages)
        EXPECT_EQ(std::string(page.image.begin(), page.image.begin() + 4), "\x89PNG");

    const auto list = json({"sheet", "list"});
    ASSERT_EQ(list.size(), 3u);
    std::vector<std::string> keys;
    for (const auto& [key, value] : list[2].items())
        keys.push_back(key);
    EXPECT_EQ(keys, (std::vector<std::string>{"url", "title", "creationDate", "modificationDate"}));

    const auto shown = json({"sheet", "show", "Let It Be - live"});
    EXPECT_EQ(shown["title"], "Let It Be / live");
    ASSERT_EQ(shown["pages"].size(), 2u);
    EXPECT_EQ(shown["pages"][1]["width"], 120);
    EXPECT_EQ(shown["pages"][1]["height"], 80);
    EXPECT_EQ(shown["pages"][0]["detectedChordBoxes"], Json::array());
    EXPECT_NE(run({"sheet", "show", "Songsheet Scan.frtqulsheet"})
                  .out.find("Page 1 · 120×80 pixels · 0 chords"),
              std::string::npos);

    const auto remaining = json(
        {"sheet", "delete", "Let It Be - live", "Songsheet Scan", "Songsheet Scan.frtqulsheet"});
    ASSERT_EQ(remaining.size(), 1u);
    EXPECT_EQ(remaining[0]["title"], "Let It Be / live");
    EXPECT_EQ(files(), std::vector<std::string>{"Let It Be - live 2.frtqulsheet"});
}

TEST_F(SheetCommandsTest, BadInputIsRefusedAndChangesNothing) {
    json({"sheet", "save", "--title", "Keep", image("page1.png").c_str()});
    const auto before = files();
    const auto keep = bytesOf(documents_ / "Keep.frtqulsheet");
    struct Case {
        std::vector<const char*> arguments;
        std::string error;
    };
    const auto text = image("notes.txt"), missing = image("missing.png"), png = image("page1.png");
    const std::vector<Case> cases{
        {{"sheet", "save", "--title", "T", png.c_str(), text.c_str()},
         "Couldn’t read the image " + text + ": The data is not an image in a known format\n"},
        {{"sheet", "save", missing.c_str()},
         "Couldn’t read the image " + missing +
             ": Couldn’t read \"missing.png\": No such file or directory\n"},
        {{"sheet", "show", "Nothing"},
         "The file “Nothing” couldn’t be opened because there is no such file.\n"},
        {{"sheet", "delete", "Keep", "Nothing"},
         "The file “Nothing” couldn’t be opened because there is no such file.\n"},
        {{"sheet", "delete", text.c_str()}, "Not a sheet file (.frtqulsheet): " + text + "\n"},
    };
    for (const auto& test : cases) {
        const auto result = run(test.arguments);
        EXPECT_EQ(result.status, 1) << test.error;
        EXPECT_EQ(result.err, test.error);
    }
    EXPECT_EQ(files(), before);
    EXPECT_EQ(bytesOf(documents_ / "Keep.frtqulsheet"), keep);
}

TEST_F(SheetCommandsTest, ABadSheetIsToldButTheListingGoesOn) {
    json({"sheet", "save", "--title", "Good", image("page1.png").c_str()});
    const auto good = bytesOf(documents_ / "Good.frtqulsheet");
    std::ofstream(documents_ / "Torn.frtqulsheet", std::ios::binary)
        << good.substr(0, good.size() / 2);

    const auto listed = program({"sheet", "list", "--json"});
    EXPECT_EQ(listed.status, 0);
    const auto rows = Json::parse(listed.out);
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0]["title"], "Good");
    EXPECT_EQ(listed.err.rfind("Decode failed: Torn.frtqulsheet — ", 0), 0u) << listed.err;
    EXPECT_EQ(std::count(listed.err.begin(), listed.err.end(), '\n'), 1);

    const auto shown = program({"sheet", "show", "Torn"});
    EXPECT_EQ(shown.status, 1);
    EXPECT_EQ(std::count(shown.err.begin(), shown.err.end(), '\n'), 1) << shown.err;
    EXPECT_EQ(bytesOf(documents_ / "Torn.frtqulsheet"), good.substr(0, good.size() / 2));

    // a title that holds terminal escapes is shown, not obeyed
    const auto png = image("page1.png");
    const auto saved = run({"sheet", "save", "--title", "Bell\x07 \x1b]0;owned\x07", png.c_str()});
    const auto text = saved.out + run({"sheet", "list"}).out;
    EXPECT_EQ(text.find_first_of("\x07\x1b"), std::string::npos) << text;
    // three escapes in the title and three in the file name, on each of the two lines
    EXPECT_EQ(std::count(text.begin(), text.end(), '\\'), 12) << text;
}

} // namespace
} // namespace fq::cli
