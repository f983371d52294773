// The documents folder: where it is, what lies in it, finding a named document, its lock.
#include "fq/documents/DocumentsFolder.h"

#include <fq/documents/DataLocations.h>

#include <asio/post.hpp>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace fq::documents {
namespace {

namespace fs = std::filesystem;

std::chrono::system_clock::time_point timeOf(const statx_timestamp& stamp) {
    return std::chrono::system_clock::time_point{
        std::chrono::duration_cast<std::chrono::system_clock::duration>(
            std::chrono::seconds{stamp.tv_sec} + std::chrono::nanoseconds{stamp.tv_nsec})};
}

bool isRegularFile(const fs::path& path) {
    std::error_code error;
    return fs::is_regular_file(path, error);
}

} // namespace

void notifyDocumentsChanged(DocumentsChangeObserver* observer, const Executor& executor) {
    if (observer == nullptr) return;
    asio::post(executor, [observer] { observer->documentsChanged(); });
}

tl::expected<fs::path, Error> defaultDocumentsDirectory() {
    const auto folder = documentsDirectory();
    std::error_code error;
    fs::create_directories(folder, error);
    if (error || !fs::is_directory(folder, error))
        return tl::unexpected(Error{"Couldn’t find the documents folder.", ErrorKind::notFound});
    return folder;
}

tl::expected<std::vector<FolderEntry>, Error> filesWithExtension(const fs::path& folder,
                                                                 std::string_view extension) {
    std::error_code error;
    fs::directory_iterator iterator(folder, error);
    if (error) return tl::unexpected(Error{error.message(), ErrorKind::io});
    std::vector<FolderEntry> entries;
    for (const auto& entry : iterator)
        if (hasExtension(entry.path(), extension)) entries.push_back(folderEntry(entry.path()));
    return entries;
}

FolderEntry folderEntry(const fs::path& file) {
    FolderEntry found{file, std::nullopt, std::nullopt};
    struct statx status {};
    if (::statx(AT_FDCWD, file.c_str(), 0, STATX_BTIME | STATX_MTIME, &status) == 0) {
        if (status.stx_mask & STATX_BTIME) found.creationDate = timeOf(status.stx_btime);
        if (status.stx_mask & STATX_MTIME) found.modificationDate = timeOf(status.stx_mtime);
    }
    return found;
}

bool hasExtension(const fs::path& file, std::string_view extension) {
    const auto name = file.extension().string();
    return name.size() == extension.size() + 1 &&
           name.compare(1, std::string::npos, extension) == 0;
}

tl::expected<std::optional<fs::path>, Error> findDocument(std::string_view text,
                                                          std::string_view extension,
                                                          const DocumentsDirectory& documents,
                                                          FolderMatch match) {
    if (text.empty()) return std::nullopt;
    const fs::path given(text);
    if (isRegularFile(given)) {
        std::error_code error;
        return fs::absolute(given, error);
    }
    const auto folder = documents();
    if (!folder) return tl::unexpected(folder.error());
    const auto withExtension = std::string(text) + "." + std::string(extension);
    for (const auto& candidate : {*folder / given, *folder / withExtension})
        if (isRegularFile(candidate) &&
            (match == FolderMatch::anyFile || hasExtension(candidate, extension)))
            return candidate;
    return std::nullopt;
}

fs::path folderOf(const fs::path& file) {
    auto folder = file.parent_path();
    return folder.empty() ? fs::path(".") : folder;
}

tl::expected<FolderLock, Error> FolderLock::acquire(const fs::path& folder) {
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return tl::unexpected(Error{"Couldn’t open the folder \"" + folder.filename().string() +
                                        "\": " + std::strerror(errno),
                                    errno == ENOENT ? ErrorKind::notFound : ErrorKind::io});
    while (::flock(fd, LOCK_EX) != 0) {
        if (errno == EINTR) continue;
        const int code = errno;
        ::close(fd);
        return tl::unexpected(Error{"Couldn’t lock the folder \"" + folder.filename().string() +
                                        "\": " + std::strerror(code),
                                    ErrorKind::io});
    }
    return FolderLock(fd);
}

FolderLock::~FolderLock() {
    // closing the last descriptor releases the lock
    if (fd_ >= 0) ::close(fd_);
}

} // namespace fq::documents
