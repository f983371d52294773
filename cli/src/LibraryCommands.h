#pragma once

// The library commands: tunings, settings, favourites and collections.

#include "ChordCommands.h"

namespace fq::cli {

/// tunings, prefs, favorites and collections.
void addLibraryCommands(CLI::App& app, CommandContext& context);

} // namespace fq::cli
