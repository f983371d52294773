#pragma once

// Listening for the player's tempo: the capture window, the analysis loop and its states.

#include "fq/metronome/BeatTracker.h"
#include "fq/metronome/ListeningState.h"
#include "fq/metronome/TempoCapture.h"
#include "fq/metronome/TempoLevels.h"

#include <fq/audio/SpscQueue.h>

#include <asio/any_io_executor.hpp>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace fq::metronome {

namespace config {
inline constexpr double captureWindowSeconds = 12.0;
inline constexpr double audioNeededBeforeAnalysis = 6.0;
inline constexpr std::chrono::seconds analysisPeriod{3};
/// A result with fewer beats than this is not believed.
inline constexpr std::size_t fewestCredibleBeats = 4;
inline constexpr int lowestDetectedTempo = 30;
inline constexpr int highestDetectedTempo = 300;
inline constexpr int tapBufferSize = 4096;
/// How often tapped buffers are collected on the main executor.
inline constexpr std::chrono::milliseconds tapDeliveryInterval{20};
/// Tapped buffers in flight between the audio thread and the main executor: about
/// three seconds at 44.1 kHz, far more than the main executor ever lags.
inline constexpr std::size_t tapBufferSlots = 32;
} // namespace config

namespace detail {
/// One tapped buffer on its way from the audio thread to the main executor.
struct TappedBuffer {
    std::uint32_t slot = 0;
    std::uint32_t frames = 0;
    double sampleRate = 0;
    TempoLevelBands levels{};
};
} // namespace detail

enum class TempoDetectionError : std::uint8_t { invalidInputFormat };

/// Rounds to the nearest integer, halves away from zero, and keeps it in 30…300.
int acceptedTempo(double beatsPerMinute);

/// Listens through its own capture and reports the player's tempo: it keeps the last
/// twelve seconds of the input as whole buffers, hands that window to the beat
/// tracker every three seconds once six seconds are there, and meanwhile reports a
/// 24-band level display of each buffer. A detection does not end listening; every
/// later pass may correct it, until stop().
///
/// Threads: everything on the main executor; the tap computes levels on the audio
/// thread and hands a copy of each buffer over through a lock-free queue.
class MetronomeTempoDetector : public std::enable_shared_from_this<MetronomeTempoDetector> {
public:
    using StateCallback = ListeningCallbacks::StateCallback;
    using TempoCallback = ListeningCallbacks::TempoCallback;
    using LevelsCallback = ListeningCallbacks::LevelsCallback;

    /// What the detector runs on. Everything must outlive the detector.
    struct Environment {
        asio::any_io_executor main;
        /// Where the beat tracker runs; its result comes back to `main`.
        asio::any_io_executor analysis;
        TempoScheduler& scheduler;
        TempoCaptureSession& session;
        TempoCaptureInput& input;
        BeatTracker& tracker;
    };

    /// The process's detector: the audio session, the shared engine's input, the
    /// main context and aubio's tracker on a queue of its own.
    static MetronomeTempoDetector& shared();

    static std::shared_ptr<MetronomeTempoDetector> create(Environment environment);
    ~MetronomeTempoDetector();

    /// Main. Listening starts afresh even when it runs already: the caller sees to that.
    void start(StateCallback onStateChange, TempoCallback onTempoDetected,
               LevelsCallback onLevelsUpdated);
    /// Main. Ends listening, reports idle, and forgets the callbacks.
    void stop();

    bool isListening() const { return analysisTask_.has_value(); }
    double capturedAudioDuration() const { return capturedAudioDuration_; }
    std::size_t capturedBufferCount() const { return capturedAudio_.size(); }
    static constexpr int levelCount = config::levelCount;

private:
    struct Private {};

public:
    MetronomeTempoDetector(Private, Environment environment);

private:
    /// The loop in progress: its generation, and the pending timers it owns.
    struct AnalysisTask {
        std::uint64_t generation = 0;
        std::optional<std::uint64_t> sleep;
        std::optional<std::uint64_t> delivery;
    };

    void captureGranted(std::uint64_t generation, bool granted);
    tl::expected<void, TempoDetectionError> installTap();
    void fail(const std::string& message);
    void endCapture();
    void sleepThenAnalyze(std::uint64_t generation);
    void analyzeOnce(std::uint64_t generation);
    void analysisFinished(std::uint64_t generation, tl::expected<MusicAnalysis, Error> result);
    void scheduleDelivery(std::uint64_t generation);
    void deliverTappedBuffers();
    void tapped(std::span<const float> samples, double sampleRate) noexcept;
    bool isCurrent(std::uint64_t generation) const {
        return analysisTask_ && analysisTask_->generation == generation;
    }
    void setState(const ListeningState& state);

    Environment environment_;
    std::optional<AnalysisTask> analysisTask_;
    std::vector<SharedTempoBuffer> capturedAudio_;
    double capturedAudioDuration_ = 0;
    StateCallback onStateChange_;
    TempoCallback onTempoDetected_;
    LevelsCallback onLevelsUpdated_;
    std::uint64_t lifecycleGeneration_ = 0;

    // the tap's side: slots written on the audio thread, handed over by index
    TempoLevels levels_;
    std::vector<std::vector<float>> slots_;
    audio::SpscQueue<std::uint32_t, 64> freeSlots_;
    audio::SpscQueue<detail::TappedBuffer, 64> tappedBuffers_;
};

} // namespace fq::metronome
