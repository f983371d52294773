#include "fq/songmaker/TracksViewModel.h"

#include "fq/songmaker/SongDocument.h"

#include <fq/core/Diagnostics.h>
#include <fq/documents/DurableFile.h>

#include <fmt/format.h>
#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <memory>
#include <set>

namespace fq::songmaker {

using documents::DocumentsChangeObserver;
using documents::DocumentsDirectory;
using documents::filesWithExtension;
using documents::MainContext;
namespace {

namespace fs = std::filesystem;

std::string fileName(const std::string& stem) {
    return stem + "." + std::string(config::songExtension);
}

/// The JSON path of duplication and renaming: the song's fields as a JSON document.
tl::expected<FrtQulDocumentData, Error> readJsonSong(const fs::path& file) {
    auto bytes = documents::readWholeFile(file, config::maximumSongFileBytes);
    if (!bytes) return tl::unexpected(bytes.error());
    const auto json = nlohmann::json::parse(*bytes, nullptr, false);
    if (json.is_discarded())
        return tl::unexpected(
            Error{"The data couldn’t be read because it isn’t in the correct format."});
    return documentDataFromJson(json);
}

} // namespace

std::pair<std::string, long long> duplicateTitleStart(const std::string& title) {
    struct CodeFree {
        void operator()(pcre2_code* code) const { pcre2_code_free(code); }
    };
    struct DataFree {
        void operator()(pcre2_match_data* data) const { pcre2_match_data_free(data); }
    };
    static const std::unique_ptr<pcre2_code, CodeFree> pattern = [] {
        int error = 0;
        PCRE2_SIZE offset = 0;
        const std::string_view text = R"(^(.*?)(?: (\d+))?$)";
        return std::unique_ptr<pcre2_code, CodeFree>(
            pcre2_compile(reinterpret_cast<PCRE2_SPTR>(text.data()), text.size(), PCRE2_UTF, &error,
                          &offset, nullptr));
    }();
    std::unique_ptr<pcre2_match_data, DataFree> match(
        pcre2_match_data_create_from_pattern(pattern.get(), nullptr));
    if (!pattern || !match ||
        pcre2_match(pattern.get(), reinterpret_cast<PCRE2_SPTR>(title.data()), title.size(), 0, 0,
                    match.get(), nullptr) < 0)
        return {title, 2};
    const auto* vector = pcre2_get_ovector_pointer(match.get());
    std::string base = title.substr(vector[2], vector[3] - vector[2]);
    long long number = 1;
    if (pcre2_get_ovector_count(match.get()) > 2 && vector[4] != PCRE2_UNSET) {
        const char* first = title.data() + vector[4];
        const char* last = title.data() + vector[5];
        long long parsed = 0;
        // a number too large to count from reads as absent, as a failed conversion does
        if (std::from_chars(first, last, parsed).ec == std::errc() && parsed < LLONG_MAX)
            number = parsed;
    }
    return {std::move(base), number + 1};
}

TracksViewModel::TracksViewModel(DocumentsDirectory documents, DocumentsChangeObserver* observer,
                                 MainContext mainContext)
    : documents_(std::move(documents)), observer_(observer), mainContext_(std::move(mainContext)) {}

void TracksViewModel::loadDocuments() {
    std::vector<DocumentItem> items;
    std::map<fs::path, DocumentItem> cache;
    if (const auto folder = documents_()) {
        if (const auto entries = filesWithExtension(*folder, config::songExtension)) {
            for (const auto& entry : *entries) {
                auto document = FrtQulDocument::read(entry.url);
                if (!document) {
                    diagnostic(fmt::format("Decode failed: {} — {}", entry.url.filename().string(),
                                           document.error().message));
                    continue;
                }
                DocumentItem item{core::Uuid::random(), entry.url, std::move(document->title)};
                cache[entry.url] = item;
                items.push_back(std::move(item));
            }
        } else {
            diagnostic("Error reading documents: " + entries.error().message);
        }
    }
    mainContext_([this, items = std::move(items), cache = std::move(cache)]() mutable {
        documentItems_ = std::move(items);
        metadataCache_ = std::move(cache);
    });
}

std::optional<fs::path> TracksViewModel::duplicateDocument(const DocumentItem& item) {
    const auto folder = documents_();
    if (!folder) {
        diagnostic("Duplication failed: " + folder.error().message);
        return std::nullopt;
    }
    auto [base, number] = duplicateTitleStart(item.title);
    std::string candidate = fmt::format("{} {}", base, number);
    std::error_code error;
    while (fs::exists(*folder / fileName(candidate), error))
        candidate = fmt::format("{} {}", base, ++number);
    const auto target = *folder / fileName(candidate);

    auto data = readJsonSong(item.url);
    if (!data) {
        diagnostic("Duplication failed: " + data.error().message);
        return std::nullopt;
    }
    data->title = candidate;
    const auto written =
        documents::writeFileDurably(target, toJson(*data).dump(), documents::ExistingFile::refuse);
    if (!written) {
        diagnostic("Duplication failed: " + written.error().message);
        return std::nullopt;
    }
    mainContext_([this, target, candidate] {
        metadataCache_[target] = DocumentItem{core::Uuid::random(), target, candidate};
        loadDocuments();
    });
    return target;
}

bool TracksViewModel::renameDocument(const DocumentItem& item, const std::string& title) {
    auto data = readJsonSong(item.url);
    if (!data) {
        diagnostic("Rename failed: " + data.error().message);
        return false;
    }
    data->title = title;
    if (const auto written = documents::writeFileDurably(item.url, toJson(*data).dump());
        !written) {
        diagnostic("Rename failed: " + written.error().message);
        return false;
    }
    mainContext_([this, url = item.url, title] {
        const DocumentItem renamed{core::Uuid::random(), url, title};
        metadataCache_[url] = renamed;
        for (auto& row : documentItems_)
            if (row.url == url) row = renamed;
    });
    return true;
}

void TracksViewModel::deleteDocuments(std::span<const std::size_t> offsets) {
    std::set<std::size_t> rows;
    for (const auto offset : offsets) {
        if (offset >= documentItems_.size()) continue;
        rows.insert(offset);
        const auto& url = documentItems_[offset].url;
        if (auto removed = documents::removeFileDurably(url); !removed)
            diagnostic(fmt::format("Failed to delete {}: {}", url.filename().string(),
                                   removed.error().message));
    }
    std::vector<DocumentItem> kept;
    for (std::size_t index = 0; index < documentItems_.size(); ++index)
        if (!rows.count(index)) kept.push_back(std::move(documentItems_[index]));
    documentItems_ = std::move(kept);
}

std::optional<fs::path> TracksViewModel::importDocument(const fs::path& source) {
    // stands in for the picker's grant: a file we may not read is refused up front
    if (::access(source.c_str(), R_OK) != 0) {
        diagnostic("Failed to access security scoped resource.");
        return std::nullopt;
    }
    const auto folder = documents_();
    if (!folder) {
        diagnostic("Failed to import file: " + folder.error().message);
        return std::nullopt;
    }
    const auto stem = source.stem().string();
    const auto extension = source.extension().string();
    auto target = *folder / source.filename();
    std::error_code error;
    for (int counter = 1; fs::exists(target, error); ++counter)
        target = *folder / fmt::format("{} {}{}", stem, counter, extension);

    auto bytes = documents::readWholeFile(source, config::maximumSongFileBytes);
    auto copied = bytes.and_then([&](const std::string& contents) {
        return documents::writeFileDurably(target, contents, documents::ExistingFile::refuse);
    });
    if (!copied) {
        diagnostic("Failed to import file: " + copied.error().message);
        return std::nullopt;
    }
    mainContext_([observer = observer_] {
        if (observer) observer->documentsChanged();
    });
    loadDocuments();
    return target;
}

} // namespace fq::songmaker
