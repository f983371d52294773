#pragma once

// The sheet document: its records, its file form, and saving a new sheet.

#include "fq/scanner/Bitmap.h"

#include <fq/core/Chord.h>
#include <fq/core/Error.h>
#include <fq/core/Uuid.h>
#include <fq/documents/DocumentsFolder.h>

#include <nlohmann/json.hpp>
#include <tl/expected.hpp>

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace fq::scanner {

namespace config {
/// The sheet file's extension, compared exactly.
inline constexpr std::string_view sheetExtension = "frtqulsheet";
/// The exported content type of a sheet file; it has no parent type.
inline constexpr std::string_view sheetContentType = "com.kelvane.frtqul.sheet";
/// The file name of a sheet whose title leaves nothing usable.
inline constexpr std::string_view defaultSheetName = "Songsheet Scan";
} // namespace config

/// A rectangle normalised to its image: 0 to 1 on both axes, origin at the lower left
/// corner. Values outside that range are kept as they are.
struct NormalizedRect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    friend bool operator==(const NormalizedRect&, const NormalizedRect&) = default;
};

struct DetectedChordBox {
    core::Uuid id = core::Uuid::random();
    core::Chord chord;
    NormalizedRect boundingBox;

    friend bool operator==(const DetectedChordBox&, const DetectedChordBox&) = default;
};

/// A stored page: the image as the bytes of a whole PNG file.
struct FrtSheetPageData {
    core::Uuid id = core::Uuid::random();
    std::vector<std::uint8_t> image;
    std::vector<DetectedChordBox> detectedChordBoxes;

    friend bool operator==(const FrtSheetPageData&, const FrtSheetPageData&) = default;
};

/// The stored record of a sheet.
struct FrtSheetDocumentData {
    std::string title;
    std::vector<FrtSheetPageData> pages;

    friend bool operator==(const FrtSheetDocumentData&, const FrtSheetDocumentData&) = default;
};

/// The decoded sheet: its pages hold bitmaps.
struct FrtSheetDocument {
    struct Page {
        core::Uuid id = core::Uuid::random();
        Bitmap image;
        std::vector<DetectedChordBox> detectedChordBoxes;
    };

    std::string title;
    std::vector<Page> pages;

    /// Reads a sheet file. A missing or non-regular file, or a page whose image is not a
    /// readable PNG, fails as corrupt; a decoding failure passes through.
    static tl::expected<FrtSheetDocument, Error> read(const std::filesystem::path& file);
    /// The file's bytes, a binary property list. A page that gives no PNG fails it.
    tl::expected<std::string, Error> fileWrapper() const;
};

/// The dictionary written to the file, keys in their fixed order; images are data.
nlohmann::ordered_json toJson(const DetectedChordBox& box);
nlohmann::ordered_json toJson(const FrtSheetDocumentData& data);
/// Every key is required, unknown keys are ignored. Errors name the key and where it is.
tl::expected<FrtSheetDocumentData, Error> sheetDataFromJson(const nlohmann::json& json);

tl::expected<std::string, Error> encodeSheet(const FrtSheetDocumentData& data);
/// Reads a binary or XML property list. Page images are taken as bytes, not decoded.
tl::expected<FrtSheetDocumentData, Error> decodeSheet(std::string_view bytes);

/// The stored record of decoded pages: each image becomes a PNG file, and an image that
/// gives none fails the whole record.
tl::expected<FrtSheetDocumentData, Error>
sheetData(const std::string& title, const std::vector<FrtSheetDocument::Page>& pages);

/// The file name (without extension) for a title: each of / : \ ? % * | " < > becomes
/// "-", then white space and new lines are trimmed at both ends; nothing left gives
/// "Songsheet Scan".
std::string safeSheetName(std::string_view title);

/// Writes a new sheet file into the documents folder under the safe name of its title,
/// adding " 2", " 3", … while a file of that name exists. Never replaces a file.
/// Returns the file written; the caller tells the person about a failure.
tl::expected<std::filesystem::path, Error>
saveSheet(const std::string& title, const std::vector<FrtSheetDocument::Page>& pages,
          const documents::DocumentsDirectory& documents = documents::defaultDocumentsDirectory);

/// A sheet a person names: a path to a sheet file, or a sheet's file name in the documents
/// folder (the extension may be left out). Only sheet files are found, so a slip of the
/// hand opens or deletes nothing else.
tl::expected<std::filesystem::path, Error>
findSheet(std::string_view text,
          const documents::DocumentsDirectory& documents = documents::defaultDocumentsDirectory);

/// What a page image that cannot be encoded makes of a save.
Error fileWriteUnknownError();

} // namespace fq::scanner
