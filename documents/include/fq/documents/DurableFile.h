#pragma once

#include <fq/core/Error.h>

#include <tl/expected.hpp>

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

namespace fq::documents {

/// What a durable write does when the target already exists.
enum class ExistingFile {
    replace, ///< the new bytes take its place in one step
    refuse,  ///< the write fails and the existing file stays as it was
};

/// Writes `bytes` to `target` so that a crash at any moment leaves either the old file
/// or the complete new one, never a torn or empty file: the bytes go to a temporary file
/// in the same folder, which is flushed to the disk, renamed over the target, and then
/// the folder itself is flushed so that the rename survives a power loss.
/// The folder must exist. Errors carry the file system's reason.
tl::expected<void, Error> writeFileDurably(const std::filesystem::path& target,
                                           std::string_view bytes,
                                           ExistingFile existing = ExistingFile::replace);

/// Moves `source` to `target` (both in the same file system) and flushes both folders.
/// With `refuse`, an existing target makes the move fail and nothing changes.
tl::expected<void, Error> moveFileDurably(const std::filesystem::path& source,
                                          const std::filesystem::path& target,
                                          ExistingFile existing = ExistingFile::refuse);

/// Removes a file and flushes its folder.
tl::expected<void, Error> removeFileDurably(const std::filesystem::path& target);

/// The whole contents of a regular file. A folder or other non-regular file fails, and
/// so does a file larger than `maximumBytes`, before anything is read.
tl::expected<std::string, Error>
readWholeFile(const std::filesystem::path& path,
              std::size_t maximumBytes = static_cast<std::size_t>(-1));

/// The message of a file whose contents cannot be read as a document.
Error corruptFileError(const std::filesystem::path& file);

} // namespace fq::documents
