#pragma once

#include "ChordCommands.h"

namespace fq::cli {

/// open, search and index: where links and identifiers lead, and the search index.
void addNavigationCommands(CLI::App& app, CommandContext& context);

} // namespace fq::cli
