// Tesseract with its English data reads a word rendered by ImageMagick, and boxes it where it
// was drawn.

#include "DepsTestSupport.h"

#include <fq/test/TemporaryFolder.h>

#include <gtest/gtest.h>
#include <leptonica/allheaders.h>
#include <tesseract/baseapi.h>

#include <fstream>
#include <memory>

namespace {

TEST(TesseractSmoke, ReadsARenderedWordWhereItWasDrawn) {
    // 72 px type with its left edge at x = 20 and its baseline at y = 110
    const fq::test::TemporaryFolder folder;
    const auto image = folder / "word.png";
    const auto log = folder / "convert.log";
    ASSERT_EQ(fq::deps_test::runProgram({"/usr/bin/convert", "-size", "600x160", "xc:white",
                                         "-font", "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",
                                         "-pointsize", "72", "-fill", "black", "-annotate",
                                         "+20+110", "Guitar", image.string()},
                                        log, folder.path()),
              0)
        << std::ifstream(log).rdbuf();

    PIX* pix = pixRead(image.c_str());
    ASSERT_NE(pix, nullptr);
    tesseract::TessBaseAPI api;
    ASSERT_EQ(api.Init(nullptr, "eng", tesseract::OEM_LSTM_ONLY), 0) << "eng traineddata";
    api.SetImage(pix);
    api.SetSourceResolution(300); // the PNG says none; Tesseract would guess and warn
    ASSERT_EQ(api.Recognize(nullptr), 0);
    std::unique_ptr<tesseract::ResultIterator> word(api.GetIterator());
    ASSERT_NE(word, nullptr);
    const std::unique_ptr<char[]> text(word->GetUTF8Text(tesseract::RIL_WORD));
    int left = 0, top = 0, right = 0, bottom = 0;
    word->BoundingBox(tesseract::RIL_WORD, &left, &top, &right, &bottom);
    EXPECT_STREQ(text.get(), "Guitar");
    EXPECT_FALSE(word->Next(tesseract::RIL_WORD)) << "one word only";
    // no descenders: the box ends at the baseline and rises by the cap height (0.73 em)
    EXPECT_NEAR(left, 20, 8);
    EXPECT_NEAR(bottom, 110, 8);
    EXPECT_NEAR(top, 110 - 0.73 * 72, 8);
    api.End();
    pixDestroy(&pix);
}

} // namespace
