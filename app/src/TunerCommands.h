#pragma once

#include "ChordCommands.h"

namespace fq::app {

/// tune and tone.
void addTunerCommands(CLI::App& app, CommandContext& context);

} // namespace fq::app
