#pragma once

// The `patterns` command: the jam's picking, bass and drum patterns.

#include "ChordCommands.h"

namespace fq::cli {

void addPatternCommands(CLI::App& app, CommandContext& context);

} // namespace fq::cli
