#pragma once

// The system's diagnostics: one line for each failure that was survived. The library never
// chooses where they go; the program sets a sink (standard output until it does).

#include <functional>
#include <string_view>

namespace fq {

/// Where diagnostic lines go. Called from whichever thread noticed the failure, never from
/// a real-time callback; calls are serialised, so a sink needs no lock of its own.
using DiagnosticSink = std::function<void(std::string_view line)>;

/// Sends one line to the sink.
void diagnostic(std::string_view line);

/// Sets the sink and gives back the one it replaces; an empty sink restores standard output.
DiagnosticSink setDiagnosticSink(DiagnosticSink sink);

} // namespace fq
