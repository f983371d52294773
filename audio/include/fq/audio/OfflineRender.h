#pragma once

#include "fq/audio/GuitarAudioEngine.h"
#include "fq/audio/SharedAudioEngine.h"
#include "fq/audio/Timeline.h"

#include <fq/core/Error.h>

#include <tl/expected.hpp>

#include <cstdint>
#include <filesystem>
#include <span>
#include <vector>

namespace fq::audio {

/// Two channels of rendered audio, the same length.
struct StereoBuffer {
    std::vector<float> left;
    std::vector<float> right;

    std::size_t frames() const { return left.size(); }
};

/// Pulls `frames` frames from an engine in manual rendering mode whose timeline is
/// `timeline`, moving the timeline along with the audio: before each block, every
/// work item due by the block's end runs, so that what it sends lands on its exact
/// frame. The first frame sounds at the timeline's present moment.
StereoBuffer renderOffline(SharedAudioEngine& engine, ManualTimeline& timeline, std::int64_t frames,
                           int blockFrames = 256);

/// Rendered audio and the rate it was rendered at.
struct RenderedAudio {
    StereoBuffer audio;
    double sampleRate = 0;
};

/// The parts played one after another on a guitar and an engine of its own, offline: the
/// same strums as on the device, each part as long as it says.
RenderedAudio renderGuitar(std::span<const TimedNotes> parts);

/// Writes the audio as a 16-bit WAV file, clipping what lies beyond full scale.
tl::expected<void, Error> writeWav(const std::filesystem::path& file, const StereoBuffer& audio,
                                   double sampleRate);

} // namespace fq::audio
