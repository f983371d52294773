#pragma once

#include "fq/audio/AudioDevices.h"
#include "fq/audio/AudioSource.h"
#include "fq/audio/SpscQueue.h"
#include "fq/audio/Timeline.h"

#include <fq/core/Error.h>

#include <tl/expected.hpp>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace fq::audio {

namespace config {
inline constexpr double preferredSampleRate = 44100.0;
/// 256 frames at 44100 Hz.
inline constexpr double preferredIOBufferDuration = 0.005804988662131519;
inline constexpr int maximumSources = 16;
inline constexpr int maximumCaptureSinks = 4;
/// Longer device blocks and offline pulls are rendered in pieces of at most this.
inline constexpr int maximumBlockFrames = 4096;
/// The least audio a device stream keeps queued. Two blocks of 5.8 ms, what sound
/// servers offer as their lowest latency, run dry whenever a busy machine delays
/// the render thread for a moment; this stays clear of that and is still well
/// under what a tap on a chord feels as late.
inline constexpr std::chrono::duration<double> minimumDeviceLatency{0.04};
/// How long after its stamp something sent to a device sounds, beyond what the
/// device itself holds queued: room for the work item that sends a note to run
/// late. With this the device's uneven callbacks cannot move a note, and notes keep
/// their exact spacing. Offline rendering needs none.
inline constexpr std::chrono::milliseconds deviceEventMargin{15};
/// How fast the clock-to-frame relation may move back when the device's clock runs
/// ahead of the steady clock: one part in this.
inline constexpr int clockDriftAllowance = 1000;
} // namespace config

/// What the render threads report. They cannot call anyone, so they leave these in a
/// queue that a control thread reads with nextEvent().
enum class EngineEvent : std::uint8_t {
    outputStopped, ///< the output stream ended by itself: the device failed or went away
    inputStopped,  ///< the same for the input stream
};

/// The one engine every sound of the program runs on: a PortAudio output stream
/// (and an input stream while someone captures) whose real-time callback mixes the
/// attached sources, or, in manual rendering mode, an offline path that pulls frames
/// for tests and export.
///
/// Threads: control functions from any thread except the render threads (they take
/// a lock of their own and may block briefly); the callbacks never lock, allocate,
/// log or throw. Sources are attached by pointer: a source must stay alive until it
/// is detached, and detach() returns only when no render uses it any more.
class SharedAudioEngine {
public:
    /// The process's engine, on the shared timeline.
    static SharedAudioEngine& shared();

    /// A device engine needs a timeline that follows the steady clock.
    explicit SharedAudioEngine(Timeline& timeline);
    /// Stops and closes the device. Sources must have been detached.
    ~SharedAudioEngine();
    SharedAudioEngine(const SharedAudioEngine&) = delete;
    SharedAudioEngine& operator=(const SharedAudioEngine&) = delete;

    Timeline& timeline() const { return timeline_; }

    // The graph.

    /// Prepares the source at the engine's rate and mixes it from the next block on.
    /// False when every place is taken; true at once for an attached source.
    bool attach(AudioSource& source);
    /// Returns once no render uses the source.
    void detach(AudioSource& source);
    bool attachCapture(CaptureSink& sink);
    void detachCapture(CaptureSink& sink);

    // Running.

    /// Makes the engine render offline only: start() opens no device, and
    /// renderOffline() pulls the audio. Call before start().
    void enableManualRenderingMode();
    bool isInManualRenderingMode() const;
    /// Prepares the sources again if the rate changed since they were prepared.
    void prepare();
    /// Opens the output device (and the input while one is wanted) and starts
    /// rendering. Nothing happens if it runs.
    tl::expected<void, Error> start();
    /// Stops rendering and keeps the devices open.
    void pause();
    /// Stops rendering and closes the devices.
    void stop();
    /// Every source silences at once and forgets what was sent to it so far.
    void reset();
    bool isRunning() const { return running_.load(); }

    // The devices.

    /// Used the next time the output opens.
    void setPreferredFormat(double sampleRate, double ioBufferDuration);
    double sampleRate() const;
    int framesPerBuffer() const;
    /// Opens an input stream on `device` while running (at once if running now),
    /// or closes it with none. The input runs at the output's rate.
    tl::expected<void, Error> setInputDevice(std::optional<AudioDeviceInfo> device);
    std::optional<AudioDeviceInfo> inputDevice() const;
    /// The device that the output runs, or last ran, on.
    std::optional<AudioDeviceInfo> outputDevice() const;

    /// Offline, in manual rendering mode only: renders `left.size()` frames (equal
    /// to `right.size()`) whose first frame sounds at timeline time `firstFrameTime`.
    /// Silence while not running.
    void renderOffline(std::span<float> left, std::span<float> right, TimelineTime firstFrameTime);

    /// The next value the render threads left, if any.
    std::optional<EngineEvent> nextEvent();
    /// Frames rendered since construction, by the device or offline.
    FrameTime renderedFrames() const { return renderedFrames_.load(std::memory_order_acquire); }

private:
    friend struct EngineCallbacks; // PortAudio's callbacks, which keep portaudio.h private

    void renderDeviceBlock(float* const* channels, int frames) noexcept;
    void captureDeviceBlock(const float* samples, int frames) noexcept;
    void mix(const BlockTiming& timing, float* left, float* right) noexcept;
    void prepareSourcesLocked();
    tl::expected<void, Error> openOutputLocked();
    tl::expected<void, Error> openInputLocked();
    void stopStreamsLocked();
    void closeStreamsLocked();

    Timeline& timeline_;
    mutable std::mutex controlMutex_;

    std::array<std::atomic<AudioSource*>, config::maximumSources> sources_{};
    std::array<std::atomic<CaptureSink*>, config::maximumCaptureSinks> sinks_{};
    // set by a render while it reads the places above: detach waits for it to clear
    std::atomic<bool> outputBusy_{false};
    std::atomic<bool> inputBusy_{false};
    std::atomic<bool> running_{false};
    std::atomic<FrameTime> renderedFrames_{0};

    std::atomic<bool> manualRendering_{false};
    // control state, under controlMutex_
    double preferredSampleRate_;
    double preferredIOBufferDuration_;
    double preparedSampleRate_ = 0;
    std::atomic<double> sampleRate_;
    std::atomic<int> framesPerBuffer_;
    std::optional<AudioDeviceInfo> outputDevice_;
    std::optional<AudioDeviceInfo> wantedInput_;
    std::optional<AudioDeviceInfo> inputDevice_;
    void* outputStream_ = nullptr;
    void* inputStream_ = nullptr;
    int outputChannels_ = 2;
    std::atomic<bool> stoppingOutput_{false};
    std::atomic<bool> outputFailed_{false};
    std::atomic<bool> stoppingInput_{false};

    // render-thread state of the device output: when frame 0 would have been
    // rendered, as late as any callback has shown
    std::atomic<bool> reanchor_{true};
    TimelineTime origin_{0};
    TimelineTime lastCallback_{0};
    std::atomic<FrameTime> eventLatencyFrames_{0};
    std::vector<float> scratchLeft_;
    std::vector<float> scratchRight_;

    SpscQueue<EngineEvent, 16> outputEvents_;
    SpscQueue<EngineEvent, 16> inputEvents_;
};

} // namespace fq::audio
