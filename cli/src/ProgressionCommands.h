#pragma once

// The `progression` and `progressions` commands.

#include "ChordCommands.h"

namespace fq::cli {

void addProgressionCommands(CLI::App& app, CommandContext& context);

} // namespace fq::cli
