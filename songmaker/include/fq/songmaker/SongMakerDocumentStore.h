#pragma once

#include "fq/documents/DocumentsFolder.h"

#include <fq/core/Error.h>

#include <tl/expected.hpp>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fq::songmaker {

using documents::defaultDocumentsDirectory;
using documents::DocumentsChangeObserver;
using documents::DocumentsDirectory;
using documents::immediateContext;
using documents::MainContext;

/// The store's own failures, with the texts a person sees.
struct SongMakerDocumentStoreError {
    static Error fileAlreadyExists(std::string_view name);
    static Error documentsDirectoryUnavailable();
    static Error fileNotFound();
    static Error emptyDocumentName();
};

struct SongMakerDocumentMetadata {
    std::filesystem::path url;
    std::string title;
    std::optional<std::chrono::system_clock::time_point> creationDate;
    std::optional<std::chrono::system_clock::time_point> modificationDate;
};

/// The song files as the assistant sees them: list, rename (which moves the file) and
/// delete. Renames and deletions tell the observer on the main context.
class SongMakerDocumentStore {
public:
    explicit SongMakerDocumentStore(DocumentsDirectory documents = defaultDocumentsDirectory,
                                    DocumentsChangeObserver* observer = nullptr,
                                    MainContext mainContext = immediateContext());

    /// Every readable song, by title in the locale's collation. Unreadable files are
    /// reported as diagnostics and left out.
    std::vector<SongMakerDocumentMetadata> listDocuments() const;

    /// Sets the title inside the file to the trimmed name and moves the file to the
    /// safe form of that name.
    tl::expected<SongMakerDocumentMetadata, Error> renameDocument(const std::filesystem::path& url,
                                                                  std::string_view name);

    tl::expected<void, Error> deleteDocument(const std::filesystem::path& url);

private:
    void notifyChanged();

    DocumentsDirectory documents_;
    DocumentsChangeObserver* observer_;
    MainContext mainContext_;
};

/// A file name that the folder accepts: pieces between "/", ":", new lines and control
/// characters joined by single spaces and trimmed; nothing left gives "Untitled".
std::string safeSongFileName(std::string_view name);

/// Sorts texts as the locale's standard comparison does: letters before case ("apple" before
/// "Banana", "apple" just before "Apple"), numbers by value ("song 9" before "song 10").
bool localizedStandardLess(std::string_view left, std::string_view right);

} // namespace fq::songmaker
