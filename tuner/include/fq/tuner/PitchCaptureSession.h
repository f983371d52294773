#pragma once

// What the tuner needs of the audio session, from a device or fed by hand.

#include <fq/audio/AudioSessionManager.h>
#include <fq/audio/AudioSource.h>
#include <fq/audio/SharedAudioEngine.h>

#include <asio/any_io_executor.hpp>

#include <atomic>
#include <functional>
#include <span>
#include <vector>

namespace fq::tuner {

/// What the tuner needs of the audio session: capture for the purpose `tuner`, the
/// session's sample rate, and a place to listen to the input. The device form goes
/// through AudioSessionManager and the shared engine; the manual form is fed by hand
/// (audio files, tests).
///
/// Threads: the main executor.
class PitchCaptureSession {
public:
    using Completion = std::function<void()>;

    virtual ~PitchCaptureSession() = default;
    /// `completion` runs on the main executor once the microphone is ready.
    virtual void beginCapture(Completion completion) = 0;
    virtual void endCapture() = 0;
    /// 0 or less when the session does not know.
    virtual double sampleRate() const = 0;
    virtual bool attachCapture(audio::CaptureSink& sink) = 0;
    virtual void detachCapture(audio::CaptureSink& sink) = 0;
};

/// The microphone through an audio session and the engine it runs.
class DeviceCaptureSession final : public PitchCaptureSession {
public:
    /// Both must outlive the capture session.
    DeviceCaptureSession(audio::AudioSessionManager& session, audio::SharedAudioEngine& engine)
        : session_(session), engine_(engine) {}

    void beginCapture(Completion completion) override;
    void endCapture() override;
    double sampleRate() const override;
    bool attachCapture(audio::CaptureSink& sink) override;
    void detachCapture(audio::CaptureSink& sink) override;

private:
    audio::AudioSessionManager& session_;
    audio::SharedAudioEngine& engine_;
};

/// Capture that someone feeds: grants are posted on the main executor at once, or held
/// until grant() when `holdGrants` is set, so that tests can order them by hand.
class ManualCaptureSession final : public PitchCaptureSession {
public:
    ManualCaptureSession(asio::any_io_executor main, double sampleRate, bool holdGrants = false);

    void beginCapture(Completion completion) override;
    void endCapture() override;
    double sampleRate() const override { return sampleRate_; }
    bool attachCapture(audio::CaptureSink& sink) override;
    void detachCapture(audio::CaptureSink& sink) override;

    /// Posts the held completions on the main executor.
    void grant();
    /// Hands samples to the attached sink, as an input callback would; dropped when
    /// none is attached.
    void feed(std::span<const float> samples);

    void setSampleRate(double sampleRate) { sampleRate_ = sampleRate; }
    int beginCount() const { return beginCount_; }
    int endCount() const { return endCount_; }
    bool isCapturing() const { return capturing_; }
    bool hasSink() const { return sink_.load() != nullptr; }

private:
    asio::any_io_executor main_;
    double sampleRate_;
    bool holdGrants_;
    std::vector<Completion> held_;
    std::atomic<audio::CaptureSink*> sink_{nullptr};
    int beginCount_ = 0;
    int endCount_ = 0;
    bool capturing_ = false;
};

} // namespace fq::tuner
