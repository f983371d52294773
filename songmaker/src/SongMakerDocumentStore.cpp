#include "fq/songmaker/SongMakerDocumentStore.h"

#include "fq/songmaker/SongDocument.h"

#include <fq/core/Diagnostics.h>
#include <fq/core/Text.h>
#include <fq/documents/DurableFile.h>

#include <fmt/format.h>
#include <unicode/coll.h>
#include <unicode/locid.h>

#include <algorithm>
#include <memory>

namespace fq::songmaker {

using documents::DocumentsChangeObserver;
using documents::DocumentsDirectory;
using documents::filesWithExtension;
using documents::folderEntry;
using documents::MainContext;
namespace {

namespace fs = std::filesystem;

bool isSeparator(unsigned char c) {
    return c == '/' || c == ':' || c < 0x20 || c == 0x7f;
}

} // namespace

Error SongMakerDocumentStoreError::fileAlreadyExists(std::string_view name) {
    return Error{fmt::format("A Song Maker file named \"{}\" already exists.", name)};
}
Error SongMakerDocumentStoreError::documentsDirectoryUnavailable() {
    return Error{"Couldn’t find the documents folder."};
}
Error SongMakerDocumentStoreError::fileNotFound() {
    return Error{"Couldn’t find the Song Maker file."};
}
Error SongMakerDocumentStoreError::emptyDocumentName() {
    return Error{"Enter a file name."};
}

std::string safeSongFileName(std::string_view name) {
    std::string joined;
    for (const char c : name)
        joined += isSeparator(static_cast<unsigned char>(c)) ? ' ' : c;
    auto result = std::string(core::text::trimmed(joined));
    return result.empty() ? std::string("Untitled") : result;
}

bool localizedStandardLess(std::string_view left, std::string_view right) {
    static const auto collator = [] {
        UErrorCode status = U_ZERO_ERROR;
        // Under LANG=C ICU picks en_US_POSIX, whose tailoring sorts every capital before
        // every small letter; the root order is what a person expects there.
        auto locale = icu::Locale::getDefault();
        if (std::string_view(locale.getVariant()) == "POSIX" ||
            std::string_view(locale.getLanguage()).empty())
            locale = icu::Locale::getRoot();
        std::unique_ptr<icu::Collator> made(icu::Collator::createInstance(locale, status));
        if (U_FAILURE(status)) made.reset();
        if (made) {
            made->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
        }
        return made;
    }();
    if (!collator) return left < right;
    UErrorCode status = U_ZERO_ERROR;
    const auto order = collator->compareUTF8(
        icu::StringPiece(left.data(), static_cast<int32_t>(left.size())),
        icu::StringPiece(right.data(), static_cast<int32_t>(right.size())), status);
    if (U_FAILURE(status)) return left < right;
    return order == UCOL_LESS;
}

SongMakerDocumentStore::SongMakerDocumentStore(DocumentsDirectory documents,
                                               DocumentsChangeObserver* observer,
                                               MainContext mainContext)
    : documents_(std::move(documents)), observer_(observer), mainContext_(std::move(mainContext)) {}

std::vector<SongMakerDocumentMetadata> SongMakerDocumentStore::listDocuments() const {
    const auto folder = documents_();
    if (!folder) return {};
    const auto entries = filesWithExtension(*folder, config::songExtension);
    if (!entries) {
        diagnostic("Error reading documents: " + entries.error().message);
        return {};
    }
    std::vector<SongMakerDocumentMetadata> result;
    for (const auto& entry : *entries) {
        auto document = FrtQulDocument::read(entry.url);
        if (!document) {
            diagnostic(fmt::format("Decode failed: {} — {}", entry.url.filename().string(),
                                   document.error().message));
            continue;
        }
        result.push_back(
            {entry.url, std::move(document->title), entry.creationDate, entry.modificationDate});
    }
    std::stable_sort(result.begin(), result.end(), [](const auto& left, const auto& right) {
        return localizedStandardLess(left.title, right.title);
    });
    return result;
}

tl::expected<SongMakerDocumentMetadata, Error>
SongMakerDocumentStore::renameDocument(const fs::path& url, std::string_view name) {
    const std::string title(core::text::trimmed(name));
    if (title.empty()) return tl::unexpected(SongMakerDocumentStoreError::emptyDocumentName());
    std::error_code error;
    if (!fs::exists(url, error)) return tl::unexpected(SongMakerDocumentStoreError::fileNotFound());
    const auto folder = documents_();
    if (!folder)
        return tl::unexpected(SongMakerDocumentStoreError::documentsDirectoryUnavailable());
    const auto target =
        *folder / (safeSongFileName(title) + "." + std::string(config::songExtension));
    const bool moves = target.lexically_normal() != url.lexically_normal();
    if (moves && fs::exists(target, error))
        return tl::unexpected(SongMakerDocumentStoreError::fileAlreadyExists(title));

    auto document = FrtQulDocument::read(url);
    if (!document) return tl::unexpected(document.error());
    document->title = title;
    const auto bytes = document->fileWrapper();
    if (!bytes) return tl::unexpected(bytes.error());
    if (auto written = documents::writeFileDurably(url, *bytes); !written)
        return tl::unexpected(written.error());
    if (moves) {
        if (auto moved = documents::moveFileDurably(url, target, documents::ExistingFile::refuse);
            !moved) {
            if (fs::exists(target, error))
                return tl::unexpected(SongMakerDocumentStoreError::fileAlreadyExists(title));
            return tl::unexpected(moved.error());
        }
    }
    notifyChanged();
    const auto entry = folderEntry(moves ? target : url);
    return SongMakerDocumentMetadata{entry.url, title, entry.creationDate, entry.modificationDate};
}

tl::expected<void, Error> SongMakerDocumentStore::deleteDocument(const fs::path& url) {
    std::error_code error;
    if (!fs::exists(fs::symlink_status(url, error)))
        return tl::unexpected(SongMakerDocumentStoreError::fileNotFound());
    if (auto removed = documents::removeFileDurably(url); !removed) return removed;
    notifyChanged();
    return {};
}

void SongMakerDocumentStore::notifyChanged() {
    if (!observer_) return;
    mainContext_([observer = observer_] { observer->documentsChanged(); });
}

} // namespace fq::songmaker
