#pragma once

#include <fq/scanner/SheetDocument.h>

#include <cstdint>
#include <vector>

namespace fq::scanner::testing {

/// A sheet of two pages with boxes, one of them outside the image on purpose.
inline FrtSheetDocumentData sampleSheet(std::string title = "Wonderwall — capo 2") {
    FrtSheetDocumentData data{std::move(title), {}};
    FrtSheetPageData first{
        core::Uuid::random(), *Bitmap::filled(40, 30, 0x30609000u).pngData(), {}};
    first.detectedChordBoxes = {
        {core::Uuid::random(), {core::Note::Fs, "minor 7th", 0}, {0.125, 0.5, 0.0625, 0.03125}},
        {core::Uuid::random(), {core::Note::Bf, "major", -1}, {-0.25, 1.5, 2.0, 0.0}},
    };
    FrtSheetPageData second{core::Uuid::random(), *Bitmap::filled(7, 9, 0xffffff00u).pngData(), {}};
    data.pages = {first, second};
    return data;
}

} // namespace fq::scanner::testing
