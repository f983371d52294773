#pragma once

#include "fq/audio/Timeline.h"

#include <atomic>
#include <cstdint>
#include <span>

namespace fq::audio {

class SharedAudioEngine;

/// A frame of the engine's output, counted from the engine's first rendered frame.
using FrameTime = std::int64_t;

/// One block being rendered, and where timeline time falls in it.
struct BlockTiming {
    FrameTime firstFrame = 0;
    int frames = 0;
    double sampleRate = 44100.0;
    /// The frame at which something stamped `anchorTime` sounds; the rest follows
    /// at `sampleRate`.
    FrameTime anchorFrame = 0;
    TimelineTime anchorTime{0};

    /// The frame at which something stamped `time` sounds: rounded to the nearest
    /// frame, and never before this block.
    FrameTime frameFor(TimelineTime time) const noexcept;
};

/// Something the engine mixes into its output: a sampler, later the metronome.
class AudioSource {
public:
    virtual ~AudioSource() = default;

    /// Control, never while the source renders: the rate and the largest block it
    /// will be asked for. Called when attached and whenever the rate changes.
    virtual void prepare(double sampleRate, int maximumFrames) = 0;
    /// RT: adds this block's sound to the two channels. Allocates nothing, locks
    /// nothing, logs nothing, throws nothing.
    virtual void render(const BlockTiming& timing, float* left, float* right) noexcept = 0;
    /// Control: silences at once and forgets everything sent to it so far.
    virtual void reset() = 0;

    /// The engine that mixes this source, if any.
    SharedAudioEngine* engine() const { return engine_.load(); }

private:
    friend class SharedAudioEngine;
    std::atomic<SharedAudioEngine*> engine_{nullptr};
};

/// Something that listens to the input while a capture runs: the tuner, tempo detection.
class CaptureSink {
public:
    virtual ~CaptureSink() = default;
    /// RT: the newest input frames, one channel. Same rules as AudioSource::render.
    virtual void captured(std::span<const float> samples, double sampleRate) noexcept = 0;
};

} // namespace fq::audio
