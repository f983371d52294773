#pragma once

#include "ChordCommands.h"

namespace fq::cli {

/// link parse and link make.
void addLinkCommands(CLI::App& app, CommandContext& context);

} // namespace fq::cli
