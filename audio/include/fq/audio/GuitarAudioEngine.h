#pragma once

#include "fq/audio/Sampler.h"
#include "fq/audio/SharedAudioEngine.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <span>
#include <string_view>
#include <vector>

namespace fq::audio {

namespace config {
/// The General MIDI SoundFont, and the smaller one used when it is missing.
inline constexpr std::array<std::string_view, 2> guitarSoundFonts{
    "/usr/share/sounds/sf2/FluidR3_GM.sf2", "/usr/share/sounds/sf2/TimGM6mb.sf2"};
inline constexpr int guitarBank = 0;
/// Acoustic Guitar (steel), program 26 counted from 1.
inline constexpr int guitarProgram = 25;
/// The SoundFont's guitar rings on for seconds after it is let go; this shortens
/// the fade to about 50 ms, so that silencing cuts a chord off as a hand on the
/// strings would.
inline constexpr double guitarReleaseOffset = -8000;
inline constexpr ReverbPreset guitarReverbPreset = ReverbPreset::mediumHall;
inline constexpr float guitarReverbWetDryMix = 5;
inline constexpr int noteVelocity = 127;
inline constexpr int noteChannel = 0;
inline constexpr std::chrono::milliseconds strumNoteDelay{50};
/// How long a chord played on its own lasts: the strum and its ring.
inline constexpr std::chrono::milliseconds chordLength{3000};
/// All notes off.
inline constexpr int silenceController = 123;
inline constexpr int silenceValue = 0;
} // namespace config

/// Notes struck together that ring for a while before the next ones.
struct TimedNotes {
    std::vector<int> notes;
    std::chrono::milliseconds length{0};

    friend bool operator==(const TimedNotes&, const TimedNotes&) = default;
};

/// What the audio session needs of the guitar when the device comes and goes.
class GuitarEngineControl {
public:
    virtual ~GuitarEngineControl() = default;
    /// Whether the engine the guitar plays on runs at this moment.
    virtual bool isEngineRunning() const = 0;
    virtual void suspendForBackground() = 0;
    virtual void resumeAfterActivation(bool rebuild) = 0;
};

/// The sampled steel-string guitar that sounds a chord when a shape is tapped. A
/// strum is a sequence of notes 0.05 s apart, each a delayed work item on the
/// engine's timeline, and every one of them checks `strumGeneration` before it
/// sounds, so that suspension silences all notes still in flight.
///
/// Threads: every function from any thread. `stateLock_` guards `isSuspended_` and
/// `strumGeneration_`; `graphLock_` (recursive) guards the graph and every call on the
/// sampler. `stateLock_` is never held while taking `graphLock_`.
class GuitarAudioEngine final : public GuitarEngineControl,
                                public std::enable_shared_from_this<GuitarAudioEngine> {
public:
    struct Options {
        /// Tried in order; the first that exists is used.
        std::vector<std::filesystem::path> soundFonts{config::guitarSoundFonts.begin(),
                                                      config::guitarSoundFonts.end()};
    };

    /// The process's guitar on the shared engine.
    static GuitarAudioEngine& shared();
    /// `engine` must outlive the guitar.
    static std::shared_ptr<GuitarAudioEngine> create(SharedAudioEngine& engine);
    static std::shared_ptr<GuitarAudioEngine> create(SharedAudioEngine& engine, Options options);
    ~GuitarAudioEngine() override;

    /// False at once while suspended: a suspended engine never restarts itself.
    bool ensureRunning();
    /// Silences what sounds and strums the notes.
    void playChord(std::span<const int> notes);
    /// MIDI note numbers, lowest string first, sounded in the order given.
    void strum(std::span<const int> notes);
    void stopAllNotes();
    void suspendForBackground() override;
    void resumeAfterActivation(bool rebuild) override;
    void rebuildAfterInterruption();
    bool isEngineRunning() const override;

    bool isSuspended() const;
    std::uint64_t strumGeneration() const;
    /// Whether an instrument is loaded (false: the guitar is silent).
    bool hasInstrument() const;

private:
    struct Private {};

public:
    GuitarAudioEngine(Private, SharedAudioEngine& engine, Options options);

private:
    void connectGraph();
    void loadInstrument();
    bool samplerBelongsToEngine() const;

    SharedAudioEngine* audioEngine_;
    std::unique_ptr<Sampler> sampler_;
    std::unique_ptr<Reverb> reverb_;
    mutable std::mutex stateLock_;
    mutable std::recursive_mutex graphLock_;
    bool isSuspended_ = false;
    std::uint64_t strumGeneration_ = 0;
    Options options_;
};

} // namespace fq::audio
