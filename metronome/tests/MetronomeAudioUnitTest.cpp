// The render unit, checked by sample arithmetic: clicks are single-sample impulses,
// so every non-zero output frame is the first frame of a click.

#include "fq/metronome/MetronomeAudioUnit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace fq::metronome {
namespace {

constexpr float tickLevel = 1.0f;
constexpr float tockLevel = 0.5f;

PcmBuffer impulse(float level, int channels = 2) {
    PcmBuffer buffer;
    buffer.channels.assign(static_cast<std::size_t>(channels), std::vector<float>{level});
    return buffer;
}

std::unique_ptr<MetronomeAudioUnit> makeUnit(double sampleRate = 44100) {
    auto unit = MetronomeAudioUnit::create();
    EXPECT_TRUE(unit) << unit.error().message;
    (*unit)->prepare(sampleRate, 4096);
    (*unit)->setClickBuffers(impulse(tickLevel), impulse(tockLevel));
    return std::move(*unit);
}

void start(MetronomeAudioUnit& unit) {
    unit.resetRenderState();
    unit.setShouldTriggerImmediately(true);
    unit.setIsProcessing(true);
}

struct Onset {
    std::int64_t frame;
    float level;
    friend bool operator==(const Onset&, const Onset&) = default;
};

/// Renders `frames` frames in blocks of `block` and lists every non-zero frame.
std::vector<Onset> onsets(MetronomeAudioUnit& unit, std::int64_t frames, int block,
                          std::int64_t first = 0) {
    std::vector<float> left(static_cast<std::size_t>(block)), right(left.size());
    std::vector<Onset> found;
    for (std::int64_t done = 0; done < frames; done += block) {
        const int count = static_cast<int>(std::min<std::int64_t>(block, frames - done));
        unit.renderBlock(count, left.data(), right.data());
        for (int i = 0; i < count; ++i)
            if (left[static_cast<std::size_t>(i)] != 0.0f)
                found.push_back({first + done + i, left[static_cast<std::size_t>(i)]});
    }
    return found;
}

TEST(MetronomeAudioUnitTest, ClicksStartOnExactFramesAt120) {
    for (const int block : {256, 1, 4096, 22050, 1000}) {
        SCOPED_TRACE(block);
        auto unit = makeUnit();
        start(*unit);
        EXPECT_EQ(onsets(*unit, 5 * 22050 + 1, block), (std::vector<Onset>{{0, tickLevel},
                                                                           {22050, tockLevel},
                                                                           {44100, tockLevel},
                                                                           {66150, tockLevel},
                                                                           {88200, tickLevel},
                                                                           {110250, tockLevel}}));
        EXPECT_EQ(unit->samplesPerSubdivision(), 22050.0);
    }
}

TEST(MetronomeAudioUnitTest, FractionalSubdivisionsStayWithinASampleForAnHour) {
    struct Case {
        float bpm;
        float subdivisions;
    };
    // tempos whose subdivisions are no whole number of samples
    const Case cases[] = {{97, 7}, {133.3f, 3}, {239.7f, 8}};
    const std::int64_t hour = 3600 * 44100;
    const int blocks[] = {1, 17, 256, 333, 4096, 64, 1023};
    std::vector<float> left(4096), right(4096);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bpm);
        auto unit = makeUnit();
        unit->bpmParameter.setValue(c.bpm);
        unit->subdivisionParameter.setValue(c.subdivisions);
        start(*unit);
        const double interval = 44100.0 * 60.0 / static_cast<double>(c.bpm) / c.subdivisions;
        std::int64_t clicks = 0, frame = 0;
        double worst = 0;
        for (std::size_t b = 0; frame < hour; ++b) {
            const int count = blocks[b % std::size(blocks)];
            unit->renderBlock(count, left.data(), right.data());
            for (int i = 0; i < count; ++i) {
                if (left[static_cast<std::size_t>(i)] == 0.0f) continue;
                // the ideal moment, computed afresh for each click from its number
                const double off =
                    static_cast<double>(frame + i) - static_cast<double>(clicks) * interval;
                worst = std::max(worst, std::abs(off));
                ASSERT_TRUE(off > -1e-6 && off < 1.0 + 1e-6)
                    << "click " << clicks << " at " << frame + i;
                ++clicks;
            }
            frame += count;
        }
        EXPECT_NEAR(static_cast<double>(clicks), std::ceil(static_cast<double>(frame) / interval),
                    1.0);
        EXPECT_LE(worst, 1.0 + 1e-6);
    }
}

