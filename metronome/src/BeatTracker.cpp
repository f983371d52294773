// The program's beat tracker: aubio's tempo tracking, its octave and off-beat corrections,
// and the evidence a window must show before its beat is believed.

#include "fq/metronome/BeatTracker.h"

#include <aubio/aubio.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>

namespace fq::metronome {
namespace {

// aubio's C objects, each released by its own deleter.
struct TempoDeleter {
    void operator()(aubio_tempo_t* tempo) const { del_aubio_tempo(tempo); }
};
struct PvocDeleter {
    void operator()(aubio_pvoc_t* pvoc) const { del_aubio_pvoc(pvoc); }
};
struct SpecdescDeleter {
    void operator()(aubio_specdesc_t* specdesc) const { del_aubio_specdesc(specdesc); }
};
struct FvecDeleter {
    void operator()(fvec_t* vector) const { del_fvec(vector); }
};
struct CvecDeleter {
    void operator()(cvec_t* vector) const { del_cvec(vector); }
};

/// Below any level a microphone or a file with sound in it reaches: with this, a
/// hop counts as silent only when it is exact digital silence, which the dither
/// takes away.
constexpr smpl_t silenceThresholdDb = -200.0f;
/// About -140 dB: far below hearing, far above the threshold above.
constexpr float ditherAmplitude = 1e-7f;
/// The top of the band whose onsets mark the beat: kick, snare, a strum's body;
/// the hi-hat lies above it.
constexpr double lowBandTop = 400.0;
/// Midpoints must be this much stronger than the beats before the beats move.
constexpr double offBeatRatio = 1.5;
/// The full band's flux only refines the period: every fourth bin measures it as
/// well as all of them (the bench compares), at a quarter of the logarithms.
constexpr std::size_t fullBandStride = 4;
/// The gate's onset function uses a window this many hops long: a steady tone's magnitude
/// then holds still from hop to hop (with a short window a hum and its mirror image
/// overlap, and its spectrum wobbles with its phase as if it had onsets)...
constexpr unsigned gateWindowHops = 8;
/// ...and starts above the lowest bins, which the window's own shape fills.
constexpr double gateBandBottom = 40.0;
/// Every second bin of the gate's band measures it well enough.
constexpr std::size_t gateBandStride = 2;
/// How much an onset halfway between two beats counts towards a grid: an eighth-note
/// kick belongs to a quarter-note beat, but a quarter-note snare is no offbeat of a
/// half-note one.
constexpr double halfPointCredit = 0.5;

/// A hop size near 512 frames at 44.1 kHz for any rate, and a window twice that.
unsigned hopFor(double sampleRate) {
    const double scaled = config::beatTrackerHop * sampleRate / 44100.0;
    unsigned hop = 64;
    while (hop * 2 <= scaled * 1.5)
        hop *= 2;
    return hop;
}

/// A clear onset of the low band (kick, snare, the body of a strum): where the
/// onset function peaks, at a time refined between hops.
struct Event {
    double time;
    double strength;
};

/// The peaks of the low band's flux that stand out from the rest.
std::vector<Event> lowEvents(const std::vector<float>& flux, double hopSeconds, double latency) {
    std::vector<Event> events;
    if (flux.size() < 5) return events;
    std::vector<float> sorted = flux;
    std::sort(sorted.begin(), sorted.end());
    const double loudest = sorted.back();
    const double typical = sorted[sorted.size() / 2];
    const double threshold = std::max(typical * 3.0, loudest * 0.12);
    if (loudest <= 0) return events;
    for (std::size_t i = 2; i + 2 < flux.size(); ++i) {
        const double value = flux[i];
        if (value < threshold) continue;
        if (value < flux[i - 1] || value < flux[i - 2] || value <= flux[i + 1] ||
            value <= flux[i + 2])
            continue;
        // the vertex of the parabola through the peak and its neighbours
        const double before = flux[i - 1];
        const double after = flux[i + 1];
        const double curvature = before - 2 * value + after;
        const double shift = curvature < 0 ? 0.5 * (before - after) / curvature : 0.0;
        events.push_back({(static_cast<double>(i) + shift) * hopSeconds - latency, value});
    }
    return events;
}

struct Grid {
    double anchor = 0;
    double period = 0;
    double score = -1;
};

/// How well a grid of beats explains the low onsets: the share of their strength
/// that falls on the grid (half of it for an onset halfway between two points), times
/// the share of the grid's points that an onset fills. The true beat has both high;
/// its double leaves every other point empty, and its half leaves the backbeat and
/// the syncopated kick off the grid.
Grid bestGrid(const std::vector<Event>& events, double period, double tolerance) {
    Grid best;
    if (events.size() < 2) return best;
    double total = 0;
    for (const auto& event : events)
        total += event.strength;
    // a point counts as filled in proportion to its onset's strength, up to that of
    // a typical hit: the hi-hat's faint echo in the low band fills little
    std::vector<double> strengths;
    for (const auto& event : events)
        strengths.push_back(event.strength);
    std::sort(strengths.begin(), strengths.end(), std::greater<>());
    double typical = 0;
    const std::size_t strongHalf = (strengths.size() + 1) / 2;
    for (std::size_t i = 0; i < strongHalf; ++i)
        typical += strengths[i] / static_cast<double>(strongHalf);
    const double first = events.front().time;
    const double last = events.back().time;
    for (const auto& anchor : events) {
        double onGrid = 0;
        for (const auto& event : events) {
            const double steps = (event.time - anchor.time) / period;
            const double offset = std::abs(steps - std::round(steps)) * period;
            if (offset <= tolerance)
                onGrid += event.strength;
            else if (std::abs(offset - period / 2) <= tolerance)
                onGrid += halfPointCredit * event.strength;
        }
        // the grid's points over the span of the onsets, and those an onset fills
        const auto firstPoint =
            static_cast<long>(std::ceil((first - anchor.time - tolerance) / period));
        const auto lastPoint =
            static_cast<long>(std::floor((last - anchor.time + tolerance) / period));
        long points = 0;
        double filled = 0;
        std::size_t at = 0;
        for (long k = firstPoint; k <= lastPoint; ++k) {
            ++points;
            const double t = anchor.time + static_cast<double>(k) * period;
            while (at < events.size() && events[at].time < t - tolerance)
                ++at;
            if (at < events.size() && std::abs(events[at].time - t) <= tolerance)
                filled += std::min(1.0, events[at].strength / typical);
        }
        if (points == 0) continue;
        const double score = onGrid / total * filled / static_cast<double>(points);
        if (score > best.score) best = {anchor.time, period, score};
    }
    return best;
}

/// aubio's tracker keeps to periods near half a second: a slow groove comes out at
/// twice or three times its tempo, a fast one at half. Among the tracked period and
/// its simple multiples, the beat is the one whose grid best explains the low onsets;
/// the tracked period wins a near tie.
std::optional<Grid> chooseMetricalLevel(double period, const std::vector<Event>& events,
                                        double tolerance) {
    constexpr double factors[] = {1.0, 2.0, 0.5, 3.0, 1.0 / 3.0, 1.5, 2.0 / 3.0};
    std::optional<Grid> chosen;
    for (const double factor : factors) {
        const double candidate = period * factor;
        const double bpm = 60.0 / candidate;
        if (bpm < 35 || bpm > 260) continue;
        auto grid = bestGrid(events, candidate, tolerance);
        if (factor != 1.0) grid.score *= 0.95;
        if (!chosen || grid.score > chosen->score) chosen = grid;
    }
    if (chosen && chosen->score <= 0) return std::nullopt;
    return chosen;
}

/// The autocorrelation of the flux at a lag of `lag` hops, interpolated between hops.
double autocorrelation(const std::vector<float>& flux, double lag) {
    const auto whole = static_cast<std::size_t>(lag);
    const double part = lag - static_cast<double>(whole);
    if (whole + 1 >= flux.size()) return 0;
    double at = 0;
    double next = 0;
    for (std::size_t i = 0; i + whole + 1 < flux.size(); ++i) {
        at += static_cast<double>(flux[i]) * flux[i + whole];
        next += static_cast<double>(flux[i]) * flux[i + whole + 1];
    }
    return (1 - part) * at + part * next;
}

/// aubio's period is a whole number of its own analysis steps and reads a little
/// short; the flux repeats best at the true period. Measured over several periods at
/// once for precision, within 4% of the tracked one.
double refinePeriod(double period, const std::vector<float>& flux, double hopSeconds) {
    const double span = static_cast<double>(flux.size()) * hopSeconds;
    int multiple = 4;
    while (multiple > 1 && multiple * period > span / 2)
        --multiple;
    const double centre = multiple * period / hopSeconds;
    double bestLag = centre;
    double best = -1;
    for (double lag = centre * 0.96; lag <= centre * 1.04; lag += 0.25) {
        const double value = autocorrelation(flux, lag);
        if (value > best) {
            best = value;
            bestLag = lag;
        }
    }
    return bestLag * hopSeconds / multiple;
}

/// The grid through the onsets it meets, by least squares over their beat numbers.
Grid fitGrid(const Grid& grid, const std::vector<Event>& events, double tolerance) {
    double n = 0, sumK = 0, sumT = 0, sumKK = 0, sumKT = 0;
    for (const auto& event : events) {
        const double k = std::round((event.time - grid.anchor) / grid.period);
        const double expected = grid.anchor + k * grid.period;
        if (std::abs(event.time - expected) > tolerance) continue;
        n += 1;
        sumK += k;
        sumT += event.time;
        sumKK += k * k;
        sumKT += k * event.time;
    }
    const double denominator = n * sumKK - sumK * sumK;
    if (n < 3 || denominator <= 0) return grid;
    Grid fitted = grid;
    fitted.period = (n * sumKT - sumK * sumT) / denominator;
    fitted.anchor = (sumT - fitted.period * sumK) / n;
    if (!(fitted.period > grid.period * 0.97 && fitted.period < grid.period * 1.03)) return grid;
    return fitted;
}

/// The grid's beats over [0, end). They sit on the least-squares line through the
/// onsets rather than on each onset, whose times carry the hop's coarseness: their
/// spacing, and so the tempo, is the fitted period.
std::vector<double> beatsOnGrid(const Grid& grid, double end) {
    std::vector<double> beats;
    const double start = grid.anchor - std::floor(grid.anchor / grid.period) * grid.period;
    for (long k = 0;; ++k) {
        const double beat = start + static_cast<double>(k) * grid.period;
        if (beat >= end) break;
        if (beat >= 0) beats.push_back(beat);
    }
    return beats;
}

/// The strongest low onset within `tolerance` of `time`, or 0.
double strengthNear(const std::vector<Event>& events, double time, double tolerance) {
    double strongest = 0;
    for (const auto& event : events)
        if (std::abs(event.time - time) <= tolerance)
            strongest = std::max(strongest, event.strength);
    return strongest;
}

/// Moves beats that sit on the off-beat to the beat: where the onsets halfway
/// between the beats are clearly stronger than at the beats themselves.
void correctOffBeat(std::vector<double>& beats, double period, const std::vector<Event>& events,
                    double tolerance, double end) {
    if (beats.size() < 2) return;
    double onBeat = 0;
    double offBeat = 0;
    for (const double beat : beats) {
        onBeat += strengthNear(events, beat, tolerance);
        offBeat += strengthNear(events, beat + period / 2, tolerance);
    }
    if (offBeat <= offBeatRatio * onBeat) return;
    for (double& beat : beats)
        beat += period / 2;
    while (!beats.empty() && beats.back() >= end)
        beats.pop_back();
}

/// The normalised autocorrelation of `centred` at `lag` hops, interpolated between hops.
double normalisedAutocorrelation(const std::vector<double>& centred, double lag, double energy) {
    const auto whole = static_cast<std::size_t>(lag);
    const double part = lag - static_cast<double>(whole);
    if (whole + 1 >= centred.size() || energy <= 0) return 0;
    double at = 0;
    double next = 0;
    for (std::size_t i = 0; i + whole + 1 < centred.size(); ++i) {
        at += centred[i] * centred[i + whole];
        next += centred[i] * centred[i + whole + 1];
    }
    // scaled to the overlap, so that a long lag is not penalised for its shorter sum
    const double overlap = static_cast<double>(centred.size() - whole - 1);
    return ((1 - part) * at + part * next) / overlap /
           (energy / static_cast<double>(centred.size()));
}

} // namespace

BeatEvidence beatEvidence(std::span<const float> onsets, double hopSeconds, double periodSeconds) {
    BeatEvidence evidence;
    if (onsets.size() < 8 || !(hopSeconds > 0) || !(periodSeconds > 0)) return evidence;
    std::vector<float> sorted(onsets.begin(), onsets.end());
    std::sort(sorted.begin(), sorted.end());
    const double median = sorted[sorted.size() / 2];
    const double top = sorted[sorted.size() - 1 - sorted.size() / 100];
    // the faintest beat still raises many bins by a large step of the log scale at once
    if (top < config::leastOnsetStrength) return evidence;
    constexpr double quietest = 1e-3;
    evidence.onsetContrast = top / std::max(median, quietest);

    double mean = 0;
    for (const float value : onsets)
        mean += value;
    mean /= static_cast<double>(onsets.size());
    std::vector<double> centred;
    centred.reserve(onsets.size());
    double energy = 0;
    for (const float value : onsets) {
        centred.push_back(value - mean);
        energy += centred.back() * centred.back();
    }
    // at the beat's period, or at twice it where a bar's pattern repeats more clearly
    for (const double lag : {periodSeconds / hopSeconds, 2 * periodSeconds / hopSeconds}) {
        if (lag > static_cast<double>(onsets.size()) / 2) break;
        for (double candidate = lag * 0.96; candidate <= lag * 1.04; candidate += 0.25)
            evidence.periodicity = std::max(evidence.periodicity,
                                            normalisedAutocorrelation(centred, candidate, energy));
    }
    return evidence;
}

std::optional<double> tempoFromBeats(std::span<const double> beats) {
    if (beats.size() < 2) return std::nullopt;
    std::vector<double> spacings;
    spacings.reserve(beats.size() - 1);
    for (std::size_t i = 1; i < beats.size(); ++i)
        spacings.push_back(beats[i] - beats[i - 1]);
    const auto middle = spacings.begin() + static_cast<long>(spacings.size() / 2);
    std::nth_element(spacings.begin(), middle, spacings.end());
    double median = *middle;
    if (spacings.size() % 2 == 0) {
        const double below = *std::max_element(spacings.begin(), middle);
        median = (median + below) / 2;
    }
    if (median <= 0) return std::nullopt;
    return 60.0 / median;
}

AubioBeatTracker::AubioBeatTracker(AubioBeatTrackerOptions options)
    : options_(std::move(options)) {}

tl::expected<MusicAnalysis, Error>
AubioBeatTracker::analyze(std::span<const SharedTempoBuffer> buffers) {
    if (buffers.empty()) return MusicAnalysis{};
    const double sampleRate = buffers.front()->sampleRate;
    if (!(sampleRate > 0)) return tl::unexpected(Error{"The audio has no sample rate"});
    // every second sample of a pairwise mean: what marks a beat lies well below a
    // quarter of the rate, and both transforms cost half as much
    const bool halve = options_.halveRate && sampleRate >= 32000;
    const double analysisRate = halve ? sampleRate / 2 : sampleRate;
    const unsigned hop = hopFor(analysisRate);
    const unsigned window = 2 * hop;
    const auto rate = static_cast<uint_t>(std::lround(analysisRate));

    std::unique_ptr<aubio_tempo_t, TempoDeleter> tempo(
        new_aubio_tempo(options_.onsetMethod.c_str(), window, hop, rate));
    std::unique_ptr<aubio_pvoc_t, PvocDeleter> pvoc(new_aubio_pvoc(window, hop));
    std::unique_ptr<fvec_t, FvecDeleter> input(new_fvec(hop));
    std::unique_ptr<fvec_t, FvecDeleter> output(new_fvec(2));
    std::unique_ptr<cvec_t, CvecDeleter> grain(new_cvec(window));
    const unsigned gateWindow = gateWindowHops * hop;
    std::unique_ptr<aubio_pvoc_t, PvocDeleter> gatePvoc(new_aubio_pvoc(gateWindow, hop));
    std::unique_ptr<cvec_t, CvecDeleter> gateGrain(new_cvec(gateWindow));
    if (!tempo || !pvoc || !input || !output || !grain || !gatePvoc || !gateGrain)
        return tl::unexpected(
            Error{"The beat tracker cannot use the onset method " + options_.onsetMethod});
    if (options_.ditherSilentHops) aubio_tempo_set_silence(tempo.get(), silenceThresholdDb);

    // the low band's flux, on a log scale so that quiet and loud hits count alike
    const auto lowBins = static_cast<std::size_t>(lowBandTop * window / analysisRate);
    std::vector<float> previous(lowBins, 0.0f);
    std::vector<float> flux;
    std::vector<float> fullFlux;
    std::vector<float> previousFull(window / 2 + 1, 0.0f);
    const auto gateBins = std::max<std::size_t>(
        1, static_cast<std::size_t>(std::ceil(gateBandBottom * gateWindow / analysisRate)));
    std::vector<float> gateFlux;
    std::vector<float> previousGate(gateWindow / 2 + 1, 0.0f);
    std::vector<double> beats;
    std::uint32_t noise = 0x12345678u; // a fixed seed: the same audio gives the same beats
    std::size_t filled = 0;
    std::size_t totalFrames = 0;
    const auto runHop = [&] {
        if (options_.ditherSilentHops &&
            std::all_of(input->data, input->data + hop, [](smpl_t value) { return value == 0; }))
            for (unsigned i = 0; i < hop; ++i) {
                noise = noise * 1664525u + 1013904223u;
                input->data[i] =
                    ditherAmplitude * (static_cast<float>(noise >> 8) / 8388608.0f - 1.0f);
            }
        aubio_tempo_do(tempo.get(), input.get(), output.get());
        if (output->data[0] != 0) beats.push_back(aubio_tempo_get_last_s(tempo.get()));
        aubio_pvoc_do(pvoc.get(), input.get(), grain.get());
        float sum = 0;
        for (std::size_t k = 1; k < lowBins; ++k) {
            const float level = std::log1p(100.0f * grain->norm[k]);
            sum += std::max(0.0f, level - previous[k]);
            previous[k] = level;
        }
        flux.push_back(sum);
        float all = 0;
        for (std::size_t k = 1; k < previousFull.size(); k += fullBandStride) {
            const float level = std::log1p(100.0f * grain->norm[k]);
            all += std::max(0.0f, level - previousFull[k]);
            previousFull[k] = level;
        }
        fullFlux.push_back(all);
        float gate = 0;
        aubio_pvoc_do(gatePvoc.get(), input.get(), gateGrain.get());
        for (std::size_t k = gateBins; k < previousGate.size(); k += gateBandStride) {
            const float level = std::log1p(100.0f * gateGrain->norm[k]);
            gate += std::max(0.0f, level - previousGate[k]);
            previousGate[k] = level;
        }
        gateFlux.push_back(gate);
        filled = 0;
    };
    float pairSum = 0;
    bool pairOpen = false;
    for (const auto& buffer : buffers) {
        for (const float sample : buffer->samples) {
            if (halve) {
                pairOpen = !pairOpen;
                pairSum += sample;
                if (pairOpen) continue;
                input->data[filled++] = 0.5f * pairSum;
                pairSum = 0;
            } else {
                input->data[filled++] = sample;
            }
            if (filled == hop) runHop();
        }
        totalFrames += buffer->frames();
    }
    const double end = static_cast<double>(totalFrames) / sampleRate;
    beats.erase(std::remove_if(beats.begin(), beats.end(),
                               [&](double beat) { return beat < 0 || beat >= end; }),
                beats.end());

    RhythmResult rhythm;
    const auto spacing = tempoFromBeats(beats);
    const double aubioBpm = aubio_tempo_get_bpm(tempo.get());
    std::optional<double> bpm = options_.tempoFromBeatSpacing
                                    ? spacing
                                    : (aubioBpm > 0 ? std::optional(aubioBpm) : std::nullopt);
    if (bpm && options_.tempoFromBeatSpacing) {
        const double hopSeconds = hop / analysisRate;
        // the frame a hop's flux describes ends with the hop; a hit shows most near its middle
        const double latency = (window - hop / 2.0) / analysisRate;
        const auto events = lowEvents(flux, hopSeconds, latency);
        const double tolerance = 2.5 * hopSeconds;
        const double period = refinePeriod(60.0 / *bpm, fullFlux, hopSeconds);
        std::optional<Grid> grid;
        if (options_.correctOctave) grid = chooseMetricalLevel(period, events, tolerance);
        if (grid) {
            grid = fitGrid(*grid, events, tolerance);
            // the fitted grid's beats: their spacing gives the tempo
            beats = beatsOnGrid(*grid, end);
            if (const auto refined = tempoFromBeats(beats)) bpm = refined;
        } else if (options_.correctOffBeat) {
            correctOffBeat(beats, period, events, tolerance, end);
        }
    }
    if (bpm && options_.requireEvidence) {
        const double hopSeconds = hop / analysisRate;
        // in the long window's onsets, where a steady hum holds still
        if (!beatEvidence(gateFlux, hopSeconds, 60.0 / *bpm).convincing()) return MusicAnalysis{};
    }
    if (bpm) rhythm.beatsPerMinute = static_cast<float>(*bpm);
    rhythm.beats = std::move(beats);
    return MusicAnalysis{std::move(rhythm)};
}

} // namespace fq::metronome
