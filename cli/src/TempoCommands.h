#pragma once

// The tempo detection command.

#include "ChordCommands.h"

namespace fq::cli {

/// detect-tempo: the player's tempo from the microphone or a file.
void addTempoCommands(CLI::App& app, CommandContext& context);

} // namespace fq::cli
