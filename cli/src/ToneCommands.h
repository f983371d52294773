#pragma once

// `fretquill tone`, registered beside the tuner.

#include "ChordCommands.h"

namespace fq::cli {

void addToneCommand(CLI::App& app, CommandContext& context);

} // namespace fq::cli
