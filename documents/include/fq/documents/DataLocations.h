#pragma once

#include <filesystem>
#include <functional>
#include <string_view>

namespace fq::documents {

namespace config {
/// The program's folder inside the configuration and cache folders.
inline constexpr std::string_view programFolder = "fretquill";
/// The program's folder inside the person's documents folder.
inline constexpr std::string_view documentsFolder = "Fret Quill";
} // namespace config

/// Looks up one environment variable; null when it is not set.
using Environment = std::function<const char*(const char*)>;

/// The process's own environment.
const char* systemEnvironment(const char* name);

// Where the program keeps its files, following the XDG base directories. A non-empty
// FRETQUILL_HOME moves all of them under one folder (config/, cache/, Documents/), so
// tests and acceptance checks never touch the real home. Relative XDG values are
// ignored, as the XDG rules ask. These only compute paths; nothing here creates a folder.

/// $HOME, or the account's home from the password database when HOME is unusable.
std::filesystem::path homeDirectory(const Environment& environment = systemEnvironment);
/// The shared store's folder: $XDG_CONFIG_HOME/fretquill, else ~/.config/fretquill.
std::filesystem::path configDirectory(const Environment& environment = systemEnvironment);
/// Patch files and the search index: $XDG_CACHE_HOME/fretquill, else ~/.cache/fretquill.
std::filesystem::path cacheDirectory(const Environment& environment = systemEnvironment);
/// Logs of live screens: $XDG_STATE_HOME/fretquill, else ~/.local/state/fretquill.
std::filesystem::path stateDirectory(const Environment& environment = systemEnvironment);

/// Songs and sheets: $XDG_DOCUMENTS_DIR/Fret Quill, else ~/Documents/Fret Quill.
std::filesystem::path documentsDirectory(const Environment& environment = systemEnvironment);

} // namespace fq::documents
