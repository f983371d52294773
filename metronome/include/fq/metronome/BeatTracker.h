#pragma once

// Rhythm analysis of captured audio: the tracker's contract and the program's aubio tracker.

#include <fq/core/Error.h>

#include <tl/expected.hpp>

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace fq::metronome {

/// A read-only block of captured audio: the first channel of what the input gave.
struct TempoBuffer {
    std::vector<float> samples;
    double sampleRate = 44100.0;

    std::size_t frames() const { return samples.size(); }
    double duration() const {
        return sampleRate > 0 ? static_cast<double>(samples.size()) / sampleRate : 0.0;
    }
};
using SharedTempoBuffer = std::shared_ptr<const TempoBuffer>;

/// What rhythm analysis found: a tempo if it found one, and the beats it placed,
/// in seconds from the first sample of the first buffer.
struct RhythmResult {
    std::optional<float> beatsPerMinute;
    std::vector<double> beats;
};

/// The outcome of one analysis: no rhythm at all when nothing could be heard.
struct MusicAnalysis {
    std::optional<RhythmResult> rhythm;
};

/// Rhythm analysis of a finite stream of buffers, oldest first. The buffers share
/// one sample rate. Errors are the tracker's own failures, not a lack of beat.
///
/// Threads: one analysis at a time per tracker, on any thread.
class BeatTracker {
public:
    virtual ~BeatTracker() = default;
    virtual tl::expected<MusicAnalysis, Error>
    analyze(std::span<const SharedTempoBuffer> buffers) = 0;
};

namespace config {
/// Analysis frame and hop of the onset function, at 44.1 kHz (scaled with the rate).
inline constexpr unsigned beatTrackerWindow = 1024;
inline constexpr unsigned beatTrackerHop = 512;
/// The onset function chosen by measurement on recorded drums (see the tempo bench).
inline constexpr const char* beatTrackerOnsetMethod = "specflux";
/// Evidence of a beat, in an onset function of long windows (summed rises of log-magnitude):
/// the strongest onsets (its top percent) reach at least this...
inline constexpr double leastOnsetStrength = 0.5;
/// ...and stand this many times above its median, the noise floor...
inline constexpr double leastOnsetContrast = 1.5;
/// ...and the onset function repeats at the beat's period at least this well (its
/// normalised autocorrelation there: 1 for a perfectly regular pulse, near 0 for noise).
inline constexpr double leastPeriodicity = 0.08;
} // namespace config

/// How the aubio tracker is tuned. The defaults are the program's choice; the bench
/// varies them to compare.
struct AubioBeatTrackerOptions {
    std::string onsetMethod = config::beatTrackerOnsetMethod;
    /// Adds an inaudible dither to hops of exact digital silence, which aubio
    /// otherwise treats as "no beat here" and uses to drop predicted beats.
    bool ditherSilentHops = true;
    /// Checks whether the beats sit on the off-beat (halfway between the strongest
    /// onsets) and moves them by half a period when they do.
    bool correctOffBeat = true;
    /// Chooses between the tracked period and its double or half by how strongly
    /// the onsets repeat at each (see chooseMetricalLevel in the source).
    bool correctOctave = true;
    /// Tempo from the median spacing of the beats (true) or aubio's own estimate.
    bool tempoFromBeatSpacing = true;
    /// Analyses audio of 32 kHz and above at half its rate.
    bool halveRate = true;
    /// Reports no rhythm unless there is evidence of a beat (see config above): aubio
    /// places beats in silence, noise and a steady hum as readily as in music.
    bool requireEvidence = true;
};

/// How clearly a window shows a beat, from its onset function.
struct BeatEvidence {
    /// The top percent of the onset function over its median.
    double onsetContrast = 0;
    /// Normalised autocorrelation of the onset function at the beat's period.
    double periodicity = 0;

    bool convincing() const {
        return onsetContrast >= config::leastOnsetContrast &&
               periodicity >= config::leastPeriodicity;
    }
};

/// The evidence in an onset function of hops `hopSeconds` apart, for a beat every
/// `periodSeconds` (searched within 4% of it and of twice it, where a bar may repeat
/// more clearly than its beats).
BeatEvidence beatEvidence(std::span<const float> onsets, double hopSeconds, double periodSeconds);

/// The program's beat tracker: aubio's `aubio_tempo` run over the whole window,
/// with the tempo taken from the median beat spacing (aubio's own estimate reads
/// about 1% high) and the workarounds of the options above.
class AubioBeatTracker final : public BeatTracker {
public:
    explicit AubioBeatTracker(AubioBeatTrackerOptions options = {});
    tl::expected<MusicAnalysis, Error> analyze(std::span<const SharedTempoBuffer> buffers) override;

private:
    AubioBeatTrackerOptions options_;
};

/// The median of the spacings of neighbouring beats, as beats per minute; none with
/// fewer than two beats.
std::optional<double> tempoFromBeats(std::span<const double> beats);

} // namespace fq::metronome
