// The sheet list: reading each sheet file once, and deleting rows with their files.
#include "fq/scanner/SheetsViewModel.h"

#include <fq/core/Diagnostics.h>
#include <fq/documents/DurableFile.h>

#include <asio/post.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace fq::scanner {
namespace {

namespace fs = std::filesystem;

tl::expected<std::vector<documents::FolderEntry>, Error>
sheetFiles(const documents::DocumentsDirectory& documents) {
    return documents().and_then([](const fs::path& folder) {
        return documents::filesWithExtension(folder, config::sheetExtension);
    });
}

/// The listed form of a file; pages whose images do not decode are left out.
tl::expected<SongsheetDocumentItem, Error> readItem(const fs::path& file) {
    auto data = documents::readWholeFile(file).and_then(
        [](const std::string& bytes) { return decodeSheet(bytes); });
    if (!data) return tl::unexpected(data.error());
    SongsheetDocumentItem item{core::Uuid::random(), file, std::move(data->title), {}};
    for (auto& page : data->pages) {
        auto image = Bitmap::decodePng(page.image);
        if (!image) continue;
        item.pages.push_back({page.id, std::move(*image), std::move(page.detectedChordBoxes)});
    }
    return item;
}

} // namespace

SheetsViewModel::SheetsViewModel(Executor mainExecutor, documents::DocumentsDirectory documents)
    : mainExecutor_(std::move(mainExecutor)), documents_(std::move(documents)) {}

void SheetsViewModel::loadDocuments() {
    // a copy: the walk may run while the main context changes its own
    auto cache = metadataCache_;
    std::vector<SongsheetDocumentItem> items;
    std::map<fs::path, SongsheetDocumentItem> kept;
    if (auto entries = sheetFiles(documents_)) {
        std::sort(entries->begin(), entries->end(),
                  [](const auto& a, const auto& b) { return a.url.filename() < b.url.filename(); });
        for (const auto& entry : *entries) {
            if (const auto cached = cache.find(entry.url); cached != cache.end()) {
                items.push_back(cached->second);
                kept.insert(*cached);
                continue;
            }
            auto item = readItem(entry.url);
            if (!item) {
                diagnostic(fmt::format("Decode failed: {} — {}", entry.url.filename().string(),
                                       item.error().message));
                continue;
            }
            kept[entry.url] = *item;
            items.push_back(std::move(*item));
        }
    } else {
        diagnostic("Error reading documents: " + entries.error().message);
    }
    asio::post(mainExecutor_, [this, items = std::move(items), kept = std::move(kept)]() mutable {
        documentItems_ = std::move(items);
        metadataCache_ = std::move(kept);
    });
}

void SheetsViewModel::deleteDocuments(std::span<const std::size_t> offsets) {
    std::set<std::size_t> rows;
    for (const auto offset : offsets) {
        if (offset >= documentItems_.size() || !rows.insert(offset).second) continue;
        const auto& url = documentItems_[offset].url;
        if (auto removed = documents::removeFileDurably(url); !removed) {
            diagnostic(fmt::format("Failed to delete {}: {}", url.filename().string(),
                                   removed.error().message));
            continue;
        }
        // a later sheet saved under the same name must be read afresh
        metadataCache_.erase(url);
    }
    std::vector<SongsheetDocumentItem> remaining;
    for (std::size_t index = 0; index < documentItems_.size(); ++index)
        if (!rows.count(index)) remaining.push_back(std::move(documentItems_[index]));
    documentItems_ = std::move(remaining);
}

} // namespace fq::scanner