TEST(MetronomeAudioUnitTest, MuteFreezesThePositionAndStopStartsAfresh) {
    auto unit = makeUnit();
    start(*unit);
    EXPECT_EQ(onsets(*unit, 30000, 256).size(), 2u); // 0 and 22050
    unit->muteParameter.setValue(1);
    EXPECT_TRUE(onsets(*unit, 50000, 256).empty());
    EXPECT_EQ(unit->beatIndex(), 2);
    unit->muteParameter.setValue(0.49f);
    // the position goes on from 30000 frames in: the next click 14100 frames later,
    // and no click at the moment of unmuting
    EXPECT_EQ(onsets(*unit, 40000, 100, 80000),
              (std::vector<Onset>{{80000 + 14100, tockLevel}, {80000 + 36150, tockLevel}}));

    unit->setIsProcessing(false);
    unit->resetRenderState();
    EXPECT_TRUE(onsets(*unit, 44100, 512).empty());
    start(*unit);
    EXPECT_EQ(onsets(*unit, 22051, 512), (std::vector<Onset>{{0, tickLevel}, {22050, tockLevel}}));
}

struct TickRecorder final : TickListener {
    std::vector<std::pair<int, int>> ticks;
    void onTick(int beat, int subdivision) noexcept override {
        ticks.emplace_back(beat, subdivision);
    }
};

TEST(MetronomeAudioUnitTest, AccentSoundAndTickRules) {
    struct Case {
        float accent;
        float sound;
        std::vector<float> levels; // per click, two bars of 3 beats, 2 subdivisions
    };
    const float t = tickLevel, o = tockLevel;
    const std::vector<Case> cases{
        {1, 0, {t, o, o, o, o, o, t, o, o, o, o, o}},
        {0.4f, 0, {o, o, o, o, o, o, o, o, o, o, o, o}},
        {1, 7, {t, o, o, o, o, o, t, o, o, o, o, o}}, // above 3: recorded clicks
    };
    for (const auto& c : cases) {
        auto unit = makeUnit();
        TickRecorder recorder;
        unit->setOnTick(&recorder);
        unit->accentParameter.setValue(c.accent);
        unit->soundParameter.setValue(c.sound);
        unit->beatsParameter.setValue(3.9f); // truncated to 3
        unit->subdivisionParameter.setValue(2);
        start(*unit);
        std::vector<float> levels;
        for (const auto& onset : onsets(*unit, 12 * 11025, 300))
            levels.push_back(onset.level);
        EXPECT_EQ(levels, c.levels) << c.accent << " " << c.sound;
        // each click is told with its beat and subdivision before they move
        ASSERT_GE(recorder.ticks.size(), 12u);
        EXPECT_EQ(recorder.ticks[5], std::make_pair(2, 1));
        EXPECT_EQ(recorder.ticks[6], std::make_pair(0, 0));
    }

    // without a tock the tick plays every click
    auto unit = makeUnit();
    unit->setClickBuffers(impulse(tickLevel), std::nullopt);
    start(*unit);
    EXPECT_EQ(onsets(*unit, 22051, 256), (std::vector<Onset>{{0, t}, {22050, t}}));

    // a one-channel click is played on both sides
    unit->setClickBuffers(impulse(0.25f, 1), impulse(0.25f, 1));
    start(*unit);
    std::vector<float> left(8), right(8);
    unit->renderBlock(8, left.data(), right.data());
    EXPECT_EQ(right[0], 0.25f);
}

TEST(MetronomeAudioUnitTest, SynthFrequencyAndLevelFollowTheClick) {
    // with the key at "F" (the default), f = 440 × 2^(-4/12) ≈ 349.2 Hz
    const double f = 440.0 * std::pow(2.0, -4.0 / 12.0);
    const double rate = 44100;
    for (const float accent : {1.0f, 0.0f}) {
        auto unit = makeUnit();
        unit->soundParameter.setValue(1);
        unit->accentParameter.setValue(accent);
        unit->beatsParameter.setValue(2);
        unit->subdivisionParameter.setValue(2);
        start(*unit);
        std::vector<float> left(11025), right(11025);
        // blocks of one subdivision: each ends just after the next click began
        unit->renderBlock(0, left.data(), right.data());
        std::vector<std::pair<double, float>> seen{{unit->phaseIncr(), unit->synthAmp()}};
        for (int i = 0; i < 4; ++i) {
            unit->renderBlock(11025, left.data(), right.data());
            seen.emplace_back(unit->phaseIncr(), unit->synthAmp());
        }
        const auto incr = [&](double frequency) { return frequency * 2 * std::numbers::pi / rate; };
        const std::vector<std::pair<double, float>> expected{
            {incr(accent > 0 ? 4 * f : 2 * f), accent > 0 ? 1.0f : 0.8f},
            {incr(1.5 * f), 0.7f},
            {incr(2 * f), 0.8f},
            {incr(1.5 * f), 0.7f},
            {incr(accent > 0 ? 4 * f : 2 * f), accent > 0 ? 1.0f : 0.8f},
        };
        ASSERT_EQ(seen.size(), expected.size());
        for (std::size_t i = 0; i < seen.size(); ++i) {
            EXPECT_NEAR(seen[i].first, expected[i].first, 1e-12) << accent << " click " << i;
            EXPECT_EQ(seen[i].second, expected[i].second) << accent << " click " << i;
        }
    }
    EXPECT_NEAR(2 * f, 698.46, 0.01);

    // a frequency beyond the rate's reach is limited to rate ÷ 2 - 100
    auto unit = makeUnit(4000);
    unit->soundParameter.setValue(2);
    unit->noteParameter.setValue(40); // clamped to 12, "E"
    start(*unit);
    std::vector<float> left(1), right(1);
    unit->renderBlock(1, left.data(), right.data());
    EXPECT_DOUBLE_EQ(unit->phaseIncr(), 1900 * 2 * std::numbers::pi / 4000);
}

