#pragma once

// The live metronome in a terminal: a status line with the tempo and the beat, keys to
// tap, step the tempo, listen and quit, or one JSON object per click and change.

#include <fq/metronome/MetronomeSettings.h>

#include <optional>
#include <ostream>

namespace fq::cli {

struct LiveMetronomeOptions {
    metronome::MetronomeSettings settings;
    /// Seconds to run; none runs until quit.
    std::optional<double> seconds;
    bool json = false;
    bool listen = false;
    bool verbose = false;
};

/// Runs the metronome on the audio device until quit, interrupted, the time is up or the
/// switch is turned off elsewhere. Failures throw CommandError.
void runLiveMetronome(std::ostream& out, const LiveMetronomeOptions& options);

} // namespace fq::cli
