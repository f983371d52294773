#pragma once

// Tempo detection of a recording: the detector of the live screen, fed from a file.

#include "fq/metronome/ListeningState.h"

#include <fq/core/Error.h>

#include <tl/expected.hpp>

#include <filesystem>
#include <functional>

namespace fq::metronome {

struct TempoFileOptions {
    /// Fed at the pace it plays (true), or as fast as it goes.
    bool realTime = true;
    /// Seconds of the file to hear; 0 for all of it.
    double duration = 0;
};

/// Runs the live detector (the same window, loop, acceptance rule and states) over the
/// first channel of an audio file of any rate and format libsndfile reads, on a clock
/// of its own. The callbacks are told what the live screen would be, ending with idle;
/// the pass that follows the end of the file still analyses its window. `shouldStop`,
/// asked between buffers, ends early. Fails only when the file cannot be read.
tl::expected<void, Error> detectTempoInFile(const std::filesystem::path& file,
                                            const TempoFileOptions& options,
                                            const ListeningCallbacks::StateCallback& onState,
                                            const ListeningCallbacks::LevelsCallback& onLevels,
                                            const std::function<bool()>& shouldStop = {});

} // namespace fq::metronome
