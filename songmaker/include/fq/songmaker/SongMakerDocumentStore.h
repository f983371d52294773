#pragma once

// The song files as the assistant sees them, and finding a song a person names.

#include <fq/core/Error.h>
#include <fq/documents/DocumentsFolder.h>

#include <tl/expected.hpp>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fq::songmaker {

using documents::DocumentsChangeObserver;
using documents::DocumentsDirectory;

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
/// delete. Renames and deletions tell the observer on the main executor.
class SongMakerDocumentStore {
public:
    explicit SongMakerDocumentStore(
        Executor mainExecutor, DocumentsDirectory documents = documents::defaultDocumentsDirectory,
        DocumentsChangeObserver* observer = nullptr);

    /// Every readable song, by title in the locale's collation. Unreadable files are
    /// reported as diagnostics and left out.
    std::vector<SongMakerDocumentMetadata> listDocuments() const;

    /// Sets the title inside the file to the trimmed name and moves the file to the
    /// safe form of that name, holding the folder's lock from the read to the move.
    tl::expected<SongMakerDocumentMetadata, Error> renameDocument(const std::filesystem::path& url,
                                                                  std::string_view name);

    tl::expected<void, Error> deleteDocument(const std::filesystem::path& url);

private:
    Executor mainExecutor_;
    DocumentsDirectory documents_;
    DocumentsChangeObserver* observer_;
};

/// A song a person names: a path, or a file name in the documents folder (the extension
/// may be left out). Fails as `fileNotFound`, or `documentsDirectoryUnavailable`.
tl::expected<std::filesystem::path, Error>
findSong(std::string_view text,
         const DocumentsDirectory& documents = documents::defaultDocumentsDirectory);

/// The file itself when it is a song file by its extension: the steps that move, copy in
/// or remove files touch nothing else, whatever a path names.
tl::expected<std::filesystem::path, Error> requireSongFile(const std::filesystem::path& file);

/// A file's metadata: the title inside it (its name when it does not read) and its dates.
SongMakerDocumentMetadata songMetadata(const std::filesystem::path& file);

/// "Song.frtqul" for "Song".
std::string songFileName(std::string_view stem);

/// A file name that the folder accepts: pieces between "/", ":", new lines and control
/// characters joined by single spaces and trimmed; nothing left gives "Untitled".
std::string safeSongFileName(std::string_view name);

/// Sorts texts as the locale's standard comparison does: letters before case ("apple" before
/// "Banana", "apple" just before "Apple"), numbers by value ("song 9" before "song 10").
bool localizedStandardLess(std::string_view left, std::string_view right);

} // namespace fq::songmaker
