#pragma once

#include "ChordCommands.h"

namespace fq::app {

/// play, and audio devices.
void addAudioCommands(CLI::App& app, CommandContext& context);

} // namespace fq::app
