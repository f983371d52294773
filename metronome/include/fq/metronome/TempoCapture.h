#pragma once

// The seams of tempo detection: the session that grants the microphone, the input
// it taps, and the clock of its loop. The detector is written against these; the
// real ones are the audio session, the shared engine's input and the main executor's
// timers, and a file or a test feeds the same detector through the others here.

#include "fq/metronome/BeatTracker.h"

#include <fq/core/Error.h>

#include <asio/any_io_executor.hpp>
#include <tl/expected.hpp>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <vector>

namespace fq::audio {
class AudioSessionManager;
class SharedAudioEngine;
} // namespace fq::audio

namespace fq::metronome {

/// Who grants and takes back the microphone.
///
/// Threads: main executor.
class TempoCaptureSession {
public:
    virtual ~TempoCaptureSession() = default;
    /// `done` runs on the main executor with whether capture may begin.
    virtual void beginCapture(std::function<void(bool)> done) = 0;
    virtual void endCapture() = 0;
};

/// The audio session with the purpose `tempoDetection`.
class AudioSessionTempoCapture final : public TempoCaptureSession {
public:
    AudioSessionTempoCapture(audio::AudioSessionManager& manager, asio::any_io_executor main);
    void beginCapture(std::function<void(bool)> done) override;
    void endCapture() override;

private:
    audio::AudioSessionManager& manager_;
    asio::any_io_executor main_;
};

/// Capture is always granted: for audio that does not come from a device.
class OpenTempoCapture final : public TempoCaptureSession {
public:
    void beginCapture(std::function<void(bool)> done) override { done(true); }
    void endCapture() override {}
};

struct TempoInputFormat {
    double sampleRate = 0;
    int channelCount = 0;
};

/// The input a capture engine taps.
///
/// Threads: main executor, except the tap, which the input calls on its audio thread.
class TempoCaptureInput {
public:
    /// RT: one whole buffer of the tap's size, first channel only.
    using Tap = std::function<void(std::span<const float> samples, double sampleRate)>;

    virtual ~TempoCaptureInput() = default;
    virtual TempoInputFormat inputFormat() const = 0;
    virtual void installTap(int bufferSize, Tap tap) = 0;
    /// Returns once the tap no longer runs.
    virtual void removeTap() = 0;
    /// Prepares and starts the engine.
    virtual tl::expected<void, Error> start() = 0;
    virtual void stop() = 0;
};

/// The shared engine's input (opened by the audio session while capture is granted),
/// gathered into buffers of the tap's size. Starting runs the engine if it does not
/// run; stopping only removes the tap, since the session decides when the devices
/// close.
class EngineTempoInput final : public TempoCaptureInput {
public:
    explicit EngineTempoInput(audio::SharedAudioEngine& engine);
    ~EngineTempoInput() override;

    TempoInputFormat inputFormat() const override;
    void installTap(int bufferSize, Tap tap) override;
    void removeTap() override;
    tl::expected<void, Error> start() override;
    void stop() override;

private:
    class Sink;
    audio::SharedAudioEngine& engine_;
    std::unique_ptr<Sink> sink_;
};

/// An input fed by hand, from audio already in memory: a file, a test, the bench.
/// feed() calls the tap with every whole buffer it completes, on the calling thread.
class TempoBufferInput final : public TempoCaptureInput {
public:
    explicit TempoBufferInput(double sampleRate) : sampleRate_(sampleRate) {}

    TempoInputFormat inputFormat() const override { return {sampleRate_, 1}; }
    void installTap(int bufferSize, Tap tap) override;
    void removeTap() override;
    tl::expected<void, Error> start() override { return {}; }
    void stop() override {}

    void feed(std::span<const float> samples);
    bool hasTap() const { return static_cast<bool>(tap_); }

private:
    double sampleRate_;
    Tap tap_;
    std::vector<float> pending_;
    std::size_t bufferSize_ = 0;
};

/// Delayed work on the main executor, on the continuous clock.
class TempoScheduler {
public:
    using Duration = std::chrono::nanoseconds;
    virtual ~TempoScheduler() = default;
    /// Runs `work` on the main executor after `delay`; an id for cancel().
    virtual std::uint64_t after(Duration delay, std::function<void()> work) = 0;
    /// The work does not run, if it has not yet.
    virtual void cancel(std::uint64_t id) = 0;
};

/// Timers of an executor.
class AsioTempoScheduler final : public TempoScheduler {
public:
    explicit AsioTempoScheduler(asio::any_io_executor main) : main_(std::move(main)) {}
    ~AsioTempoScheduler() override;
    std::uint64_t after(Duration delay, std::function<void()> work) override;
    void cancel(std::uint64_t id) override;

private:
    struct Timer;
    asio::any_io_executor main_;
    std::uint64_t nextId_ = 1;
    std::map<std::uint64_t, std::shared_ptr<Timer>> timers_;
};

/// A clock that moves only when told: tests, and files analysed faster than they play.
class ManualTempoScheduler final : public TempoScheduler {
public:
    std::uint64_t after(Duration delay, std::function<void()> work) override;
    void cancel(std::uint64_t id) override;

    Duration now() const { return now_; }
    /// Runs every item due by `when` in time order (equal times in the order
    /// given), with now() at each item's time; items added meanwhile run too if due.
    void advanceTo(Duration when);
    void advanceBy(Duration by) { advanceTo(now_ + by); }

private:
    Duration now_{0};
    std::uint64_t nextId_ = 1;
    std::map<std::pair<Duration, std::uint64_t>, std::function<void()>> pending_;
};

/// The first channel of an audio file, in any format libsndfile reads.
tl::expected<TempoBuffer, Error> readTempoAudioFile(const std::filesystem::path& file);

} // namespace fq::metronome
