#pragma once

// The track list screen's state: the song files, their titles, and the steps on them.

#include "fq/songmaker/SongMakerDocumentStore.h"

#include <fq/core/Error.h>
#include <fq/core/Executor.h>
#include <fq/core/Uuid.h>
#include <fq/documents/DocumentsFolder.h>

#include <tl/expected.hpp>

#include <cstddef>
#include <filesystem>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace fq::songmaker {

/// A row of the track list; the id is new at every listing.
struct DocumentItem {
    core::Uuid id = core::Uuid::random();
    std::filesystem::path url;
    std::string title;

    friend bool operator==(const DocumentItem&, const DocumentItem&) = default;
};

/// The track list screen's state over the folder of song files. A step that fails gives
/// its error, whose message is the whole line to show; a listing or deletion tells each
/// file that fails as a diagnostic line and goes on. Results are published on the main
/// executor.
class TracksViewModel {
public:
    explicit TracksViewModel(Executor mainExecutor,
                             DocumentsDirectory documents = documents::defaultDocumentsDirectory,
                             DocumentsChangeObserver* observer = nullptr);

    const std::vector<DocumentItem>& documentItems() const { return documentItems_; }
    const std::map<std::filesystem::path, DocumentItem>& metadataCache() const {
        return metadataCache_;
    }

    /// Reads every song's title; unreadable files are told and left out (and left alone).
    void loadDocuments();

    /// Copies the song under the next free numbered title. This path reads and writes
    /// the JSON form, so a song in its usual binary form is refused ("Duplication
    /// failed: ") and the folder stays as it was. Returns the new file.
    tl::expected<std::filesystem::path, Error> duplicateDocument(const DocumentItem& item);

    /// Sets the title inside the file, through the JSON form as duplication does; the
    /// file name stays. Fails as "Rename failed: ".
    tl::expected<void, Error> renameDocument(const DocumentItem& item, const std::string& title);

    /// Removes the files at these rows, then the rows, whether the files went or not.
    void deleteDocuments(std::span<const std::size_t> offsets);

    /// Copies a song file into the folder under a free name ("Song 1.frtqul" beside
    /// "Song.frtqul"), tells the observer and reloads. A file that does not read as a song
    /// is refused and nothing is copied ("Failed to import file: "). Returns the new file
    /// to open.
    tl::expected<std::filesystem::path, Error> importDocument(const std::filesystem::path& source);

private:
    Executor mainExecutor_;
    DocumentsDirectory documents_;
    DocumentsChangeObserver* observer_;
    std::vector<DocumentItem> documentItems_;
    std::map<std::filesystem::path, DocumentItem> metadataCache_;
};

/// The base and next number of a duplicated title: "Song 3" gives ("Song", 4), "Song"
/// gives ("Song", 2), "12" gives ("12", 2).
std::pair<std::string, long long> duplicateTitleStart(const std::string& title);

} // namespace fq::songmaker
