// The tuner screen's lifecycle and readings, and a recording run through them.

#include "fq/tuner/TunerSession.h"

#include <fq/core/Diagnostics.h>

#include <samplerate.h>

#include <chrono>

namespace fq::tuner {

/// The recognizer's delegate: the screen's handler, and the observer told beside it.
class TunerSession::Delegate final : public KVPitchRecognizerDelegate {
public:
    explicit Delegate(TunerSessionObserver* observer) : observer_(observer) {}
    void pitchRecognizerDidOpenPatch(bool opened) override {
        handler_.pitchRecognizerDidOpenPatch(opened);
        if (observer_ != nullptr) observer_->tunerOpened(opened);
    }
    void forget() { observer_ = nullptr; }
    const PitchRecognizerDelegateHandler& handler() const { return handler_; }

private:
    PitchRecognizerDelegateHandler handler_;
    TunerSessionObserver* observer_;
};

TunerSession::TunerSession(Executor main, PitchCaptureSession& capture, DrumEngineSuspension& drums,
                           std::filesystem::path cacheDirectory, TunerSessionObserver& observer,
                           Clock clock)
    : capture_(capture), observer_(observer), clock_(std::move(clock)),
      delegate_(std::make_shared<Delegate>(&observer)),
      recognizer_(
          KVPitchRecognizer::create(std::move(main), capture, drums, std::move(cacheDirectory))) {
    if (!clock_) {
        clock_ = [began = std::chrono::steady_clock::now()] {
            return std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
        };
    }
    recognizer_->setDelegate(delegate_);
    recognizer_->observeFrequency([this](double frequency) { handleFrequency(frequency); });
}

TunerSession::~TunerSession() {
    // work the recognizer queued may outlive the session, and must find no one to tell
    delegate_->forget();
    recognizer_->observeFrequency({});
}

const PitchRecognizerDelegateHandler& TunerSession::delegateHandler() const {
    return delegate_->handler();
}

void TunerSession::appear() {
    if (isStarted_) return;
    isStarted_ = true;
    recognizer_->start();
}

void TunerSession::changeScene(ScenePhase phase) {
    switch (phase) {
    case ScenePhase::background:
        recognizer_->stop();
        wasStoppedForInactiveScene_ = true;
        break;
    case ScenePhase::inactive:
        recognizer_->stop();
        wasStoppedForInactiveScene_ = true;
        diagnostic("App is inactive");
        break;
    case ScenePhase::active:
        if (wasStoppedForInactiveScene_) {
            recognizer_->stop();
            capture_.beginCapture([weak = std::weak_ptr<KVPitchRecognizer>(recognizer_)] {
                if (const auto recognizer = weak.lock()) recognizer->resumeAudio();
            });
            wasStoppedForInactiveScene_ = false;
        } else {
            recognizer_->start();
        }
        break;
    }
}

void TunerSession::disappear(std::function<void()> done) {
    recognizer_->stop();
    isStarted_ = false;
    recognizer_->tearDown(std::move(done));
}

void TunerSession::handleFrequency(double frequency) {
    const bool changed = display_.handleFrequency(frequency, clock_());
    if (display_.graphNeedsUpdating()) observer_.graphReceived(display_.deviationInCents());
    if (changed) observer_.displayChanged(display_);
}

tl::expected<MonoAudio, Error> atAnalysisRate(MonoAudio audio) {
    if (audio.sampleRate == 44100.0 || audio.sampleRate == 48000.0 || audio.samples.empty())
        return audio;
    if (!(audio.sampleRate > 0))
        return tl::unexpected(Error{"The audio has no sample rate", ErrorKind::corrupt});
    const double ratio = config::analysisRate / audio.sampleRate;
    std::vector<float> out(
        static_cast<std::size_t>(static_cast<double>(audio.samples.size()) * ratio + 1));
    SRC_DATA data{};
    data.data_in = audio.samples.data();
    data.input_frames = static_cast<long>(audio.samples.size());
    data.data_out = out.data();
    data.output_frames = static_cast<long>(out.size());
    data.src_ratio = ratio;
    if (const int status = src_simple(&data, SRC_SINC_MEDIUM_QUALITY, 1); status != 0)
        return tl::unexpected(Error{
            std::string("Cannot resample the audio: ") + src_strerror(status), ErrorKind::corrupt});
    out.resize(static_cast<std::size_t>(data.output_frames_gen));
    return MonoAudio{std::move(out), config::analysisRate};
}

tl::expected<void, Error> tuneRecording(const MonoAudio& recording,
                                        const std::filesystem::path& cacheDirectory,
                                        TunerSessionObserver& observer,
                                        const std::function<void(double seconds)>& beforeHop) {
    const auto audio = atAnalysisRate(recording);
    if (!audio) return tl::unexpected(audio.error());
    asio::io_context main;
    OfflinePitchTracker tracker(main, audio->sampleRate, cacheDirectory);
    TunerDisplayModel display;
    if (auto started = tracker.start([&](double frequency, double seconds) {
            const bool changed = display.handleFrequency(frequency, seconds);
            if (display.graphNeedsUpdating()) observer.graphReceived(display.deviationInCents());
            if (changed) observer.displayChanged(display);
        });
        !started)
        return started;
    tracker.feed(audio->samples, beforeHop);
    tracker.finish();
    return {};
}

} // namespace fq::tuner
