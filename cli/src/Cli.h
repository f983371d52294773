#pragma once

#include <ostream>
#include <span>

namespace fq::cli {

/// Runs the `fretquill` command with its arguments (without the program name).
/// Output goes to `out`; an error is one line on `err`. Returns the exit status:
/// 1 for bad input or something not found, 0 otherwise.
int runCli(std::span<const char* const> arguments, std::ostream& out, std::ostream& err);

} // namespace fq::cli
