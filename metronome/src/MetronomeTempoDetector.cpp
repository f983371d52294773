// The tempo detector's loop: the tap, the window, each analysis and what it reports.

#include "fq/metronome/MetronomeTempoDetector.h"

#include <fq/audio/AudioSessionManager.h>
#include <fq/audio/SerialQueue.h>
#include <fq/audio/SharedAudioEngine.h>

#include <asio/post.hpp>

#include <algorithm>
#include <cmath>

namespace fq::metronome {

namespace {
constexpr const char* listeningForTempo = "Listening for tempo";
constexpr const char* listeningForSteadyBeat = "Listening for a steady beat";
constexpr const char* listeningForClearerBeat = "Listening for a clearer beat";
constexpr const char* microphoneUnavailable = "Microphone unavailable";
} // namespace

std::string ListeningState::text() const {
    switch (kind) {
    case Kind::detected:
        return "Detected " + std::to_string(tempo);
    case Kind::idle:
        return {};
    case Kind::listening:
    case Kind::unavailable:
        break;
    }
    return message;
}

std::string_view kindName(ListeningState::Kind kind) {
    switch (kind) {
    case ListeningState::Kind::listening:
        return "listening";
    case ListeningState::Kind::detected:
        return "detected";
    case ListeningState::Kind::unavailable:
        return "unavailable";
    case ListeningState::Kind::idle:
        break;
    }
    return "idle";
}

int acceptedTempo(double beatsPerMinute) {
    const double rounded = std::round(beatsPerMinute); // halves away from zero
    return static_cast<int>(std::clamp(rounded, double{config::lowestDetectedTempo},
                                       double{config::highestDetectedTempo}));
}

MetronomeTempoDetector& MetronomeTempoDetector::shared() {
    // destroyed in reverse: the detector before what it runs on
    struct Process {
        audio::SerialQueue analysis{"MetronomeTempoDetector.analysis"};
        AsioTempoScheduler scheduler{audio::mainContext().get_executor()};
        AudioSessionTempoCapture session{audio::AudioSessionManager::shared(),
                                         audio::mainContext().get_executor()};
        EngineTempoInput input{audio::SharedAudioEngine::shared()};
        AubioBeatTracker tracker;
        std::shared_ptr<MetronomeTempoDetector> detector = MetronomeTempoDetector::create(
            {audio::mainContext().get_executor(), analysis.executor(), scheduler, session, input,
             tracker});
    };
    static Process process;
    return *process.detector;
}

std::shared_ptr<MetronomeTempoDetector> MetronomeTempoDetector::create(Environment environment) {
    return std::make_shared<MetronomeTempoDetector>(Private{}, std::move(environment));
}

MetronomeTempoDetector::MetronomeTempoDetector(Private, Environment environment)
    : environment_(std::move(environment)),
      slots_(config::tapBufferSlots, std::vector<float>(config::tapBufferSize)) {
    capturedAudio_.reserve(256);
}

MetronomeTempoDetector::~MetronomeTempoDetector() {
    if (analysisTask_) environment_.input.removeTap();
}

void MetronomeTempoDetector::setState(const ListeningState& state) {
    if (onStateChange_) onStateChange_(state);
}

void MetronomeTempoDetector::start(StateCallback onStateChange, TempoCallback onTempoDetected,
                                   LevelsCallback onLevelsUpdated) {
    onStateChange_ = std::move(onStateChange);
    onTempoDetected_ = std::move(onTempoDetected);
    onLevelsUpdated_ = std::move(onLevelsUpdated);
    capturedAudio_.clear(); // keeps its capacity
    capturedAudioDuration_ = 0;
    if (onLevelsUpdated_)
        onLevelsUpdated_(std::vector<float>(config::levelCount, config::initialLevel));
    setState(ListeningState::listening(listeningForTempo));

    // a loop still running is left to find itself stale
    if (analysisTask_) {
        if (analysisTask_->sleep) environment_.scheduler.cancel(*analysisTask_->sleep);
        if (analysisTask_->delivery) environment_.scheduler.cancel(*analysisTask_->delivery);
    }
    const auto generation = ++lifecycleGeneration_;
    analysisTask_ = AnalysisTask{generation, {}, {}};
    asio::post(environment_.main, [weak = weak_from_this(), generation] {
        const auto self = weak.lock();
        if (!self || !self->isCurrent(generation)) return;
        self->environment_.session.beginCapture([weak, generation](bool granted) {
            if (const auto detector = weak.lock()) detector->captureGranted(generation, granted);
        });
    });
}

void MetronomeTempoDetector::captureGranted(std::uint64_t generation, bool granted) {
    if (!isCurrent(generation)) return;
    if (!granted) {
        fail(microphoneUnavailable);
        return;
    }
    if (!installTap()) {
        fail(microphoneUnavailable);
        return;
    }
    scheduleDelivery(generation);
    sleepThenAnalyze(generation);
}

tl::expected<void, TempoDetectionError> MetronomeTempoDetector::installTap() {
    auto& input = environment_.input;
    const auto format = input.inputFormat();
    if (!(format.sampleRate > 0) || format.channelCount < 1)
        return tl::unexpected(TempoDetectionError::invalidInputFormat);
    input.removeTap();
    // nothing runs on the audio side now: the queues can be set afresh from here
    while (tappedBuffers_.pop()) {
    }
    while (freeSlots_.pop()) {
    }
    for (std::uint32_t slot = 0; slot < slots_.size(); ++slot)
        freeSlots_.push(slot);
    input.installTap(config::tapBufferSize,
                     [this](std::span<const float> samples, double sampleRate) noexcept {
                         tapped(samples, sampleRate);
                     });
    if (auto started = input.start(); !started) {
        // the caller fails with the one message there is for a failed start
        return tl::unexpected(TempoDetectionError::invalidInputFormat);
    }
    return {};
}

void MetronomeTempoDetector::tapped(std::span<const float> samples, double sampleRate) noexcept {
    const auto slot = freeSlots_.pop();
    if (!slot) return; // the main executor is far behind: this buffer is lost
    auto& copy = slots_[*slot];
    const auto frames = std::min(samples.size(), copy.size());
    std::copy_n(samples.begin(), frames, copy.begin());
    detail::TappedBuffer buffer;
    buffer.slot = *slot;
    buffer.frames = static_cast<std::uint32_t>(frames);
    buffer.sampleRate = sampleRate;
    buffer.levels = levels_.compute(samples);
    if (!tappedBuffers_.push(buffer)) freeSlots_.push(*slot);
}

void MetronomeTempoDetector::scheduleDelivery(std::uint64_t generation) {
    if (!isCurrent(generation)) return;
    analysisTask_->delivery = environment_.scheduler.after(
        config::tapDeliveryInterval, [weak = weak_from_this(), generation] {
            const auto self = weak.lock();
            if (!self || !self->isCurrent(generation)) return;
            self->analysisTask_->delivery.reset();
            self->deliverTappedBuffers();
            self->scheduleDelivery(generation);
        });
}

void MetronomeTempoDetector::deliverTappedBuffers() {
    while (const auto tapped = tappedBuffers_.pop()) {
        const auto& slot = slots_[tapped->slot];
        auto buffer = std::make_shared<TempoBuffer>();
        buffer->samples.assign(slot.begin(), slot.begin() + tapped->frames);
        buffer->sampleRate = tapped->sampleRate;
        freeSlots_.push(tapped->slot);

        capturedAudioDuration_ += buffer->duration();
        capturedAudio_.push_back(std::move(buffer));
        while (capturedAudioDuration_ > config::captureWindowSeconds && !capturedAudio_.empty()) {
            capturedAudioDuration_ -= capturedAudio_.front()->duration();
            capturedAudio_.erase(capturedAudio_.begin());
        }
        if (onLevelsUpdated_)
            onLevelsUpdated_(std::vector<float>(tapped->levels.begin(), tapped->levels.end()));
    }
}

void MetronomeTempoDetector::sleepThenAnalyze(std::uint64_t generation) {
    if (!isCurrent(generation)) return;
    analysisTask_->sleep =
        environment_.scheduler.after(config::analysisPeriod, [weak = weak_from_this(), generation] {
            const auto self = weak.lock();
            if (!self || !self->isCurrent(generation)) return;
            self->analysisTask_->sleep.reset();
            // what the audio thread has tapped by now belongs to this pass
            self->deliverTappedBuffers();
            self->analyzeOnce(generation);
        });
}

void MetronomeTempoDetector::analyzeOnce(std::uint64_t generation) {
    if (capturedAudioDuration_ < config::audioNeededBeforeAnalysis) {
        setState(ListeningState::listening(listeningForSteadyBeat));
        sleepThenAnalyze(generation);
        return;
    }
    // a private snapshot: capture goes on while the tracker runs
    asio::post(environment_.analysis,
               [weak = weak_from_this(), generation, tracker = &environment_.tracker,
                main = environment_.main, window = capturedAudio_] {
                   auto result = tracker->analyze(window);
                   asio::post(main, [weak, generation, result = std::move(result)]() mutable {
                       if (const auto self = weak.lock())
                           self->analysisFinished(generation, std::move(result));
                   });
               });
}

void MetronomeTempoDetector::analysisFinished(std::uint64_t generation,
                                              tl::expected<MusicAnalysis, Error> result) {
    if (!isCurrent(generation)) return; // stopped meanwhile: no word to anyone
    if (!result) {
        setState(ListeningState::listening(listeningForTempo));
    } else if (result->rhythm && result->rhythm->beatsPerMinute &&
               result->rhythm->beats.size() >= config::fewestCredibleBeats) {
        const int tempo = acceptedTempo(*result->rhythm->beatsPerMinute);
        setState(ListeningState::detected(tempo));
        if (onTempoDetected_) onTempoDetected_(tempo);
    } else {
        setState(ListeningState::listening(listeningForClearerBeat));
    }
    sleepThenAnalyze(generation);
}

void MetronomeTempoDetector::endCapture() {
    if (analysisTask_) {
        if (analysisTask_->sleep) environment_.scheduler.cancel(*analysisTask_->sleep);
        if (analysisTask_->delivery) environment_.scheduler.cancel(*analysisTask_->delivery);
    }
    analysisTask_.reset();
    ++lifecycleGeneration_;
    environment_.input.removeTap();
    environment_.input.stop();
    environment_.session.endCapture();
    capturedAudio_.clear();
    capturedAudioDuration_ = 0;
}

void MetronomeTempoDetector::fail(const std::string& message) {
    endCapture();
    setState(ListeningState::unavailable(message));
}

void MetronomeTempoDetector::stop() {
    endCapture();
    setState(ListeningState::idle());
    onStateChange_ = nullptr;
    onTempoDetected_ = nullptr;
    onLevelsUpdated_ = nullptr;
}

} // namespace fq::metronome