TEST(MetronomeAudioUnitTest, SynthEnvelopeLengths) {
    struct Case {
        float bpm;
        float fadeMs;
        int total;
        int fade;
    };
    const Case cases[] = {
        {30, 2, 940, 88},   {120, 2, 760, 88},   {240, 5, 520, 220},
        {300, 5, 400, 200}, {120, 20, 760, 380}, // 882 asked, half the click given
        {120, 0, 760, 0},   {120, -3, 760, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.bpm << " BPM, " << c.fadeMs << " ms");
        auto unit = makeUnit();
        unit->soundParameter.setValue(3); // square: never zero while it sounds
        unit->bpmParameter.setValue(c.bpm);
        unit->fadeMsParameter.setValue(c.fadeMs);
        start(*unit);
        std::vector<float> left(1200), right(1200);
        unit->renderBlock(1200, left.data(), right.data());
        EXPECT_EQ(unit->envTotalSamples(), c.total);
        EXPECT_EQ(unit->envFadeInSamples(), c.fade);
        EXPECT_EQ(unit->envFadeOutSamples(), c.fade);
        // the click is exactly envTotalSamples long; with a fade it starts from zero
        const auto sounding =
            std::count_if(left.begin(), left.end(), [](float s) { return s != 0; });
        EXPECT_EQ(sounding, c.fade > 0 ? c.total - 1 : c.total);
        EXPECT_EQ(left[0] == 0.0f, c.fade > 0);
        if (c.fade == 0) {
            EXPECT_EQ(left[0], 1.0f); // accented square at full level, no ramp
            EXPECT_EQ(std::abs(left[static_cast<std::size_t>(c.total - 1)]), 1.0f);
        } else {
            EXPECT_FLOAT_EQ(left[1], 1.0f / static_cast<float>(c.fade));
        }
        EXPECT_EQ(right, left);
    }
}

// Loading the recordings.

TEST(ClickLoadingTest, ClicksKeepTheirLengthAndPitchAtTheDevicesRate) {
    const auto crossings = [](const std::vector<float>& samples) {
        int count = 0;
        for (std::size_t i = 1; i < samples.size(); ++i)
            count += (samples[i - 1] < 0) != (samples[i] < 0) ? 1 : 0;
        return count;
    };
    // recorded at 48 kHz, loaded at 44.1 kHz, played at the device's rate
    const auto recorded = *loadClick("tick");
    EXPECT_EQ(recorded.frameLength(), 2160u * 44100 / 48000);
    EXPECT_EQ(recorded.channels[0], recorded.channels[1]);
    for (const double rate : {48000.0, 96000.0}) {
        SCOPED_TRACE(rate);
        auto unit = *MetronomeAudioUnit::create();
        unit->prepare(rate, 4096);
        const auto& played = *unit->tickPCMBuffer();
        // the same time in seconds, and as many swings of the waveform: the same pitch
        EXPECT_NEAR(static_cast<double>(played.frameLength()) / rate,
                    static_cast<double>(recorded.frameLength()) / 44100, 2 / rate);
        EXPECT_NEAR(crossings(played.channels[0]), crossings(recorded.channels[0]),
                    crossings(recorded.channels[0]) / 20 + 2);
    }
}

TEST(ClickLoadingTest, ABrokenClickFailsTheUnit) {
    const auto broken = MetronomeAudioUnit::create(
        [](std::string_view) -> std::optional<std::string_view> { return "RIFF but not a wave"; });
    ASSERT_FALSE(broken);
    EXPECT_EQ(broken.error().message.rfind("Cannot read tick.wav: ", 0), 0u)
        << broken.error().message;
}

} // namespace
} // namespace fq::metronome
