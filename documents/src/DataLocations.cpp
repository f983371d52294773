#include "fq/documents/DataLocations.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>
#include <vector>

namespace fq::documents {
namespace {

namespace fs = std::filesystem;

/// A variable's value when it names an absolute folder; unset, empty or relative gives none.
std::optional<fs::path> absoluteFolder(const Environment& environment, const char* name) {
    const char* value = environment(name);
    if (value == nullptr || *value == '\0') return std::nullopt;
    fs::path path(value);
    if (!path.is_absolute()) return std::nullopt;
    return path;
}

/// FRETQUILL_HOME as given: it is a deliberate choice, so a relative value is honoured too.
std::optional<fs::path> programHome(const Environment& environment) {
    const char* value = environment("FRETQUILL_HOME");
    if (value == nullptr || *value == '\0') return std::nullopt;
    return fs::path(value);
}

fs::path passwordDatabaseHome() {
    long size = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(size > 0 ? static_cast<std::size_t>(size) : 16384);
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found &&
        found->pw_dir && *found->pw_dir == '/')
        return found->pw_dir;
    return "/";
}

fs::path locate(const Environment& environment, std::string_view homeSubfolder,
                const char* xdgVariable, std::string_view xdgFallback,
                std::string_view programSubfolder) {
    if (auto home = programHome(environment)) return *home / homeSubfolder;
    if (auto base = absoluteFolder(environment, xdgVariable)) return *base / programSubfolder;
    return homeDirectory(environment) / xdgFallback / programSubfolder;
}

} // namespace

const char* systemEnvironment(const char* name) {
    return std::getenv(name);
}

fs::path homeDirectory(const Environment& environment) {
    if (auto home = absoluteFolder(environment, "HOME")) return *home;
    return passwordDatabaseHome();
}

fs::path configDirectory(const Environment& environment) {
    return locate(environment, "config", "XDG_CONFIG_HOME", ".config", config::programFolder);
}

fs::path cacheDirectory(const Environment& environment) {
    return locate(environment, "cache", "XDG_CACHE_HOME", ".cache", config::programFolder);
}

fs::path stateDirectory(const Environment& environment) {
    return locate(environment, "state", "XDG_STATE_HOME", ".local/state", config::programFolder);
}

fs::path documentsDirectory(const Environment& environment) {
    return locate(environment, "Documents", "XDG_DOCUMENTS_DIR", "Documents",
                  config::documentsFolder);
}

} // namespace fq::documents
