#pragma once

// The person's documents folder as songs and sheets share it: finding it, listing the files
// of one type, finding a document a person names, and the lock that keeps edits from two
// processes at once from undoing each other.

#include <fq/core/Error.h>
#include <fq/core/Executor.h>

#include <tl/expected.hpp>

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace fq::documents {

/// Told when documents were written, renamed, imported or removed, so that cloud sync can
/// upload them. Called on the main executor only.
class DocumentsChangeObserver {
public:
    virtual ~DocumentsChangeObserver() = default;
    virtual void documentsChanged() = 0;
};

/// Tells `observer` (when there is one) on `executor` that documents changed.
void notifyDocumentsChanged(DocumentsChangeObserver* observer, const Executor& executor);

/// Finds the person's documents folder, or says why there is none.
using DocumentsDirectory = std::function<tl::expected<std::filesystem::path, Error>()>;
/// The folder of the data locations (FRETQUILL_HOME/Documents when set), made when missing.
tl::expected<std::filesystem::path, Error> defaultDocumentsDirectory();

struct FolderEntry {
    std::filesystem::path url;
    std::optional<std::chrono::system_clock::time_point> creationDate;
    std::optional<std::chrono::system_clock::time_point> modificationDate;
};

/// The files directly in `folder` whose extension is exactly `extension` (no dot, case
/// kept), in no particular order, with their dates where the file system has them.
tl::expected<std::vector<FolderEntry>, Error>
filesWithExtension(const std::filesystem::path& folder, std::string_view extension);

/// The file with its dates where the file system has them.
FolderEntry folderEntry(const std::filesystem::path& file);

/// Which files in the documents folder a name may find.
enum class FolderMatch {
    anyFile,        ///< whatever file has that name
    onlyOfThisType, ///< only a file whose extension is the one asked for
};

/// A document a person names: a regular file at the path as given (made absolute), else
/// the file of that name in the documents folder, with or without the extension.
/// Nothing found gives none; a missing documents folder is passed on.
tl::expected<std::optional<std::filesystem::path>, Error>
findDocument(std::string_view text, std::string_view extension, const DocumentsDirectory& documents,
             FolderMatch match = FolderMatch::anyFile);

/// Whether `file` ends in "." and exactly `extension`.
bool hasExtension(const std::filesystem::path& file, std::string_view extension);

/// Holds one folder's lock for as long as it lives. Whoever reads a document in order to
/// write it back, or picks a free name to write to, takes the lock of the document's
/// folder first, so that two processes (or threads) doing so run one after the other.
/// It is `flock` on the folder itself: no lock file is left behind, and the kernel lets
/// go when a process dies. Not re-entrant: a thread never takes it twice.
class FolderLock {
public:
    /// Waits for the lock of `folder`.
    static tl::expected<FolderLock, Error> acquire(const std::filesystem::path& folder);

    FolderLock(FolderLock&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    FolderLock& operator=(FolderLock&&) = delete;
    ~FolderLock();

private:
    explicit FolderLock(int fd) : fd_(fd) {}
    int fd_;
};

/// The folder a document lies in, for its lock.
std::filesystem::path folderOf(const std::filesystem::path& file);

} // namespace fq::documents
