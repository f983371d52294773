#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <ostream>

namespace fq::cli {

/// What a command does once its arguments are parsed: writes to the output and
/// returns the exit status, or fails with the one-line error.
using CommandAction = std::function<int()>;

struct CommandContext {
    std::ostream& out;
    CommandAction* action; ///< set by the subcommand that was chosen
};

void addChordCommands(CLI::App& app, CommandContext& context);

/// What `fretquill` prints with no command: a chord to look at and where to go next.
void printWelcome(std::ostream& out);

} // namespace fq::cli
