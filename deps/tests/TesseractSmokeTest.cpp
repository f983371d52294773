#include "DepsTestSupport.h"

#include <gtest/gtest.h>
#include <leptonica/allheaders.h>
#include <tesseract/baseapi.h>
#include <tesseract/resultiterator.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

struct PixDeleter {
    void operator()(PIX* pix) const { pixDestroy(&pix); }
};
struct LeptBytesDeleter {
    void operator()(l_uint8* bytes) const { lept_free(bytes); }
};
struct TextDeleter {
    void operator()(char* text) const { delete[] text; }
};
struct TessDeleter {
    void operator()(tesseract::TessBaseAPI* api) const {
        api->End();
        delete api;
    }
};
using Pix = std::unique_ptr<PIX, PixDeleter>;
using LeptBytes = std::unique_ptr<l_uint8, LeptBytesDeleter>;
using Text = std::unique_ptr<char, TextDeleter>;
using Tess = std::unique_ptr<tesseract::TessBaseAPI, TessDeleter>;

// The real ImageMagick, not whatever `convert` comes first on PATH.
constexpr const char* kImageMagick = "/usr/bin/convert";
constexpr const char* kFont = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

// Where the word is drawn: 72 px type, left edge at x = 20, baseline at y = 110.
constexpr int kWidth = 600;
constexpr int kHeight = 160;
constexpr int kTextLeft = 20;
constexpr int kBaseline = 110;
constexpr int kPointSize = 72;

struct Word {
    std::string text;
    int left, top, right, bottom;
    float confidence;
};

TEST(TesseractSmoke, ReadsARenderedWordWhereItWasDrawn) {
    ASSERT_TRUE(std::filesystem::exists(kImageMagick)) << "ImageMagick is not installed";
    ASSERT_TRUE(std::filesystem::exists(kFont)) << "DejaVu Sans is not installed";
    fq::deps_test::TempDir dir("fq-ocr-");
    const auto image = dir.path() / "word.png";
    const auto log = dir.path() / "convert.log";
    const std::optional<int> drawn = fq::deps_test::runProgram(
        {kImageMagick, "-size", std::to_string(kWidth) + "x" + std::to_string(kHeight), "xc:white",
         "-font", kFont, "-pointsize", std::to_string(kPointSize), "-fill", "black", "-annotate",
         "+" + std::to_string(kTextLeft) + "+" + std::to_string(kBaseline), "Guitar",
         image.string()},
        log, dir.path());
    ASSERT_EQ(drawn, 0) << std::ifstream(log).rdbuf();

    Pix pix(pixRead(image.c_str()));
    ASSERT_NE(pix, nullptr);
    ASSERT_EQ(pixGetWidth(pix.get()), kWidth);
    ASSERT_EQ(pixGetHeight(pix.get()), kHeight);

    Tess api(new tesseract::TessBaseAPI);
    ASSERT_EQ(api->Init(nullptr, "eng", tesseract::OEM_LSTM_ONLY), 0) << "eng traineddata";
    api->SetImage(pix.get());
    // The PNG carries no resolution; say one so Tesseract does not guess and warn.
    api->SetSourceResolution(300);
    ASSERT_EQ(api->Recognize(nullptr), 0);

    std::vector<Word> words;
    std::unique_ptr<tesseract::ResultIterator> it(api->GetIterator());
    ASSERT_NE(it, nullptr);
    constexpr auto kLevel = tesseract::RIL_WORD;
    if (!it->Empty(kLevel)) {
        do {
            Word word{};
            Text text(it->GetUTF8Text(kLevel));
            word.text = text ? text.get() : "";
            it->BoundingBox(kLevel, &word.left, &word.top, &word.right, &word.bottom);
            word.confidence = it->Confidence(kLevel);
            words.push_back(word);
        } while (it->Next(kLevel));
    }

    ASSERT_EQ(words.size(), 1u);
    const Word& word = words.front();
    EXPECT_EQ(word.text, "Guitar");
    EXPECT_GT(word.confidence, 80.0f);
    // Inside the image, and around the ink: "Guitar" has no descenders, so the box ends near the
    // baseline and rises by roughly the cap height (about 0.73 of the type size).
    EXPECT_GE(word.left, 0);
    EXPECT_LE(word.right, kWidth);
    EXPECT_GE(word.top, 0);
    EXPECT_LE(word.bottom, kHeight);
    EXPECT_NEAR(word.left, kTextLeft, 8);
    EXPECT_NEAR(word.bottom, kBaseline, 8);
    EXPECT_NEAR(word.top, kBaseline - 0.73 * kPointSize, 8);
    EXPECT_GT(word.right - word.left, 3 * kPointSize / 2) << "narrower than six letters";
}

TEST(LeptonicaSmoke, PngRoundTripInMemoryIsLossless) {
    constexpr int kW = 97; // odd sizes catch row padding mistakes
    constexpr int kH = 31;
    Pix original(pixCreate(kW, kH, 32));
    ASSERT_NE(original, nullptr);
    for (int y = 0; y < kH; ++y) {
        for (int x = 0; x < kW; ++x) {
            pixSetRGBPixel(original.get(), x, y, (x * 5) & 0xff, (y * 9) & 0xff, (x ^ y) & 0xff);
        }
    }

    l_uint8* raw = nullptr;
    std::size_t size = 0;
    ASSERT_EQ(pixWriteMemPng(&raw, &size, original.get(), 0.0f), 0);
    LeptBytes png(raw);
    ASSERT_GT(size, 8u);
    const unsigned char signature[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    EXPECT_TRUE(std::equal(std::begin(signature), std::end(signature), png.get()));

    Pix decoded(pixReadMemPng(png.get(), size));
    ASSERT_NE(decoded, nullptr);
    EXPECT_EQ(pixGetWidth(decoded.get()), kW);
    EXPECT_EQ(pixGetHeight(decoded.get()), kH);
    l_int32 same = 0;
    ASSERT_EQ(pixEqual(original.get(), decoded.get(), &same), 0);
    EXPECT_TRUE(same);
}

} // namespace
