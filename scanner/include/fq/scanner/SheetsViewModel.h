#pragma once

// The sheet list screen's state: the sheet files, decoded once and kept.

#include "fq/scanner/SheetDocument.h"

#include <fq/core/Executor.h>
#include <fq/core/Uuid.h>
#include <fq/documents/DocumentsFolder.h>

#include <cstddef>
#include <filesystem>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace fq::scanner {

struct SongsheetPageItem {
    core::Uuid id;
    Bitmap image;
    /// The only part of a listed page that can change.
    std::vector<DetectedChordBox> detectedChordBoxes;
};

/// A row of the sheet list; the id is new when the file is first read.
struct SongsheetDocumentItem {
    core::Uuid id = core::Uuid::random();
    std::filesystem::path url;
    std::string title;
    std::vector<SongsheetPageItem> pages;
};

/// The sheet list screen's state over the folder of sheet files. A file once read is
/// kept decoded in the cache and not read again, since its page images make it large.
/// Failures are told as diagnostic lines and survived.
class SheetsViewModel {
public:
    explicit SheetsViewModel(Executor mainExecutor, documents::DocumentsDirectory documents =
                                                        documents::defaultDocumentsDirectory);

    const std::vector<SongsheetDocumentItem>& documentItems() const { return documentItems_; }
    const std::map<std::filesystem::path, SongsheetDocumentItem>& metadataCache() const {
        return metadataCache_;
    }

    /// Reads the sheets not yet in the cache, in file name order. Unreadable files are
    /// told, left out and left alone; unreadable pages are left out of their sheet.
    /// Sheets whose files are gone leave the cache. Publishes on the main executor.
    void loadDocuments();

    /// Removes the files at these rows, then the rows, whether the files went or not.
    void deleteDocuments(std::span<const std::size_t> offsets);

private:
    Executor mainExecutor_;
    documents::DocumentsDirectory documents_;
    std::vector<SongsheetDocumentItem> documentItems_;
    std::map<std::filesystem::path, SongsheetDocumentItem> metadataCache_;
};

} // namespace fq::scanner
