#pragma once

#include "ChordCommands.h"

namespace fq::app {

/// link parse and link make.
void addLinkCommands(CLI::App& app, CommandContext& context);

} // namespace fq::app
