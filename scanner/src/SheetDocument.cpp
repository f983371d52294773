// The sheet file form, reading and writing sheets, and finding a named sheet.
#include "fq/scanner/SheetDocument.h"

#include <fq/documents/DurableFile.h>
#include <fq/documents/PropertyList.h>

#include <fmt/format.h>
#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <array>
#include <cmath>

namespace fq::scanner {
namespace {

using Json = nlohmann::json;
namespace fs = std::filesystem;

tl::unexpected<Error> failure(std::string message) {
    return tl::unexpected(Error{std::move(message)});
}

/// [[x, y], [width, height]]; a whole number stands for the same real.
tl::expected<NormalizedRect, Error> rectAt(const Json& json, const std::string& where) {
    const auto pair = [&](const Json& item, double& first, double& second) {
        if (!item.is_array() || item.size() != 2 || !item[0].is_number() || !item[1].is_number())
            return false;
        first = item[0].get<double>();
        second = item[1].get<double>();
        // any place is kept, even off the image; "not a number" is no place at all
        return std::isfinite(first) && std::isfinite(second);
    };
    NormalizedRect rect;
    if (!json.is_array() || json.size() != 2 || !pair(json[0], rect.x, rect.y) ||
        !pair(json[1], rect.width, rect.height))
        return failure(fmt::format(
            "Expected a rectangle as [[x, y], [width, height]] of finite numbers at {}", where));
    return rect;
}

tl::expected<DetectedChordBox, Error> boxAt(const Json& json, const std::string& where) {
    const documents::DictionaryFields fields(json, where);
    DetectedChordBox box;
    auto id = fields.uuid("id");
    if (!id) return tl::unexpected(id.error());
    box.id = *id;
    auto chord = fields.value("chord").and_then(
        [&](const Json* found) { return documents::storedChord(*found, where + ".chord"); });
    if (!chord) return tl::unexpected(chord.error());
    box.chord = std::move(*chord);
    auto rect = fields.value("boundingBox").and_then([&](const Json* found) {
        return rectAt(*found, where + ".boundingBox");
    });
    if (!rect) return tl::unexpected(rect.error());
    box.boundingBox = *rect;
    return box;
}

tl::expected<FrtSheetPageData, Error> pageAt(const Json& json, const std::string& where) {
    const documents::DictionaryFields fields(json, where);
    FrtSheetPageData page;
    auto id = fields.uuid("id");
    if (!id) return tl::unexpected(id.error());
    page.id = *id;
    auto image = fields.data("image");
    if (!image) return tl::unexpected(image.error());
    page.image = (*image)->get_binary();
    auto boxes = fields.array("detectedChordBoxes");
    if (!boxes) return tl::unexpected(boxes.error());
    page.detectedChordBoxes.reserve((*boxes)->size());
    for (std::size_t index = 0; index < (*boxes)->size(); ++index) {
        auto box = boxAt((**boxes)[index], fmt::format("{}.detectedChordBoxes[{}]", where, index));
        if (!box) return tl::unexpected(box.error());
        page.detectedChordBoxes.push_back(std::move(*box));
    }
    return page;
}

/// Trims Unicode white space and line breaks, as a person would see them.
std::string trimmedText(const std::string& text) {
    const auto length = static_cast<std::int32_t>(text.size());
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    std::int32_t first = 0;
    while (first < length) {
        std::int32_t next = first;
        UChar32 character = 0;
        U8_NEXT(bytes, next, length, character);
        if (character < 0 || !u_isUWhiteSpace(character)) break;
        first = next;
    }
    std::int32_t last = length;
    while (last > first) {
        std::int32_t previous = last;
        UChar32 character = 0;
        U8_PREV(bytes, 0, previous, character);
        if (character < 0 || !u_isUWhiteSpace(character)) break;
        last = previous;
    }
    return text.substr(static_cast<std::size_t>(first), static_cast<std::size_t>(last - first));
}

fs::path sheetFile(const fs::path& folder, const std::string& stem) {
    return folder / (stem + "." + std::string(config::sheetExtension));
}

bool nameTaken(const fs::path& file) {
    std::error_code error;
    return fs::exists(fs::symlink_status(file, error));
}

} // namespace

nlohmann::ordered_json toJson(const DetectedChordBox& box) {
    const auto& rect = box.boundingBox;
    return {{"id", box.id.text()},
            {"chord", core::toJson(box.chord)},
            {"boundingBox", {{rect.x, rect.y}, {rect.width, rect.height}}}};
}

nlohmann::ordered_json toJson(const FrtSheetDocumentData& data) {
    auto pages = nlohmann::ordered_json::array();
    for (const auto& page : data.pages) {
        auto boxes = nlohmann::ordered_json::array();
        for (const auto& box : page.detectedChordBoxes)
            boxes.push_back(toJson(box));
        pages.push_back({{"id", page.id.text()},
                         {"image", nlohmann::ordered_json::binary(page.image)},
                         {"detectedChordBoxes", std::move(boxes)}});
    }
    return {{"title", data.title}, {"pages", std::move(pages)}};
}

tl::expected<FrtSheetDocumentData, Error> sheetDataFromJson(const Json& json) {
    try {
        const documents::DictionaryFields fields(json, "the top level");
        FrtSheetDocumentData data;
        auto title = fields.cleanText("title");
        if (!title) return tl::unexpected(title.error());
        data.title = std::move(*title);
        auto pages = fields.array("pages");
        if (!pages) return tl::unexpected(pages.error());
        data.pages.reserve((*pages)->size());
        for (std::size_t index = 0; index < (*pages)->size(); ++index) {
            auto page = pageAt((**pages)[index], fmt::format("pages[{}]", index));
            if (!page) return tl::unexpected(page.error());
            data.pages.push_back(std::move(*page));
        }
        return data;
    } catch (const nlohmann::json::exception& error) {
        // the checks above leave nothing to throw; a miss is still a refused file
        return failure(error.what());
    }
}

tl::expected<std::string, Error> encodeSheet(const FrtSheetDocumentData& data) {
    return documents::encodeBinaryPropertyList(toJson(data));
}

tl::expected<FrtSheetDocumentData, Error> decodeSheet(std::string_view bytes) {
    return documents::decodePropertyList(bytes)
        .and_then([](const Json& json) { return sheetDataFromJson(json); })
        .map_error([](Error error) {
            error.kind = ErrorKind::corrupt;
            return error;
        });
}

Error fileWriteUnknownError() {
    return Error{"The file couldn’t be saved: a page image could not be encoded as PNG.",
                 ErrorKind::refused};
}

tl::expected<fs::path, Error> findSheet(std::string_view text,
                                        const documents::DocumentsDirectory& documents) {
    const auto noSuchFile = [&] {
        return tl::unexpected(Error{
            fmt::format("The file “{}” couldn’t be opened because there is no such file.", text),
            ErrorKind::notFound});
    };
    // without a documents folder only a path can name a sheet
    const auto found = documents::findDocument(text, config::sheetExtension, documents,
                                               documents::FolderMatch::onlyOfThisType);
    if (!found || !*found) return noSuchFile();
    if (!documents::hasExtension(**found, config::sheetExtension))
        return tl::unexpected(
            Error{fmt::format("Not a sheet file (.{}): {}", config::sheetExtension, text),
                  ErrorKind::refused});
    return **found;
}

tl::expected<FrtSheetDocumentData, Error>
sheetData(const std::string& title, const std::vector<FrtSheetDocument::Page>& pages) {
    FrtSheetDocumentData data{title, {}};
    data.pages.reserve(pages.size());
    for (const auto& page : pages) {
        auto png = page.image.pngData();
        if (!png) return tl::unexpected(fileWriteUnknownError());
        data.pages.push_back({page.id, std::move(*png), page.detectedChordBoxes});
    }
    return data;
}

tl::expected<FrtSheetDocument, Error> FrtSheetDocument::read(const fs::path& file) {
    std::error_code error;
    if (!fs::is_regular_file(file, error)) {
        if (!fs::exists(file, error))
            return tl::unexpected(
                Error{fmt::format("The file “{}” couldn’t be opened because there is no such file.",
                                  file.filename().string()),
                      ErrorKind::notFound});
        return tl::unexpected(documents::corruptFileError(file));
    }
    auto bytes = documents::readWholeFile(file);
    if (!bytes) return tl::unexpected(bytes.error());
    auto data = decodeSheet(*bytes);
    if (!data) return tl::unexpected(data.error());
    FrtSheetDocument document{std::move(data->title), {}};
    document.pages.reserve(data->pages.size());
    for (auto& page : data->pages) {
        auto image = Bitmap::decodePng(page.image);
        if (!image) return tl::unexpected(documents::corruptFileError(file));
        document.pages.push_back({page.id, std::move(*image), std::move(page.detectedChordBoxes)});
    }
    return document;
}

tl::expected<std::string, Error> FrtSheetDocument::fileWrapper() const {
    return sheetData(title, pages).and_then([](const FrtSheetDocumentData& data) {
        return encodeSheet(data);
    });
}

std::string safeSheetName(std::string_view title) {
    constexpr std::string_view forbidden = "/:\\?%*|\"<>";
    std::string name(title);
    for (auto& character : name)
        if (forbidden.find(character) != std::string_view::npos) character = '-';
    name = trimmedText(name);
    return name.empty() ? std::string(config::defaultSheetName) : name;
}

tl::expected<fs::path, Error> saveSheet(const std::string& title,
                                        const std::vector<FrtSheetDocument::Page>& pages,
                                        const documents::DocumentsDirectory& documents) {
    auto bytes = sheetData(title, pages).and_then([](const FrtSheetDocumentData& data) {
        return encodeSheet(data);
    });
    if (!bytes) return tl::unexpected(bytes.error());
    const auto name = safeSheetName(title);
    const auto folder = documents();
    if (!folder) return tl::unexpected(folder.error());

    auto target = sheetFile(*folder, name);
    for (long long counter = 2;;) {
        while (nameTaken(target))
            target = sheetFile(*folder, fmt::format("{} {}", name, counter++));
        auto written = documents::writeFileDurably(target, *bytes, documents::ExistingFile::refuse);
        if (written) return target;
        // another writer took the name between the look and the write: count on
        if (!nameTaken(target)) return tl::unexpected(written.error());
    }
}

} // namespace fq::scanner
