#include "fq/tuner/PitchCaptureSession.h"

#include <fq/audio/AudioSessionManager.h>
#include <fq/audio/SharedAudioEngine.h>

#include <asio/post.hpp>

namespace fq::tuner {

void DeviceCaptureSession::beginCapture(Completion completion) {
    session_.beginCapture(audio::CapturePurpose::tuner, std::move(completion));
}

void DeviceCaptureSession::endCapture() {
    session_.endCapture(audio::CapturePurpose::tuner);
}

double DeviceCaptureSession::sampleRate() const {
    return engine_.sampleRate();
}

bool DeviceCaptureSession::attachCapture(audio::CaptureSink& sink) {
    return engine_.attachCapture(sink);
}

void DeviceCaptureSession::detachCapture(audio::CaptureSink& sink) {
    engine_.detachCapture(sink);
}

ManualCaptureSession::ManualCaptureSession(asio::any_io_executor main, double sampleRate,
                                           bool holdGrants)
    : main_(std::move(main)), sampleRate_(sampleRate), holdGrants_(holdGrants) {}

void ManualCaptureSession::beginCapture(Completion completion) {
    ++beginCount_;
    capturing_ = true;
    if (holdGrants_) {
        held_.push_back(std::move(completion));
        return;
    }
    if (completion) asio::post(main_, std::move(completion));
}

void ManualCaptureSession::endCapture() {
    ++endCount_;
    capturing_ = false;
}

void ManualCaptureSession::grant() {
    for (auto& completion : std::exchange(held_, {}))
        if (completion) asio::post(main_, std::move(completion));
}

bool ManualCaptureSession::attachCapture(audio::CaptureSink& sink) {
    sink_.store(&sink);
    return true;
}

void ManualCaptureSession::detachCapture(audio::CaptureSink& sink) {
    audio::CaptureSink* expected = &sink;
    sink_.compare_exchange_strong(expected, nullptr);
}

void ManualCaptureSession::feed(std::span<const float> samples) {
    if (auto* sink = sink_.load()) sink->captured(samples, sampleRate_);
}

} // namespace fq::tuner
