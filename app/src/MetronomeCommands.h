#pragma once

#include "ChordCommands.h"

namespace fq::app {

/// metronome, and metronome presets.
void addMetronomeCommands(CLI::App& app, CommandContext& context);

} // namespace fq::app
