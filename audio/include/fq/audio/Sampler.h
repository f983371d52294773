#pragma once

#include "fq/audio/AudioSource.h"
#include "fq/audio/SpscQueue.h"

#include <fq/core/Error.h>

#include <tl/expected.hpp>

#include <array>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>

namespace fq::audio {

namespace detail {
class FluidInstrument;
}

/// The platform's factory rooms, by their numbers.
enum class ReverbPreset : std::uint8_t {
    smallRoom,
    mediumRoom,
    largeRoom,
    mediumHall,
    largeHall,
    plate,
    mediumChamber,
    largeChamber,
    cathedral,
    largeRoom2,
    mediumHall2,
    mediumHall3,
    largeHall2
};

/// The room a sampler plays in. It is the sampler's own reverb (FluidSynth's), set
/// the way the factory presets sound: a preset gives the room, the mix its share.
class Reverb {
public:
    struct Parameters {
        double roomSize = 0.2; ///< FluidSynth's 0 to 1
        double damping = 0.0;  ///< 0 to 1
        double width = 0.5;    ///< 0 to 100
        double level = 0.0;    ///< 0 to 1, the wet share

        friend bool operator==(const Parameters&, const Parameters&) = default;
    };

    void loadFactoryPreset(ReverbPreset preset) { preset_ = preset; }
    /// 0 (dry) to 100 (all room); values outside are clamped.
    void setWetDryMix(float percent);
    ReverbPreset preset() const { return preset_; }
    float wetDryMix() const { return wetDryMix_; }
    Parameters parameters() const;

private:
    ReverbPreset preset_ = ReverbPreset::mediumHall;
    float wetDryMix_ = 0;
};

/// A SoundFont preset, and how the sampler plays it.
struct SamplerInstrument {
    std::filesystem::path soundFont;
    int bank = 0;
    int program = 0;
    /// Added to the preset's release in timecents (1200 doubles it, -1200 halves
    /// it): how quickly notes fade once let go or silenced.
    double releaseOffset = 0;

    friend bool operator==(const SamplerInstrument&, const SamplerInstrument&) = default;
};

namespace detail {
enum class SamplerEventKind : std::uint8_t { noteOn, controller, reset, instrument, reverb };

/// What a sampler's control side sends to its render side.
struct SamplerEvent {
    SamplerEventKind kind = SamplerEventKind::noteOn;
    std::uint8_t channel = 0;
    std::uint8_t data1 = 0;
    std::uint8_t data2 = 0;
    TimelineTime at{};
    FluidInstrument* instrument = nullptr; ///< owned by the event until adopted
    Reverb::Parameters reverb{};
};
} // namespace detail

/// A sampled instrument on the engine: a SoundFont preset played by FluidSynth.
/// Notes and controllers reach the render thread through a queue, each stamped with
/// the timeline time at which it should sound (now, unless given), and are placed
/// on that frame.
///
/// Threads: control functions from any thread (writers take turns under a lock of
/// the sampler's own, which the render thread never takes). Loading an instrument
/// builds the synthesizer off the render thread and hands it over through the queue;
/// the old one comes back the same way and is freed on a control thread.
class Sampler final : public AudioSource {
public:
    Sampler();
    /// Must be detached from its engine.
    ~Sampler() override;
    Sampler(const Sampler&) = delete;
    Sampler& operator=(const Sampler&) = delete;

    /// Loads a SoundFont preset. On failure the sampler keeps what it had (nothing,
    /// at first: a silent sampler).
    tl::expected<void, Error> loadInstrument(const SamplerInstrument& instrument);
    bool hasInstrument() const;
    void setReverb(const Reverb& reverb);

    void startNote(int note, int velocity, int channel,
                   std::optional<TimelineTime> at = std::nullopt);
    void sendController(int controller, int value, int channel);
    /// Events lost because the queue was full (the render thread stalled).
    std::uint64_t droppedEvents() const;

    void prepare(double sampleRate, int maximumFrames) override;
    void render(const BlockTiming& timing, float* left, float* right) noexcept override;
    void reset() override;

private:
    using Kind = detail::SamplerEventKind;
    using Event = detail::SamplerEvent;

    void send(const Event& event);
    TimelineTime stampNow() const;
    void freeRetired();
    void play(const Event& event) noexcept;
    void synthesize(float* left, float* right, int from, int to) noexcept;

    // control side
    mutable std::mutex writerMutex_;
    std::optional<SamplerInstrument> loaded_;
    double sampleRate_ = 44100.0;
    Reverb::Parameters reverb_{};
    std::atomic<std::uint64_t> dropped_{0};
    std::atomic<int> inFlight_{0}; ///< instruments sent and not yet freed

    SpscQueue<Event, 1024> events_;
    SpscQueue<detail::FluidInstrument*, 64> retired_;

    // render side
    detail::FluidInstrument* instrument_ = nullptr;
    // waiting for their frames, in stamp order; placed afresh in every block, as the
    // relation between timeline and frames may move
    std::array<Event, 512> scheduled_{};
    std::size_t scheduledCount_ = 0;
    std::array<float, 64> discard_{};
};

} // namespace fq::audio
