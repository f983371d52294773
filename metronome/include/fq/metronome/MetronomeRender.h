#pragma once

// Clicks rendered offline into a WAV file.

#include "fq/metronome/MetronomeSettings.h"

#include <fq/core/Error.h>

#include <tl/expected.hpp>

#include <cstdint>
#include <filesystem>

namespace fq::metronome {

/// The container a render of `frames` stereo 16-bit frames is written in: plain WAV while
/// its size fields can hold the data, RF64 (64-bit sizes) past that, about 6.7 hours.
enum class WavContainer : std::uint8_t { wav, rf64 };
WavContainer containerFor(std::int64_t frames);

/// Renders `seconds` of clicks, from a start, through the shared engine's offline path
/// and streams them into a 16-bit stereo WAV file at 44100 Hz (RF64 when it outgrows
/// WAV). Returns the number of frames written.
tl::expected<std::int64_t, Error> renderMetronome(const MetronomeSettings& settings,
                                                  const std::filesystem::path& file,
                                                  double seconds);

} // namespace fq::metronome
