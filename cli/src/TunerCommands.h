#pragma once

#include "ChordCommands.h"

namespace fq::cli {

/// tune and tone.
void addTunerCommands(CLI::App& app, CommandContext& context);

} // namespace fq::cli
