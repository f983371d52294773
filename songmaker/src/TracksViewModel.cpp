// The track list: listing, duplicating, renaming, deleting and importing song files.
#include "fq/songmaker/TracksViewModel.h"

#include "fq/songmaker/SongDocument.h"

#include <fq/core/Diagnostics.h>
#include <fq/documents/DurableFile.h>

#include <asio/post.hpp>
#include <fmt/format.h>
#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <memory>
#include <set>

namespace fq::songmaker {
namespace {

namespace fs = std::filesystem;

std::string fileName(const std::string& stem) {
    return songFileName(stem);
}

/// The error with the step's own words in front.
tl::unexpected<Error> failure(std::string_view step, Error error) {
    error.message = std::string(step) + error.message;
    return tl::unexpected(std::move(error));
}

/// The JSON path of duplication and renaming: the song's fields as a JSON document.
tl::expected<FrtQulDocumentData, Error> readJsonSong(const fs::path& file) {
    auto bytes = documents::readWholeFile(file, config::maximumSongFileBytes);
    if (!bytes) return tl::unexpected(bytes.error());
    const auto json = nlohmann::json::parse(*bytes, nullptr, false);
    if (json.is_discarded())
        return tl::unexpected(
            Error{"The data couldn’t be read because it isn’t in the correct format.",
                  ErrorKind::corrupt});
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

TracksViewModel::TracksViewModel(Executor mainExecutor, DocumentsDirectory documents,
                                 DocumentsChangeObserver* observer)
    : mainExecutor_(std::move(mainExecutor)), documents_(std::move(documents)),
      observer_(observer) {}

void TracksViewModel::loadDocuments() {
    std::vector<DocumentItem> items;
    std::map<fs::path, DocumentItem> cache;
    if (const auto folder = documents_()) {
        if (const auto entries = documents::filesWithExtension(*folder, config::songExtension)) {
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
    asio::post(mainExecutor_, [this, items = std::move(items), cache = std::move(cache)]() mutable {
        documentItems_ = std::move(items);
        metadataCache_ = std::move(cache);
    });
}

tl::expected<fs::path, Error> TracksViewModel::duplicateDocument(const DocumentItem& item) {
    constexpr std::string_view step = "Duplication failed: ";
    const auto folder = documents_();
    if (!folder) return failure(step, folder.error());
    auto data = readJsonSong(item.url);
    if (!data) return failure(step, data.error());

    auto [base, number] = duplicateTitleStart(item.title);
    std::string candidate = fmt::format("{} {}", base, number);
    const auto lock = documents::FolderLock::acquire(*folder);
    if (!lock) return failure(step, lock.error());
    std::error_code error;
    while (fs::exists(fs::symlink_status(*folder / fileName(candidate), error)))
        candidate = fmt::format("{} {}", base, ++number);
    const auto target = *folder / fileName(candidate);
    data->title = candidate;
    const auto written =
        documents::writeFileDurably(target, toJson(*data).dump(), documents::ExistingFile::refuse);
    if (!written) return failure(step, written.error());
    asio::post(mainExecutor_, [this, target, candidate] {
        metadataCache_[target] = DocumentItem{core::Uuid::random(), target, candidate};
        loadDocuments();
    });
    return target;
}

tl::expected<void, Error> TracksViewModel::renameDocument(const DocumentItem& item,
                                                          const std::string& title) {
    constexpr std::string_view step = "Rename failed: ";
    const auto lock = documents::FolderLock::acquire(documents::folderOf(item.url));
    if (!lock) return failure(step, lock.error());
    auto data = readJsonSong(item.url);
    if (!data) return failure(step, data.error());
    data->title = title;
    if (auto written = documents::writeFileDurably(item.url, toJson(*data).dump()); !written)
        return failure(step, written.error());
    asio::post(mainExecutor_, [this, url = item.url, title] {
        const DocumentItem renamed{core::Uuid::random(), url, title};
        metadataCache_[url] = renamed;
        for (auto& row : documentItems_)
            if (row.url == url) row = renamed;
    });
    return {};
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

tl::expected<fs::path, Error> TracksViewModel::importDocument(const fs::path& source) {
    constexpr std::string_view step = "Failed to import file: ";
    // stands in for the picker's grant: a file we may not read is refused up front
    if (::access(source.c_str(), R_OK) != 0)
        return tl::unexpected(Error{"Failed to access security scoped resource.",
                                    errno == ENOENT ? ErrorKind::notFound : ErrorKind::refused});
    const auto folder = documents_();
    if (!folder) return failure(step, folder.error());
    const auto bytes = documents::readWholeFile(source, config::maximumSongFileBytes);
    if (!bytes) return failure(step, bytes.error());
    // a file that is no song would only spoil every later listing
    if (!decodeSong(*bytes)) return failure(step, documents::corruptFileError(source));

    const auto nameFor = [&](int counter) {
        if (counter == 0) return *folder / source.filename();
        return *folder /
               fmt::format("{} {}{}", source.stem().string(), counter, source.extension().string());
    };
    fs::path target;
    {
        const auto lock = documents::FolderLock::acquire(*folder);
        if (!lock) return failure(step, lock.error());
        std::error_code error;
        for (int counter = 0;; ++counter) {
            target = nameFor(counter);
            if (fs::exists(fs::symlink_status(target, error))) continue;
            auto written =
                documents::writeFileDurably(target, *bytes, documents::ExistingFile::refuse);
            if (written) break;
            // a writer that takes no lock took the name first: count on
            if (written.error().kind != ErrorKind::exists) return failure(step, written.error());
        }
    }
    documents::notifyDocumentsChanged(observer_, mainExecutor_);
    loadDocuments();
    return target;
}

} // namespace fq::songmaker
