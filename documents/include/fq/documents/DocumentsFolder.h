#pragma once

#include <fq/core/Error.h>

#include <tl/expected.hpp>

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

namespace fq::documents {

/// Told when songs were written, renamed, imported or removed, so that cloud sync can
/// upload them. Called on the main context only.
class DocumentsChangeObserver {
public:
    virtual ~DocumentsChangeObserver() = default;
    virtual void documentsChanged() = 0;
};

/// Runs a task on the main context (an executor's post in the program, a queue in tests).
using MainContext = std::function<void(std::function<void()>)>;
/// Runs each task at once: for a command that has no other main context.
MainContext immediateContext();

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

} // namespace fq::documents
