#include "fq/audio/GuitarAudioEngine.h"

#include <fq/core/Diagnostics.h>

#include <algorithm>
#include <vector>

namespace fq::audio {

GuitarAudioEngine& GuitarAudioEngine::shared() {
    static const auto guitar = create(SharedAudioEngine::shared());
    return *guitar;
}

std::shared_ptr<GuitarAudioEngine> GuitarAudioEngine::create(SharedAudioEngine& engine) {
    return create(engine, Options{});
}

std::shared_ptr<GuitarAudioEngine> GuitarAudioEngine::create(SharedAudioEngine& engine,
                                                             Options options) {
    return std::make_shared<GuitarAudioEngine>(Private{}, engine, std::move(options));
}

GuitarAudioEngine::GuitarAudioEngine(Private, SharedAudioEngine& engine, Options options)
    : audioEngine_(&engine), sampler_(std::make_unique<Sampler>()),
      reverb_(std::make_unique<Reverb>()), options_(std::move(options)) {
    audioEngine_->stop();
    audioEngine_->reset();
    const std::lock_guard graph(graphLock_);
    connectGraph();
    loadInstrument();
    audioEngine_->prepare();
}

GuitarAudioEngine::~GuitarAudioEngine() {
    const std::lock_guard graph(graphLock_);
    if (samplerBelongsToEngine()) audioEngine_->detach(*sampler_);
}

void GuitarAudioEngine::connectGraph() {
    const std::lock_guard graph(graphLock_);
    if (!samplerBelongsToEngine()) audioEngine_->attach(*sampler_);
    reverb_->loadFactoryPreset(config::guitarReverbPreset);
    reverb_->setWetDryMix(config::guitarReverbWetDryMix);
    // FluidSynth's reverb is the sampler's own: connecting is handing it the room
    sampler_->setReverb(*reverb_);
}

void GuitarAudioEngine::loadInstrument() {
    const std::lock_guard graph(graphLock_);
    const auto found =
        std::find_if(options_.soundFonts.begin(), options_.soundFonts.end(),
                     [](const auto& path) { return std::filesystem::is_regular_file(path); });
    if (found == options_.soundFonts.end()) {
        diagnostic("could not load aupreset");
        return;
    }
    const SamplerInstrument guitar{*found, config::guitarBank, config::guitarProgram,
                                   config::guitarReleaseOffset};
    if (auto loaded = sampler_->loadInstrument(guitar); !loaded)
        diagnostic("error loading preset: " + loaded.error().message);
}

bool GuitarAudioEngine::samplerBelongsToEngine() const {
    return sampler_ && sampler_->engine() != nullptr;
}

bool GuitarAudioEngine::ensureRunning() {
    {
        const std::lock_guard state(stateLock_);
        if (isSuspended_) return false;
    }
    if (audioEngine_->isRunning()) return true;
    if (auto started = audioEngine_->start(); !started)
        diagnostic("Failed to (re)start engine: " + started.error().message);
    return audioEngine_->isRunning();
}

void GuitarAudioEngine::strum(std::span<const int> notes) {
    {
        const std::lock_guard graph(graphLock_);
        if (!ensureRunning()) return;
    }
    std::uint64_t generation = 0;
    {
        const std::lock_guard state(stateLock_);
        generation = strumGeneration_;
    }
    auto& timeline = audioEngine_->timeline();
    const auto start = timeline.now();
    const std::weak_ptr<GuitarAudioEngine> weak = weak_from_this();
    for (std::size_t i = 0; i < notes.size(); ++i) {
        // each note keeps its intended moment as its stamp, so it sounds on time
        // even when the worker runs it late
        const auto due = start + static_cast<long>(i) * std::chrono::duration_cast<TimelineTime>(
                                                            config::strumNoteDelay);
        timeline.runAt(due, [weak, generation, note = notes[i], due] {
            const auto self = weak.lock();
            if (!self) return;
            {
                const std::lock_guard state(self->stateLock_);
                if (self->strumGeneration_ != generation || self->isSuspended_) return;
            }
            const std::lock_guard graph(self->graphLock_);
            if (self->samplerBelongsToEngine())
                self->sampler_->startNote(note, config::noteVelocity, config::noteChannel, due);
        });
    }
}

void GuitarAudioEngine::playChord(std::span<const int> notes) {
    {
        const std::lock_guard graph(graphLock_);
        if (samplerBelongsToEngine())
            sampler_->sendController(config::silenceController, config::silenceValue,
                                     config::noteChannel);
    }
    strum(notes);
}

void GuitarAudioEngine::stopAllNotes() {
    const std::lock_guard graph(graphLock_);
    if (samplerBelongsToEngine())
        sampler_->sendController(config::silenceController, config::silenceValue,
                                 config::noteChannel);
}

void GuitarAudioEngine::suspendForBackground() {
    {
        const std::lock_guard state(stateLock_);
        isSuspended_ = true;
        ++strumGeneration_;
    }
    const std::lock_guard graph(graphLock_);
    if (samplerBelongsToEngine())
        sampler_->sendController(config::silenceController, config::silenceValue,
                                 config::noteChannel);
    if (audioEngine_->isRunning()) {
        audioEngine_->pause();
        audioEngine_->reset();
    }
}

void GuitarAudioEngine::resumeAfterActivation(bool rebuild) {
    {
        const std::lock_guard state(stateLock_);
        isSuspended_ = rebuild;
        ++strumGeneration_;
    }
    const std::lock_guard graph(graphLock_);
    if (rebuild) {
        rebuildAfterInterruption();
        const std::lock_guard state(stateLock_);
        isSuspended_ = false;
        ++strumGeneration_;
    }
    if (audioEngine_ != nullptr) {
        audioEngine_->prepare();
        ensureRunning();
    }
}

void GuitarAudioEngine::rebuildAfterInterruption() {
    diagnostic("GuitarAudioEngine rebuilding sampler graph after audio interruption");
    const std::lock_guard graph(graphLock_);
    audioEngine_->stop();
    if (samplerBelongsToEngine()) audioEngine_->detach(*sampler_);
    sampler_ = std::make_unique<Sampler>();
    reverb_ = std::make_unique<Reverb>();
    connectGraph();
    loadInstrument();
}

bool GuitarAudioEngine::isEngineRunning() const {
    return audioEngine_->isRunning();
}

bool GuitarAudioEngine::isSuspended() const {
    const std::lock_guard state(stateLock_);
    return isSuspended_;
}

std::uint64_t GuitarAudioEngine::strumGeneration() const {
    const std::lock_guard state(stateLock_);
    return strumGeneration_;
}

bool GuitarAudioEngine::hasInstrument() const {
    const std::lock_guard graph(graphLock_);
    return sampler_->hasInstrument();
}

} // namespace fq::audio
