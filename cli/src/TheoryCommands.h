#pragma once

#include "ChordCommands.h"

namespace fq::cli {

/// lists, filters, progression, progressions, today and patterns.
void addTheoryCommands(CLI::App& app, CommandContext& context);

} // namespace fq::cli
