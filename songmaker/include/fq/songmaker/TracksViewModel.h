#pragma once

#include "fq/documents/DocumentsFolder.h"

#include <fq/core/Uuid.h>

#include <cstddef>
#include <filesystem>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace fq::songmaker {

using documents::defaultDocumentsDirectory;
using documents::DocumentsChangeObserver;
using documents::DocumentsDirectory;
using documents::immediateContext;
using documents::MainContext;

/// A row of the track list; the id is new at every listing.
struct DocumentItem {
    core::Uuid id = core::Uuid::random();
    std::filesystem::path url;
    std::string title;

    friend bool operator==(const DocumentItem&, const DocumentItem&) = default;
};

/// The track list screen's state over the folder of song files. Failures are told as
/// diagnostic lines and survived; the results say only whether a step produced a file.
class TracksViewModel {
public:
    explicit TracksViewModel(DocumentsDirectory documents = defaultDocumentsDirectory,
                             DocumentsChangeObserver* observer = nullptr,
                             MainContext mainContext = immediateContext());

    const std::vector<DocumentItem>& documentItems() const { return documentItems_; }
    const std::map<std::filesystem::path, DocumentItem>& metadataCache() const {
        return metadataCache_;
    }

    /// Reads every song's title; unreadable files are told and left out (and left alone).
    void loadDocuments();

    /// Copies the song under the next free numbered title. This path reads and writes
    /// the JSON form, so a song in its usual binary form is refused ("Duplication
    /// failed: ") and the folder stays as it was. Returns the new file.
    std::optional<std::filesystem::path> duplicateDocument(const DocumentItem& item);

    /// Sets the title inside the file, through the JSON form as duplication does; the
    /// file name stays. Returns whether the file was written.
    bool renameDocument(const DocumentItem& item, const std::string& title);

    /// Removes the files at these rows, then the rows, whether the files went or not.
    void deleteDocuments(std::span<const std::size_t> offsets);

    /// Copies a file into the folder under a free name ("Song 1.frtqul" beside
    /// "Song.frtqul"), tells the observer and reloads. Returns the new file to open.
    std::optional<std::filesystem::path> importDocument(const std::filesystem::path& source);

private:
    DocumentsDirectory documents_;
    DocumentsChangeObserver* observer_;
    MainContext mainContext_;
    std::vector<DocumentItem> documentItems_;
    std::map<std::filesystem::path, DocumentItem> metadataCache_;
};

/// The base and next number of a duplicated title: "Song 3" gives ("Song", 4), "Song"
/// gives ("Song", 2), "12" gives ("12", 2).
std::pair<std::string, long long> duplicateTitleStart(const std::string& title);

} // namespace fq::songmaker
