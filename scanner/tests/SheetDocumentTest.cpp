// The sheet file form: records, pixels, another reader's view, and refused input.
#include "SheetTestSupport.h"

#include <fq/core/CapturedDiagnostics.h>
#include <fq/test/Python.h>
#include <fq/test/TemporaryFolder.h>

#include <gtest/gtest.h>
#include <leptonica/allheaders.h>

#include <cmath>

namespace fq::scanner {
namespace {

using namespace testing;
using test::havePython;
using test::readBytes;
using test::runPython;
using test::TemporaryFolder;
using test::writeBytes;
using Json = nlohmann::ordered_json;
namespace fs = std::filesystem;

/// An 8-bit grey ramp with one odd pixel: any change of a pixel shows.
Bitmap ramp(std::int32_t width, std::int32_t height) {
    Pix* pix = pixCreate(width, height, 8);
    for (std::int32_t y = 0; y < height; ++y)
        for (std::int32_t x = 0; x < width; ++x)
            pixSetPixel(pix, x, y, static_cast<l_uint32>((x * 7 + y * 13) % 256));
    pixSetPixel(pix, width - 1, 0, 255);
    return Bitmap::adopt(pix);
}

/// A PNG whose header claims another size; the pixel data stays that of the original.
std::vector<std::uint8_t> withClaimedSize(std::vector<std::uint8_t> png, std::uint32_t width,
                                          std::uint32_t height) {
    for (int index = 0; index < 4; ++index) {
        png[16 + index] = static_cast<std::uint8_t>(width >> (24 - 8 * index));
        png[20 + index] = static_cast<std::uint8_t>(height >> (24 - 8 * index));
    }
    return png;
}

TEST(SheetDocumentTest, RecordsRoundTripWithKeysInTheirOrder) {
    const auto sheet = testing::sampleSheet();
    const auto bytes = encodeSheet(sheet);
    ASSERT_TRUE(bytes);
    EXPECT_EQ(bytes->substr(0, 8), "bplist00");
    const auto back = decodeSheet(*bytes);
    ASSERT_TRUE(back) << back.error().message;
    EXPECT_EQ(*back, sheet) << "boxes outside the image and negative variants are kept as they are";

    const auto json = toJson(sheet);
    std::vector<std::string> keys;
    for (const auto& level : {json, json["pages"][0], json["pages"][0]["detectedChordBoxes"][0]})
        for (const auto& [key, value] : level.items())
            keys.push_back(key);
    EXPECT_EQ(keys, (std::vector<std::string>{"title", "pages", "id", "image", "detectedChordBoxes",
                                              "id", "chord", "boundingBox"}));
    EXPECT_EQ(json["pages"][0]["detectedChordBoxes"][1]["boundingBox"].dump(),
              "[[-0.25,1.5],[2.0,0.0]]");
    EXPECT_EQ(json["pages"][0]["id"], sheet.pages[0].id.text()) << "canonical upper-case text";
}

TEST(SheetDocumentTest, PagesKeepEveryPixelThroughTheFile) {
    TemporaryFolder folder;
    const auto file = folder.path() / "Ramp.frtqulsheet";
    FrtSheetDocument document{"Ramp", {{core::Uuid::random(), ramp(33, 17), {}}}};
    // colour with alpha, and a one-bit page as a scanner gives
    Pix* colour = pixCreate(5, 4, 32);
    pixSetSpp(colour, 4);
    pixSetAllArbitrary(colour, 0x11223344);
    document.pages.push_back({core::Uuid::random(), Bitmap::adopt(colour), {}});
    Pix* binary = pixCreate(13, 3, 1);
    pixSetPixel(binary, 12, 2, 1);
    document.pages.push_back({core::Uuid::random(), Bitmap::adopt(binary), {}});
    writeBytes(file, *document.fileWrapper());

    const auto read = FrtSheetDocument::read(file);
    ASSERT_TRUE(read) << read.error().message;
    ASSERT_EQ(read->pages.size(), 3u);
    for (std::size_t index = 0; index < 3; ++index) {
        EXPECT_EQ(read->pages[index].id, document.pages[index].id);
        EXPECT_TRUE(samePixels(read->pages[index].image, document.pages[index].image))
            << "page " << index;
    }
    EXPECT_FALSE(samePixels(read->pages[0].image, ramp(33, 16)));
}

TEST(SheetDocumentTest, OtherPropertyListWritersReadOurSheetsAndWeReadTheirs) {
    if (!havePython()) GTEST_SKIP() << "python3 is not installed";
    TemporaryFolder folder;
    const auto ours = folder.path() / "ours", theirs = folder.path() / "theirs";
    writeBytes(ours, *encodeSheet(testing::sampleSheet()));
    // theirs: XML, lower-case identifiers, whole numbers in the rectangle, a key of their own
    std::string output;
    ASSERT_EQ(
        runPython(
            "import plistlib\n"
            "d = plistlib.load(open('" +
                ours.string() +
                "', 'rb'))\n"
                "p = d['pages'][0]; b = p['detectedChordBoxes'][1]\n"
                "print(d['title'], p['image'][:4], b['boundingBox'], b['chord'])\n"
                "b = {'boundingBox': [[0, 1], [0.5, 0.25]], 'id': 'e621e1f8-c36c-495a-93fc-"
                "0c247a3e6e5f', 'chord': {'variant': 2, 'chordType': 'sus4', 'rootNote': 'E'}}\n"
                "t = {'pages': [dict(p, detectedChordBoxes=[b], extra=1)], 'title': 'Theirs'}\n"
                "plistlib.dump(t, open('" +
                theirs.string() + "', 'wb'), fmt=plistlib.FMT_XML)",
            &output),
        0);
    EXPECT_EQ(output, "Wonderwall — capo 2 b'\\x89PNG' [[-0.25, 1.5], [2.0, 0.0]] "
                      "{'rootNote': 'B♭', 'chordType': 'major', 'variant': -1}\n");
    const auto read = FrtSheetDocument::read(theirs);
    ASSERT_TRUE(read) << read.error().message;
    EXPECT_EQ(read->title, "Theirs");
    ASSERT_EQ(read->pages.size(), 1u);
    EXPECT_EQ(read->pages[0].image.width(), 40);
    const DetectedChordBox expected{*core::Uuid::fromText("E621E1F8-C36C-495A-93FC-0C247A3E6E5F"),
                                    {core::Note::E, "sus4", 2},
                                    {0, 1, 0.5, 0.25}};
    EXPECT_EQ(read->pages[0].detectedChordBoxes, std::vector<DetectedChordBox>{expected});
}

TEST(SheetDocumentTest, BadRecordsAreRefusedWithTheirPlace) {
    // the reader's own form, images kept as data
    const auto valid = nlohmann::json::from_cbor(Json::to_cbor(toJson(testing::sampleSheet())));
    const nlohmann::json erase = nlohmann::json::value_t::discarded;
    const std::string box = "/pages/0/detectedChordBoxes/", chord = box + "0/chord/";
    const std::string rect = "Expected a rectangle as [[x, y], [width, height]] of finite numbers "
                             "at pages[0].detectedChordBoxes[1].boundingBox";
    struct Case {
        std::string pointer;  ///< where the record is changed
        nlohmann::json value; ///< the new value there, or `erase`
        std::string message;
    };
    const std::vector<Case> cases{
        {"/title", erase, "Missing value for key: title at the top level"},
        {"/title", "Caf\xFF\xFF", "Invalid text for key title at the top level"},
        {"/pages", nlohmann::json::object(),
         "Type mismatch for key pages at the top level: expected an array"},
        {"/pages/0/image",
         "iVBORw0KGgo=", "Type mismatch for key image at pages[0]: expected data"},
        {"/pages/0/id", "not-a-uuid", "Invalid UUID string: not-a-uuid at pages[0]"},
        {"/pages/1/detectedChordBoxes", erase,
         "Missing value for key: detectedChordBoxes at pages[1]"},
        {chord + "variant", "1",
         "Type mismatch for key variant at "
         "pages[0].detectedChordBoxes[0].chord: expected an integer"},
        {chord + "rootNote", "H", "Unrecognised note: H at pages[0].detectedChordBoxes[0].chord"},
        {box + "1/boundingBox", {0, 0, 1, 1}, rect},
        {box + "1/boundingBox/1", {1.0, 1.0, 1.0}, rect},
        {box + "1/boundingBox/1/0", INFINITY, rect},
    };
    ASSERT_TRUE(sheetDataFromJson(valid)) << "the unchanged record reads";
    for (const auto& test : cases) {
        auto document = valid;
        const nlohmann::json::json_pointer pointer(test.pointer);
        if (test.value.is_discarded())
            document[pointer.parent_pointer()].erase(pointer.back());
        else
            document[pointer] = test.value;
        const auto decoded = sheetDataFromJson(document);
        ASSERT_FALSE(decoded) << test.pointer;
        EXPECT_EQ(decoded.error().message, test.message) << test.pointer;
    }
}

TEST(SheetDocumentTest, DamagedBytesAreRefusedNeverCrash) {
    const auto bytes = *encodeSheet(testing::sampleSheet());
    // every cut of the file: the trailer at the end holds the offsets, so none can read
    for (std::size_t length = 0; length < bytes.size(); length += 7)
        EXPECT_EQ(decodeSheet(std::string_view(bytes).substr(0, length)).error().kind,
                  ErrorKind::corrupt)
            << "cut at " << length;
    EXPECT_FALSE(decodeSheet("{\"title\": \"JSON is not a sheet\", \"pages\": []}"));
}

// Inputs the fuzzer once tripped over: each is refused, or reads, writes and reads back the same.
TEST(SheetDocumentTest, FuzzedInputsAreRefusedOrRoundTrip) {
    std::size_t count = 0;
    for (const auto& entry : fs::directory_iterator(fs::path(FQ_SCANNER_TEST_DATA) / "fuzz")) {
        ++count;
        const auto sheet = decodeSheet(readBytes(entry.path()));
        if (!sheet) continue;
        const auto again = encodeSheet(*sheet).and_then(
            [](const std::string& bytes) { return decodeSheet(bytes); });
        ASSERT_TRUE(again) << entry.path();
        EXPECT_EQ(*again, *sheet) << entry.path();
        for (const auto& page : sheet->pages) {
            const auto image = Bitmap::decodePng(page.image);
            if (!image) continue;
            EXPECT_TRUE(samePixels(*image, *Bitmap::decodePng(*image->pngData()))) << entry.path();
        }
    }
    EXPECT_GE(count, 1u);
}

TEST(SheetDocumentTest, PageImagesMustBeWholeReasonablePngFiles) {
    const auto png = *ramp(20, 10).pngData();
    Pix* pix = pixCreate(20, 10, 32);
    l_uint8* jpegBytes = nullptr;
    std::size_t jpegSize = 0;
    ASSERT_EQ(pixWriteMemJpeg(&jpegBytes, &jpegSize, pix, 90, 0), 0);
    const std::vector<std::uint8_t> jpeg(jpegBytes, jpegBytes + jpegSize);
    lept_free(jpegBytes);
    pixDestroy(&pix);

    struct Case {
        const char* name;
        std::vector<std::uint8_t> bytes;
    };
    const std::vector<Case> refused{
        {"empty", {}},
        {"signature only", {png.begin(), png.begin() + 8}},
        {"cut in the pixel data", {png.begin(), png.begin() + static_cast<long>(png.size()) - 20}},
        {"claims 100000 × 100000", withClaimedSize(png, 100000, 100000)},
        {"claims 2^31 - 1 wide", withClaimedSize(png, 0x7fffffff, 1)},
        {"claims 70000 × 1", withClaimedSize(png, 70000, 1)},
        // within the pixel limit, but far more than a few hundred bytes can unpack to
        {"claims 8000 × 8000", withClaimedSize(png, 8000, 8000)},
        {"claims no pixels", withClaimedSize(png, 0, 10)},
        {"a JPEG", jpeg},
    };
    for (const auto& test : refused)
        EXPECT_FALSE(Bitmap::decodePng(test.bytes)) << test.name;
    EXPECT_TRUE(Bitmap::decode(jpeg)) << "the JPEG itself is a readable image";
    EXPECT_FALSE(Bitmap::decode(withClaimedSize(png, 100000, 100000)));
    EXPECT_FALSE(Bitmap::filled(config::maximumImageSide + 1, 1, 0));
    EXPECT_EQ(Bitmap::decodePng(png)->width(), 20);
}

} // namespace
} // namespace fq::scanner
