#pragma once

// The metronome's commands.

#include "ChordCommands.h"

namespace fq::cli {

/// metronome, and metronome presets.
void addMetronomeCommands(CLI::App& app, CommandContext& context);

} // namespace fq::cli
