#pragma once

#include "ChordCommands.h"

namespace fq::cli {

/// play, and audio devices.
void addAudioCommands(CLI::App& app, CommandContext& context);

} // namespace fq::cli
