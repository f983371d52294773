#pragma once

#include "ChordCommands.h"

namespace fq::cli {

/// sheet save, list, show and delete: scanned song sheets in the documents folder.
void addSheetCommands(CLI::App& app, CommandContext& context);

} // namespace fq::cli
