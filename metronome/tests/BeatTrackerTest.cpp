// The beat tracker against audio whose beat (or lack of one) is known, and the level bands.

#include "fq/metronome/BeatTracker.h"

#include "fq/metronome/TempoLevels.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <numbers>
#include <random>
#include <string>

namespace fq::metronome {
namespace {

constexpr double rate = 44100.0;

/// Clicks at `bpm`: a short decaying noise burst on every beat, accented on each
/// `accentEvery`-th, exact digital silence between them.
std::vector<float> clickTrack(double bpm, double seconds, int accentEvery = 4,
                              double offset = 0.1) {
    std::vector<float> audio(static_cast<std::size_t>(seconds * rate), 0.0f);
    std::mt19937 random(7);
    std::uniform_real_distribution<float> noise(-1.0f, 1.0f);
    const double period = 60.0 / bpm;
    int beat = 0;
    for (double t = offset; t < seconds; t += period, ++beat) {
        const float gain = beat % accentEvery == 0 ? 0.8f : 0.4f;
        const auto start = static_cast<std::size_t>(std::lround(t * rate));
        for (std::size_t i = 0; i < 1500 && start + i < audio.size(); ++i)
            audio[start + i] = gain * noise(random) * std::exp(-static_cast<float>(i) / 250.0f);
    }
    return audio;
}

/// Whole buffers of 4096 frames, as the detector's window holds them.
std::vector<SharedTempoBuffer> buffersOf(const std::vector<float>& audio) {
    std::vector<SharedTempoBuffer> buffers;
    for (std::size_t at = 0; at + 4096 <= audio.size(); at += 4096)
        buffers.push_back(std::make_shared<TempoBuffer>(TempoBuffer{
            {audio.begin() + static_cast<long>(at), audio.begin() + static_cast<long>(at + 4096)},
            rate}));
    return buffers;
}

TEST(TempoFromBeats, IsTheMedianSpacing) {
    struct Case {
        std::vector<double> beats;
        std::optional<double> bpm;
    };
    const std::vector<Case> cases{
        {{}, std::nullopt},
        {{1.0}, std::nullopt},
        {{0.0, 0.5}, 120.0},
        // one dropped beat and one early one do not move the median
        {{0.0, 0.5, 1.0, 2.0, 2.4, 3.0, 3.5}, 120.0},
        // an even count of spacings averages the middle two: 0.5 and 0.6
        {{0.0, 0.5, 1.1, 1.6, 2.2}, 60.0 / 0.55},
        {{2.0, 2.0}, std::nullopt},
    };
    for (const auto& c : cases) {
        const auto bpm = tempoFromBeats(c.beats);
        ASSERT_EQ(bpm.has_value(), c.bpm.has_value());
        if (bpm) {
            EXPECT_NEAR(*bpm, *c.bpm, 1e-9);
        }
    }
}

TEST(AubioBeatTracker, FindsTheTempoOfClicksAcrossTheRange) {
    AubioBeatTracker tracker;
    for (const double bpm : {60.0, 90.0, 120.0, 150.0, 200.0}) {
        SCOPED_TRACE(bpm);
        const auto result = tracker.analyze(buffersOf(clickTrack(bpm, 12.0)));
        ASSERT_TRUE(result);
        ASSERT_TRUE(result->rhythm && result->rhythm->beatsPerMinute);
        EXPECT_NEAR(*result->rhythm->beatsPerMinute, bpm, bpm * 0.002);
        EXPECT_GT(result->rhythm->beats.size(), 4u);
        // beats fall on the clicks, within a hop and a half
        const double period = 60.0 / bpm;
        for (const double beat : result->rhythm->beats) {
            const double phase = std::fmod(beat - 0.1 + period, period);
            EXPECT_LT(std::min(phase, period - phase), 0.03) << beat;
        }
    }
}

TEST(AubioBeatTracker, KeepsBeatsThatFallOnDigitalSilence) {
    // Sparse clicks at 60 BPM: aubio's predicted beats often land on exact zeros.
    const auto buffers = buffersOf(clickTrack(60.0, 12.0));
    AubioBeatTrackerOptions plain;
    plain.ditherSilentHops = false;
    plain.correctOctave = false;
    AubioBeatTrackerOptions dithered = plain;
    dithered.ditherSilentHops = true;
    const auto without = AubioBeatTracker(plain).analyze(buffers);
    const auto with = AubioBeatTracker(dithered).analyze(buffers);
    ASSERT_TRUE(without && with && with->rhythm);
    const auto count = [](const auto& result) {
        return result->rhythm ? result->rhythm->beats.size() : 0u;
    };
    EXPECT_GE(count(with), count(without));
    EXPECT_GE(count(with), 8u);
}

/// Audio with no beat in it: what a quiet room, a hum or hiss gives the tracker.
std::vector<float> withoutBeat(const std::string& kind, double seconds) {
    std::vector<float> audio(static_cast<std::size_t>(seconds * rate), 0.0f);
    std::mt19937 random(11);
    std::normal_distribution<float> noise(0.0f, 1.0f);
    for (std::size_t i = 0; i < audio.size(); ++i) {
        const double t = static_cast<double>(i) / rate;
        if (kind == "white noise") audio[i] = 0.3f * noise(random);
        // mains hum as a 16-bit recording has it, with its dither
        if (kind == "hum")
            audio[i] = static_cast<float>(0.5 * std::sin(2 * std::numbers::pi * 60 * t) +
                                          0.1 * std::sin(2 * std::numbers::pi * 180 * t)) +
                       3e-5f * noise(random);
        if (kind == "quiet room") audio[i] = 0.002f * noise(random);
    }
    // a door closing in the quiet room: one thump is no beat
    if (kind == "quiet room")
        for (std::size_t i = 0; i < 3000; ++i)
            audio[static_cast<std::size_t>(4.3 * rate) + i] +=
                0.5f * noise(random) * std::exp(-static_cast<float>(i) / 400.0f);
    return audio;
}

TEST(AubioBeatTracker, HearsNoTempoWithoutABeat) {
    AubioBeatTracker tracker;
    EXPECT_FALSE(tracker.analyze({}).value().rhythm);
    for (const std::string kind : {"silence", "white noise", "hum", "quiet room"}) {
        SCOPED_TRACE(kind);
        for (const double seconds : {6.1, 12.0}) {
            const auto result = tracker.analyze(buffersOf(withoutBeat(kind, seconds)));
            ASSERT_TRUE(result);
            EXPECT_FALSE(result->rhythm && result->rhythm->beatsPerMinute &&
                         result->rhythm->beats.size() >= 4)
                << *result->rhythm->beatsPerMinute;
        }
    }
    // the same gate lets a beat through the hiss
    auto clicks = clickTrack(100, 12.0);
    const auto hiss = withoutBeat("white noise", 12.0);
    for (std::size_t i = 0; i < clicks.size(); ++i)
        clicks[i] += 0.1f * hiss[i];
    const auto heard = tracker.analyze(buffersOf(clicks));
    ASSERT_TRUE(heard && heard->rhythm && heard->rhythm->beatsPerMinute);
    EXPECT_NEAR(*heard->rhythm->beatsPerMinute, 100, 1);
    AubioBeatTracker unknown({.onsetMethod = "no-such-method"});
    EXPECT_FALSE(unknown.analyze(buffersOf(clickTrack(120, 2))));
}

// The level display.

std::vector<float> sine(double frequency, float amplitude, std::size_t frames) {
    std::vector<float> samples(frames);
    for (std::size_t i = 0; i < frames; ++i)
        samples[i] = amplitude * static_cast<float>(std::sin(2 * std::numbers::pi * frequency *
                                                             static_cast<double>(i) / rate));
    return samples;
}

TEST(TempoLevels, BandsFollowTheTransformSize) {
    TempoLevels levels;
    struct Case {
        std::size_t frames;
        int bandsWithBins; // the rest read 0.05
    };
    // 4096 frames use 1024 (21 bins a band); 100 use 64 (32 bins, 1 a band)
    for (const Case c :
         {Case{4096, 24}, Case{1024, 24}, Case{100, 24}, Case{40, 16}, Case{1, 0}, Case{0, 0}}) {
        SCOPED_TRACE(c.frames);
        const auto silent = levels.compute(std::vector<float>(c.frames, 0.0f));
        for (int band = 0; band < 24; ++band)
            EXPECT_FLOAT_EQ(silent[static_cast<std::size_t>(band)],
                            band < c.bandsWithBins ? 0.0f : 0.05f)
                << band;
    }
}

TEST(TempoLevels, ASineLightsItsOwnBand) {
    TempoLevels levels;
    // bin 115 of 1024 lies in band 5 (bins 105…125); with the unit-power Hann window
    // its magnitude is A·s·N/2 and each neighbour's half that, so the band's mean is
    // A·s·N/21, with s = sqrt(8/3)
    const double s = std::sqrt(8.0 / 3.0);
    for (const float amplitude : {0.0005f, 0.001f, 0.01f}) {
        SCOPED_TRACE(amplitude);
        const auto bands = levels.compute(sine(115 * rate / 1024, amplitude, 4096));
        const double mean = amplitude * s * 1024 / 21;
        EXPECT_NEAR(bands[5], std::min(std::log10(mean * 28 + 1), 1.0), 1e-3);
        for (std::size_t band = 0; band < 24; ++band)
            if (band != 5) {
                EXPECT_LT(bands[band], 0.01f) << band;
            }
    }
}

} // namespace
} // namespace fq::metronome
