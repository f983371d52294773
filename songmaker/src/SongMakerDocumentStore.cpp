// The assistant's song files: listing, renaming, deleting, and finding a named song.
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
namespace {

namespace fs = std::filesystem;

bool isSeparator(unsigned char c) {
    return c == '/' || c == ':' || c < 0x20 || c == 0x7f;
}

} // namespace

Error SongMakerDocumentStoreError::fileAlreadyExists(std::string_view name) {
    return Error{fmt::format("A Song Maker file named \"{}\" already exists.", name),
                 ErrorKind::exists};
}
Error SongMakerDocumentStoreError::documentsDirectoryUnavailable() {
    return Error{"Couldn’t find the documents folder.", ErrorKind::notFound};
}
Error SongMakerDocumentStoreError::fileNotFound() {
    return Error{"Couldn’t find the Song Maker file.", ErrorKind::notFound};
}
Error SongMakerDocumentStoreError::emptyDocumentName() {
    return Error{"Enter a file name.", ErrorKind::refused};
}

std::string songFileName(std::string_view stem) {
    return fmt::format("{}.{}", stem, config::songExtension);
}

SongMakerDocumentMetadata songMetadata(const fs::path& file) {
    const auto entry = documents::folderEntry(file);
    auto document = FrtQulDocument::read(file);
    return {file, document ? std::move(document->title) : file.stem().string(), entry.creationDate,
            entry.modificationDate};
}

tl::expected<fs::path, Error> findSong(std::string_view text, const DocumentsDirectory& documents) {
    const auto found = documents::findDocument(text, config::songExtension, documents);
    if (!found) return tl::unexpected(SongMakerDocumentStoreError::documentsDirectoryUnavailable());
    if (!*found) return tl::unexpected(SongMakerDocumentStoreError::fileNotFound());
    return **found;
}

tl::expected<fs::path, Error> requireSongFile(const fs::path& file) {
    if (!documents::hasExtension(file, config::songExtension))
        return tl::unexpected(Error{fmt::format("Not a song file (they end in .{}): {}",
                                                config::songExtension, file.string()),
                                    ErrorKind::refused});
    return file;
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

SongMakerDocumentStore::SongMakerDocumentStore(Executor mainExecutor, DocumentsDirectory documents,
                                               DocumentsChangeObserver* observer)
    : mainExecutor_(std::move(mainExecutor)), documents_(std::move(documents)),
      observer_(observer) {}

std::vector<SongMakerDocumentMetadata> SongMakerDocumentStore::listDocuments() const {
    const auto folder = documents_();
    if (!folder) return {};
    const auto entries = documents::filesWithExtension(*folder, config::songExtension);
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
    const auto target = *folder / songFileName(safeSongFileName(title));
    const bool moves = target.lexically_normal() != url.lexically_normal();
    // one lock covers both folders: they are the same unless the song lies elsewhere
    auto lock = documents::FolderLock::acquire(documents::folderOf(url));
    if (!lock) return tl::unexpected(lock.error());
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
            if (moved.error().kind == ErrorKind::exists)
                return tl::unexpected(SongMakerDocumentStoreError::fileAlreadyExists(title));
            return tl::unexpected(moved.error());
        }
    }
    documents::notifyDocumentsChanged(observer_, mainExecutor_);
    const auto entry = documents::folderEntry(moves ? target : url);
    return SongMakerDocumentMetadata{entry.url, title, entry.creationDate, entry.modificationDate};
}

tl::expected<void, Error> SongMakerDocumentStore::deleteDocument(const fs::path& url) {
    std::error_code error;
    if (!fs::exists(fs::symlink_status(url, error)))
        return tl::unexpected(SongMakerDocumentStoreError::fileNotFound());
    if (auto removed = documents::removeFileDurably(url); !removed) return removed;
    documents::notifyDocumentsChanged(observer_, mainExecutor_);
    return {};
}

} // namespace fq::songmaker
