// Writes that a crash cannot tear, and whole-file reads with a size limit.
#include "fq/documents/DurableFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

namespace fq::documents {
namespace {

namespace fs = std::filesystem;

ErrorKind kindOf(int code) {
    switch (code) {
    case ENOENT:
    case ENOTDIR:
        return ErrorKind::notFound;
    case EEXIST:
        return ErrorKind::exists;
    default:
        return ErrorKind::io;
    }
}

Error systemError(std::string_view what, const fs::path& path, int code) {
    return Error{std::string(what) + " \"" + path.filename().string() +
                     "\": " + std::strerror(code),
                 kindOf(code)};
}

/// Closes a descriptor once.
struct Descriptor {
    int fd = -1;
    ~Descriptor() {
        if (fd >= 0) ::close(fd);
    }
    int release() {
        const int result = ::close(fd);
        fd = -1;
        return result;
    }
};

fs::path folderOf(const fs::path& path) {
    auto folder = path.parent_path();
    return folder.empty() ? fs::path(".") : folder;
}

tl::expected<void, Error> syncFolder(const fs::path& folder) {
    Descriptor descriptor{::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    if (descriptor.fd < 0)
        return tl::unexpected(systemError("Couldn’t open the folder", folder, errno));
    if (::fsync(descriptor.fd) != 0 && errno != EINVAL)
        return tl::unexpected(systemError("Couldn’t flush the folder", folder, errno));
    return {};
}

bool writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const auto written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

/// Renames in one step; with `refuse` the kernel checks for an existing target, so
/// two writers cannot both believe they made the same new file.
int renameFile(const fs::path& source, const fs::path& target, ExistingFile existing) {
    if (existing == ExistingFile::replace) return ::rename(source.c_str(), target.c_str());
    if (::renameat2(AT_FDCWD, source.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS) return -1;
    // file systems without the flag: a hard link also refuses an existing name
    if (::link(source.c_str(), target.c_str()) != 0) return -1;
    ::unlink(source.c_str());
    return 0;
}

} // namespace

tl::expected<void, Error> writeFileDurably(const fs::path& target, std::string_view bytes,
                                           ExistingFile existing) {
    const auto folder = folderOf(target);
    std::string temporary = (folder / ("." + target.filename().string() + ".XXXXXX")).string();
    Descriptor descriptor{::mkostemp(temporary.data(), O_CLOEXEC)};
    if (descriptor.fd < 0) return tl::unexpected(systemError("Couldn’t write", target, errno));

    const auto fail = [&](int code) {
        ::unlink(temporary.c_str());
        return tl::unexpected(systemError("Couldn’t write", target, code));
    };
    // a replaced file keeps its permissions; a new one is readable by others as usual
    struct stat existingStatus {};
    const mode_t mode =
        ::stat(target.c_str(), &existingStatus) == 0 ? (existingStatus.st_mode & 07777) : 0644;
    if (::fchmod(descriptor.fd, mode) != 0) return fail(errno);
    if (!writeAll(descriptor.fd, bytes)) return fail(errno);
    if (::fsync(descriptor.fd) != 0) return fail(errno);
    if (descriptor.release() != 0) return fail(errno);
    if (renameFile(temporary, target, existing) != 0) return fail(errno);
    return syncFolder(folder);
}

tl::expected<void, Error> moveFileDurably(const fs::path& source, const fs::path& target,
                                          ExistingFile existing) {
    if (renameFile(source, target, existing) != 0)
        return tl::unexpected(systemError("Couldn’t move", source, errno));
    if (auto synced = syncFolder(folderOf(target)); !synced) return synced;
    if (folderOf(source) != folderOf(target)) return syncFolder(folderOf(source));
    return {};
}

tl::expected<void, Error> removeFileDurably(const fs::path& target) {
    if (::unlink(target.c_str()) != 0)
        return tl::unexpected(systemError("Couldn’t remove", target, errno));
    return syncFolder(folderOf(target));
}

tl::expected<std::string, Error> readWholeFile(const fs::path& path, std::size_t maximumBytes) {
    Descriptor descriptor{::open(path.c_str(), O_RDONLY | O_CLOEXEC)};
    if (descriptor.fd < 0) return tl::unexpected(systemError("Couldn’t read", path, errno));
    struct stat status {};
    if (::fstat(descriptor.fd, &status) != 0)
        return tl::unexpected(systemError("Couldn’t read", path, errno));
    if (!S_ISREG(status.st_mode))
        return tl::unexpected(
            Error{"The file \"" + path.filename().string() + "\" isn’t a regular file.",
                  ErrorKind::corrupt});
    if (static_cast<std::uint64_t>(status.st_size) > maximumBytes)
        return tl::unexpected(Error{"The file \"" + path.filename().string() + "\" is too large.",
                                    ErrorKind::refused});
    std::string bytes;
    bytes.reserve(static_cast<std::size_t>(status.st_size));
    char buffer[65536];
    for (;;) {
        const auto got = ::read(descriptor.fd, buffer, sizeof buffer);
        if (got < 0) {
            if (errno == EINTR) continue;
            return tl::unexpected(systemError("Couldn’t read", path, errno));
        }
        if (got == 0) break;
        bytes.append(buffer, static_cast<std::size_t>(got));
        // a file that grows while it is read is held to the same limit
        if (bytes.size() > maximumBytes)
            return tl::unexpected(Error{
                "The file \"" + path.filename().string() + "\" is too large.", ErrorKind::refused});
    }
    return bytes;
}

Error corruptFileError(const std::filesystem::path& file) {
    return Error{
        fmt::format("The file “{}” couldn’t be opened because it isn’t in the correct format.",
                    file.filename().string()),
        ErrorKind::corrupt};
}

} // namespace fq::documents
