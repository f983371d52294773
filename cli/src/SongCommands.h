#pragma once

#include "ChordCommands.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

namespace fq::cli {

/// song new, list, show, rename, duplicate, delete, import, and the editing steps
/// (section, chord, key, bpm, pattern).
void addSongCommands(CLI::App& app, CommandContext& context);

/// A file as a "file://" URL, percent-encoded: how listings name documents.
std::string fileURL(const std::filesystem::path& file);

/// "2026-11-22T18:20:30Z", or null when the file system gave no date.
nlohmann::ordered_json isoDate(const std::optional<std::chrono::system_clock::time_point>& date);

} // namespace fq::cli
