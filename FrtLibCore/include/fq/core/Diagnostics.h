#pragma once

#include <cstdio>
#include <string_view>

namespace fq {

/// Prints one diagnostic line: a failure that was survived. Lines go to standard
/// output unless the program chooses another stream; the command line sends them to
/// standard error so that its own output stays one JSON document.
void diagnostic(std::string_view line);
void setDiagnosticStream(std::FILE* stream);

} // namespace fq
