#pragma once

// The click generator that runs inside the audio graph, with its parameters and clicks.

#include <fq/audio/AudioSource.h>
#include <fq/core/Error.h>

#include <tl/expected.hpp>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace fq::metronome {

namespace config {
/// The rate and channel count the click recordings are converted to when loaded.
inline constexpr double clickSampleRate = 44100.0;
inline constexpr int clickChannels = 2;
/// The largest block the unit renders in one piece.
inline constexpr int maximumFramesToRender = 4096;
/// Level of a synth click that is neither accented, nor on the beat.
inline constexpr float initialSynthAmp = 0.8f;
} // namespace config

enum class ParameterUnit : std::uint8_t { beatsPerMinute, indexed, boolean, milliseconds };

/// One parameter of the unit: a fixed description, and a value that the control side
/// writes and the render thread reads once per block. Writes are not held to the
/// range: the range describes the control, the render step accepts any value.
///
/// Threads: value() and setValue() from any thread, the render thread included.
class MetronomeParameter {
public:
    MetronomeParameter(std::string_view identifierText, std::string_view nameText,
                       std::uint64_t addressValue, float minimum, float maximum,
                       ParameterUnit unitKind, float initialValue,
                       std::span<const std::string_view> strings)
        : identifier(identifierText), name(nameText), address(addressValue), minValue(minimum),
          maxValue(maximum), unit(unitKind), valueStrings(strings), value_(initialValue) {}

    const std::string_view identifier;
    const std::string_view name;
    const std::uint64_t address;
    const float minValue;
    const float maxValue;
    const ParameterUnit unit;
    const std::span<const std::string_view> valueStrings;

    float value() const noexcept { return value_.load(std::memory_order_relaxed); }
    void setValue(float value) noexcept { value_.store(value, std::memory_order_relaxed); }

private:
    std::atomic<float> value_;
};

/// Audio as the unit keeps it: float samples, one vector per channel.
struct PcmBuffer {
    double sampleRate = config::clickSampleRate;
    std::vector<std::vector<float>> channels;

    std::size_t frameLength() const { return channels.empty() ? 0 : channels.front().size(); }
    int channelCount() const { return static_cast<int>(channels.size()); }
};

/// Where the click recordings come from: the bytes of "NAME.wav", or none.
using ClickResources = std::function<std::optional<std::string_view>(std::string_view name)>;
/// The recordings built into the program ("tick" and "tock").
std::optional<std::string_view> embeddedClick(std::string_view name);
/// Decodes a recording of any rate and channel count to 44100 Hz stereo. Fails with
/// "NAME.wav not found" when `resources` has no such recording.
tl::expected<PcmBuffer, Error> loadClick(std::string_view name,
                                         const ClickResources& resources = embeddedClick);
/// Decodes WAV (or any libsndfile format) bytes; `name` is for messages.
tl::expected<PcmBuffer, Error> decodeClick(std::string_view name, std::string_view bytes);
/// The same click at `sampleRate`, so that it keeps its length and pitch there.
tl::expected<PcmBuffer, Error> resampledClick(const PcmBuffer& click, double sampleRate);

/// Told of every click, on the render thread: must not block, allocate or throw.
class TickListener {
public:
    virtual ~TickListener() = default;
    virtual void onTick(int beat, int subdivision) noexcept = 0;
};

/// The sample-accurate click generator: it counts samples inside the audio graph and
/// writes its own clicks, so timing comes from the audio clock alone. A click starts
/// on an exact frame and the fraction of a sample left over is carried to the next,
/// so the tempo never drifts.
///
/// Threads: control functions (construction, prepare, the parameters, the switches)
/// from the main thread; render() and renderBlock() on the render thread, which
/// allocate, lock, log and throw nothing. The render state belongs to the render
/// thread: its accessors are for tests that render offline.
class MetronomeAudioUnit final : public audio::AudioSource {
public:
    /// Builds the parameters and loads both clicks; a missing or unreadable click is
    /// an error, so there is never a silent metronome.
    static tl::expected<std::unique_ptr<MetronomeAudioUnit>, Error>
    create(const ClickResources& resources = embeddedClick);

    MetronomeParameter bpmParameter;
    MetronomeParameter beatsParameter;
    MetronomeParameter subdivisionParameter;
    MetronomeParameter accentParameter;
    MetronomeParameter muteParameter;
    MetronomeParameter soundParameter;
    MetronomeParameter noteParameter;
    MetronomeParameter fadeMsParameter;

    /// The eight parameters in the order they were created.
    std::array<MetronomeParameter*, 8> parameterTree();

