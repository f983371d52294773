#pragma once

// The 24-band level display of a captured buffer.

#include <array>
#include <memory>
#include <span>

namespace fq::metronome {

namespace config {
inline constexpr int levelCount = 24;
/// The largest transform the level display uses.
inline constexpr int largestLevelTransform = 1024;
inline constexpr float initialLevel = 0.08f;
/// A band that no bin of the transform reaches.
inline constexpr float emptyBandLevel = 0.05f;
} // namespace config

using TempoLevelBands = std::array<float, config::levelCount>;

/// The 24-band level display of one buffer: a Hann-windowed transform of its first
/// samples (at most 1024, a power of two), bands linear in frequency, each the log of
/// its bins' mean magnitude. The transforms, windows and scratch space of every size
/// are made at construction, so that compute() allocates nothing and may run on the
/// audio thread.
///
/// Threads: construction on any thread; compute() on one thread at a time.
class TempoLevels {
public:
    TempoLevels();
    ~TempoLevels();
    TempoLevels(const TempoLevels&) = delete;
    TempoLevels& operator=(const TempoLevels&) = delete;

    /// RT: the levels of `samples` (one channel). No allocation, lock or log.
    TempoLevelBands compute(std::span<const float> samples) noexcept;

private:
    struct Transform;
    std::array<std::unique_ptr<Transform>, 11> transforms_; // index log2 of the size
};

} // namespace fq::metronome
