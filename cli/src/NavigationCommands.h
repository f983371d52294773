#pragma once

// The navigation commands: following links and identifiers, searching the index.

#include "ChordCommands.h"

namespace fq::cli {

/// open, search and index: where links and identifiers lead, and the search index.
void addNavigationCommands(CLI::App& app, CommandContext& context);

} // namespace fq::cli
