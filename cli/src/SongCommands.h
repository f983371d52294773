#pragma once

// The `song` commands: files (new, list, show, rename, duplicate, delete, import) and the
// editing steps, with what they share in printing.

#include "ChordCommands.h"

#include <fq/songmaker/SongDocument.h>

#include <nlohmann/json.hpp>

#include <chrono>
#include <filesystem>
#include <optional>
#include <ostream>
#include <string>

namespace fq::cli {

/// song new, list, show, rename, duplicate, delete, import, and the editing steps
/// (section, chord, key, bpm, pattern).
void addSongCommands(CLI::App& app, CommandContext& context);

/// The editing steps: section, chord, key, bpm and pattern.
void addSongEditCommands(CLI::App* song, CommandContext& context);

/// A song as `song show` prints it: its JSON form, or its sections and chords as text.
void printSong(std::ostream& out, const std::filesystem::path& file,
               const songmaker::FrtQulDocumentData& song, bool json);

/// One JSON document on one line. Stored text may hold any bytes: they never stop it.
std::string dumped(const nlohmann::ordered_json& json);

/// A file as a "file://" URL, percent-encoded: how listings name documents.
std::string fileURL(const std::filesystem::path& file);

/// "2026-11-22T18:20:30Z", or null when the file system gave no date.
nlohmann::ordered_json isoDate(const std::optional<std::chrono::system_clock::time_point>& date);

} // namespace fq::cli
