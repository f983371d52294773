#include "fq/documents/DocumentsFolder.h"

#include <fq/documents/DataLocations.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace fq::documents {
namespace {

namespace fs = std::filesystem;

std::chrono::system_clock::time_point timeOf(const statx_timestamp& stamp) {
    return std::chrono::system_clock::time_point{
        std::chrono::duration_cast<std::chrono::system_clock::duration>(
            std::chrono::seconds{stamp.tv_sec} + std::chrono::nanoseconds{stamp.tv_nsec})};
}

} // namespace

MainContext immediateContext() {
    return [](std::function<void()> task) { task(); };
}

tl::expected<fs::path, Error> defaultDocumentsDirectory() {
    const auto folder = documentsDirectory();
    std::error_code error;
    fs::create_directories(folder, error);
    if (error || !fs::is_directory(folder, error))
        return tl::unexpected(Error{"Couldn’t find the documents folder."});
    return folder;
}

tl::expected<std::vector<FolderEntry>, Error> filesWithExtension(const fs::path& folder,
                                                                 std::string_view extension) {
    std::error_code error;
    fs::directory_iterator iterator(folder, error);
    if (error) return tl::unexpected(Error{error.message()});
    std::vector<FolderEntry> entries;
    for (const auto& entry : iterator) {
        const auto name = entry.path().extension().string();
        if (name.size() != extension.size() + 1 ||
            name.compare(1, std::string::npos, extension) != 0)
            continue;
        entries.push_back(folderEntry(entry.path()));
    }
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

} // namespace fq::documents
