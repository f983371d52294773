// The render step of the click generator, on plain float buffers.

#include "fq/metronome/MetronomeAudioUnit.h"

#include <fq/core/Diagnostics.h>
#include <fq/resources/fq_metronome.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <numbers>

namespace fq::metronome {
namespace {

using namespace std::string_view_literals;

// Only four subdivision strings for a range that runs to eight: the control shows
// the first four by name, and that is how the unit describes itself.
constexpr std::array subdivisionStrings{"1"sv, "2"sv, "3"sv, "4"sv};
constexpr std::array soundStrings{"Real Metronome"sv, "Sine"sv, "Triangle"sv, "Square"sv};
constexpr std::array keyStrings{"E (Low)"sv, "F"sv, "F#/Gb"sv, "G"sv, "G#/Ab"sv, "A"sv, "A#/Bb"sv,
                                "B"sv,       "C"sv, "C#/Db"sv, "D"sv, "D#/Eb"sv, "E"sv};

constexpr double twoPi = 2 * std::numbers::pi;
constexpr double twoOverPi = 0.6366197723675814;
/// Index 5 of the key table is A at 440 Hz; each step is a semitone.
constexpr int keyOfA = 5;
constexpr int highestKey = 12;

/// A parameter value truncated toward zero, with NaN and values beyond int's range
/// kept to something harmless.
int truncated(float value) noexcept {
    if (std::isnan(value)) return 0;
    if (value <= static_cast<float>(INT_MIN)) return INT_MIN;
    if (value >= static_cast<float>(INT_MAX)) return INT_MAX;
    return static_cast<int>(value);
}

} // namespace

std::optional<std::string_view> embeddedClick(std::string_view name) {
    if (name == "tick") return resources::tick_wav();
    if (name == "tock") return resources::tock_wav();
    return std::nullopt;
}

MetronomeAudioUnit::MetronomeAudioUnit()
    : bpmParameter("bpm", "BPM", 0, 30, 240, ParameterUnit::beatsPerMinute, 120, {}),
      beatsParameter("beats", "Beats/Bar", 1, 1, 16, ParameterUnit::indexed, 4, {}),
      subdivisionParameter("subdiv", "Subdivisions", 2, 1, 8, ParameterUnit::indexed, 1,
                           subdivisionStrings),
      accentParameter("accent", "Accent 1st Beat", 3, 0, 1, ParameterUnit::boolean, 1, {}),
      muteParameter("mute", "Mute", 4, 0, 1, ParameterUnit::boolean, 0, {}),
      soundParameter("sound", "Sound", 5, 0, 3, ParameterUnit::indexed, 0, soundStrings),
      noteParameter("note", "Key", 6, 0, 12, ParameterUnit::indexed, 1, keyStrings),
      fadeMsParameter("fadeMs", "Synth Fade (ms)", 7, 0, 20, ParameterUnit::milliseconds, 2, {}) {}

tl::expected<std::unique_ptr<MetronomeAudioUnit>, Error>
MetronomeAudioUnit::create(const ClickResources& resources) {
    std::unique_ptr<MetronomeAudioUnit> unit(new MetronomeAudioUnit());
    auto tick = loadClick("tick", resources);
    if (!tick) return tl::unexpected(tick.error());
    auto tock = loadClick("tock", resources);
    if (!tock) return tl::unexpected(tock.error());
    unit->recordedTick_ = std::move(*tick);
    unit->recordedTock_ = std::move(*tock);
    unit->prepare(config::clickSampleRate, config::maximumFramesToRender);
    return unit;
}

std::array<MetronomeParameter*, 8> MetronomeAudioUnit::parameterTree() {
    return {&bpmParameter,  &beatsParameter, &subdivisionParameter, &accentParameter,
            &muteParameter, &soundParameter, &noteParameter,        &fadeMsParameter};
}

void MetronomeAudioUnit::setClickBuffers(std::optional<PcmBuffer> tick,
                                         std::optional<PcmBuffer> tock) {
    clickBuf_ = nullptr;
    recordedTick_ = std::move(tick);
    recordedTock_ = std::move(tock);
    tickPCMBuffer_ = recordedTick_;
    tockPCMBuffer_ = recordedTock_;
}

void MetronomeAudioUnit::allocateRenderResources(double sampleRate) {
    sampleRate_ = sampleRate;
    samplesIntoSubdivision_ = 0;
    beatIndex_ = 0;
    subdivIndex_ = 0;
    clickPlayhead_ = 0;
    clickBuf_ = nullptr;
    synthActive_ = false;
    phase_ = 0;
    phaseIncr_ = 0;
    envSamplesRemaining_ = 0;
    envTotalSamples_ = 0;
    envSampleIndex_ = 0;
    envFadeInSamples_ = 0;
    envFadeOutSamples_ = 0;
}

void MetronomeAudioUnit::prepare(double sampleRate, int maximumFrames) {
    allocateRenderResources(sampleRate);
    const auto atRate = [sampleRate](const std::optional<PcmBuffer>& recorded) {
        if (!recorded) return std::optional<PcmBuffer>();
        auto resampled = resampledClick(*recorded, sampleRate);
        if (resampled) return std::optional(std::move(*resampled));
        // the click as recorded, a little fast or slow, is better than none
        diagnostic(resampled.error().message);
        return recorded;
    };
    tickPCMBuffer_ = atRate(recordedTick_);
    tockPCMBuffer_ = atRate(recordedTock_);
    const auto frames = static_cast<std::size_t>(std::max(maximumFrames, 1));
    scratchLeft_.assign(frames, 0.0f);
    scratchRight_.assign(frames, 0.0f);
}

void MetronomeAudioUnit::resetRenderState() {
    resetRequested_.store(true);
}

void MetronomeAudioUnit::clearRenderState() noexcept {
    samplesIntoSubdivision_ = 0;
    samplesPerSubdivision_ = 0;
    beatIndex_ = 0;
    subdivIndex_ = 0;
    clickPlayhead_ = 0;
    clickBuf_ = nullptr;
    synthActive_ = false;
    phase_ = 0;
    phaseIncr_ = 0;
    envSamplesRemaining_ = 0;
    envTotalSamples_ = 0;
    envSampleIndex_ = 0;
    envFadeInSamples_ = 0;
    envFadeOutSamples_ = 0;
}

void MetronomeAudioUnit::render(const audio::BlockTiming& timing, float* left,
                                float* right) noexcept {
    const int piece = static_cast<int>(scratchLeft_.size());
    for (int done = 0; done < timing.frames;) {
        const int count = std::min(timing.frames - done, piece);
        renderBlock(count, scratchLeft_.data(), scratchRight_.data());
        for (int i = 0; i < count; ++i) {
            left[done + i] += scratchLeft_[static_cast<std::size_t>(i)];
            right[done + i] += scratchRight_[static_cast<std::size_t>(i)];
        }
        done += count;
    }
}

void MetronomeAudioUnit::renderBlock(int frames, float* left, float* right) noexcept {
    std::fill_n(left, std::max(frames, 0), 0.0f);
    std::fill_n(right, std::max(frames, 0), 0.0f);

    // Stopped or muted: nothing moves, so unmuting goes on from the same place.
    if (!isProcessing_.load() || muteParameter.value() >= 0.5f) return;
    // read after the switch: a start sets the reset before it sets isProcessing
    if (resetRequested_.exchange(false)) clearRenderState();

    BlockParameters block;
    const float bpm = bpmParameter.value();
    block.beats = std::max(1, truncated(beatsParameter.value()));
    block.subdivisions = std::max(1, truncated(subdivisionParameter.value()));
    block.sound = truncated(soundParameter.value());
    block.useSamples = block.sound < 1 || block.sound > 3;
    const int key = std::clamp(truncated(noteParameter.value()), 0, highestKey);
    const double f = 440.0 * std::pow(2.0, static_cast<double>(key - keyOfA) / 12.0);
    block.accentFrequency = 4 * f;
    block.beatFrequency = 2 * f;
    block.subdivisionFrequency = 1.5 * f;

    // every call: a new tempo takes effect on the next buffer, and the position
    // inside the subdivision is kept as it is
    samplesPerSubdivision_ =
        (sampleRate_ * 60.0 / static_cast<double>(bpm)) / static_cast<double>(block.subdivisions);

    if (shouldTriggerImmediately_.load()) {
        performClick(block);
        shouldTriggerImmediately_.store(false);
    }
    if (frames <= 0) return;

    for (int i = 0; i < frames; ++i) {
        addSound(block, left, right, i);
        samplesIntoSubdivision_ += 1;
        if (samplesPerSubdivision_ > samplesIntoSubdivision_) continue;
        // keeps the fraction; the new click's first sample lands on frame i + 1
        samplesIntoSubdivision_ -= samplesPerSubdivision_;
        performClick(block);
    }
}

void MetronomeAudioUnit::performClick(const BlockParameters& block) noexcept {
    const bool accented = accentParameter.value() >= 0.5f && beatIndex_ == 0 && subdivIndex_ == 0;
    if (block.useSamples) {
        if (accented)
            clickBuf_ = tickPCMBuffer_ ? &*tickPCMBuffer_ : nullptr;
        else
            clickBuf_ = tockPCMBuffer_   ? &*tockPCMBuffer_
                        : tickPCMBuffer_ ? &*tickPCMBuffer_
                                         : nullptr;
        clickPlayhead_ = 0;
    } else if (accented) {
        startSynth(block.accentFrequency, 1.0f);
    } else if (subdivIndex_ == 0) {
        startSynth(block.beatFrequency, 0.8f);
    } else {
        startSynth(block.subdivisionFrequency, 0.7f);
    }

    if (auto* listener = onTick_.load()) listener->onTick(beatIndex_, subdivIndex_);

    subdivIndex_ += 1;
    if (subdivIndex_ >= block.subdivisions) {
        subdivIndex_ = 0;
        beatIndex_ = (beatIndex_ + 1) % block.beats;
    }
}

void MetronomeAudioUnit::startSynth(double frequency, float level) noexcept {
    frequency = std::min(frequency, sampleRate_ / 2 - 100);
    synthAmp_ = level;
    phaseIncr_ = frequency * twoPi / sampleRate_;
    phase_ = 0;
    // a fixed count of samples, not a time: shorter as the tempo rises
    const float bpm = bpmParameter.value();
    envTotalSamples_ = 1000 - truncated(bpm + bpm);
    const double fadeMs = fadeMsParameter.value();
    const double seconds = fadeMs >= 0 ? fadeMs / 1000.0 : 0.0;
    const double fadeSamples = sampleRate_ * seconds;
    int fade =
        fadeSamples >= static_cast<double>(INT_MAX) ? INT_MAX : static_cast<int>(fadeSamples);
    fade = std::min(fade, envTotalSamples_ / 2);
    envFadeInSamples_ = fade;
    envFadeOutSamples_ = fade;
    envSamplesRemaining_ = envTotalSamples_;
    envSampleIndex_ = 0;
    synthActive_ = true;
}

void MetronomeAudioUnit::addSound(const BlockParameters& block, float* left, float* right,
                                  int frame) noexcept {
    if (block.useSamples) {
        if (clickBuf_ != nullptr &&
            clickPlayhead_ < static_cast<std::int64_t>(clickBuf_->frameLength())) {
            const auto at = static_cast<std::size_t>(clickPlayhead_);
            const float first = clickBuf_->channels[0][at];
            left[frame] += first;
            right[frame] += clickBuf_->channelCount() == 1 ? first : clickBuf_->channels[1][at];
            clickPlayhead_ += 1;
        }
        return;
    }
    if (!synthActive_ || envSamplesRemaining_ < 1) return;

    float envelope = 1.0f;
    if (envFadeInSamples_ >= 1 && envSampleIndex_ < envFadeInSamples_) {
        envelope = static_cast<float>(envSampleIndex_) / static_cast<float>(envFadeInSamples_);
    } else if (const int d = envSampleIndex_ - (envTotalSamples_ - envFadeOutSamples_);
               envFadeOutSamples_ >= 1 && d >= 0) {
        envelope = 1.0f - static_cast<float>(d) / static_cast<float>(envFadeOutSamples_);
    }

    float wave = 0.0f;
    switch (block.sound) {
    case 1:
        wave = std::sin(static_cast<float>(phase_));
        break;
    case 2:
        wave = static_cast<float>(std::asin(std::sin(std::fmod(phase_, twoPi))) * twoOverPi);
        break;
    default:
        wave = std::sin(phase_) >= 0 ? 1.0f : -1.0f;
        break;
    }

    const float sample = envelope * wave * synthAmp_;
    left[frame] += sample;
    right[frame] += sample;

    phase_ += phaseIncr_;
    if (phase_ >= twoPi) phase_ -= twoPi;
    envSamplesRemaining_ -= 1;
    envSampleIndex_ += 1;
    if (envSamplesRemaining_ <= 0) synthActive_ = false;
}

} // namespace fq::metronome