    /// Control: takes the rate of the output and clears the position and any click.
    void allocateRenderResources(double sampleRate);
    /// Control: clears the position, the click and the synth before the next frame
    /// is rendered (at the start of the next render call, so it never tears a block).
    /// The switches and the synth level stay.
    void resetRenderState();

    bool isProcessing() const { return isProcessing_.load(); }
    void setIsProcessing(bool value) { isProcessing_.store(value); }
    bool shouldTriggerImmediately() const { return shouldTriggerImmediately_.load(); }
    void setShouldTriggerImmediately(bool value) { shouldTriggerImmediately_.store(value); }
    /// The listener must stay alive until it is replaced or the unit is detached.
    void setOnTick(TickListener* listener) { onTick_.store(listener); }
    int maximumFramesToRender() const { return maximumFramesToRender_; }
    void setMaximumFramesToRender(int frames) { maximumFramesToRender_ = frames; }

    /// RT: the render step on plain float buffers. Zeroes both, then writes the clicks
    /// of `frames` frames into them.
    void renderBlock(int frames, float* left, float* right) noexcept;

    // audio::AudioSource
    /// Control: also converts the recorded clicks to `sampleRate`, so that they sound
    /// the same at any rate of the device.
    void prepare(double sampleRate, int maximumFrames) override;
    /// RT: renders into buffers of its own and adds them to the mix.
    void render(const audio::BlockTiming& timing, float* left, float* right) noexcept override;
    void reset() override { resetRenderState(); }

    // The render state, for tests.
    const std::optional<PcmBuffer>& tickPCMBuffer() const { return tickPCMBuffer_; }
    const std::optional<PcmBuffer>& tockPCMBuffer() const { return tockPCMBuffer_; }
    /// Replaces a click as recorded; the next prepare converts it to the rate (tests
    /// reach the one-channel playback this way).
    void setClickBuffers(std::optional<PcmBuffer> tick, std::optional<PcmBuffer> tock);
    double sampleRate() const { return sampleRate_; }
    double samplesIntoSubdivision() const { return samplesIntoSubdivision_; }
    double samplesPerSubdivision() const { return samplesPerSubdivision_; }
    int beatIndex() const { return beatIndex_; }
    int subdivIndex() const { return subdivIndex_; }
    bool synthActive() const { return synthActive_; }
    int envTotalSamples() const { return envTotalSamples_; }
    int envFadeInSamples() const { return envFadeInSamples_; }
    int envFadeOutSamples() const { return envFadeOutSamples_; }
    double phaseIncr() const { return phaseIncr_; }
    float synthAmp() const { return synthAmp_; }

private:
    MetronomeAudioUnit();

    struct BlockParameters {
        int beats = 4;
        int subdivisions = 1;
        int sound = 0;
        bool useSamples = true;
        double accentFrequency = 0;
        double beatFrequency = 0;
        double subdivisionFrequency = 0;
    };

    void clearRenderState() noexcept;
    void performClick(const BlockParameters& block) noexcept;
    void startSynth(double frequency, float level) noexcept;
    void addSound(const BlockParameters& block, float* left, float* right, int frame) noexcept;

    // the clicks as recorded, and as converted to the present rate
    std::optional<PcmBuffer> recordedTick_;
    std::optional<PcmBuffer> recordedTock_;
    std::optional<PcmBuffer> tickPCMBuffer_;
    std::optional<PcmBuffer> tockPCMBuffer_;
    const PcmBuffer* clickBuf_ = nullptr;
    std::int64_t clickPlayhead_ = 0;
    bool synthActive_ = false;
    double phase_ = 0;
    double phaseIncr_ = 0;
    int envSamplesRemaining_ = 0;
    int envTotalSamples_ = 0;
    float synthAmp_ = config::initialSynthAmp;
    double sampleRate_ = config::clickSampleRate;
    double samplesIntoSubdivision_ = 0;
    double samplesPerSubdivision_ = 0;
    int beatIndex_ = 0;
    int subdivIndex_ = 0;
    std::atomic<bool> isProcessing_{false};
    std::atomic<bool> shouldTriggerImmediately_{false};
    std::atomic<bool> resetRequested_{false};
    std::atomic<TickListener*> onTick_{nullptr};
    int envSampleIndex_ = 0;
    int envFadeInSamples_ = 0;
    int envFadeOutSamples_ = 0;

    int maximumFramesToRender_ = config::maximumFramesToRender;
    std::vector<float> scratchLeft_;
    std::vector<float> scratchRight_;
};

} // namespace fq::metronome
