#pragma once

#include "fq/audio/Sampler.h"
#include "fq/audio/SharedAudioEngine.h"

#include <memory>

namespace fq::audio {

/// An engine and a sampler that the jam sequencer sets up and loads itself; only
/// the pair is held here.
class SamplerPair {
public:
    SamplerPair() = default;
    /// Detaches the sampler from its engine.
    ~SamplerPair() {
        if (sampler_ && sampler_->engine() != nullptr) sampler_->engine()->detach(*sampler_);
    }
    SamplerPair(const SamplerPair&) = delete;
    SamplerPair& operator=(const SamplerPair&) = delete;

    SharedAudioEngine* engine() const { return engine_; }
    Sampler* sampler() const { return sampler_.get(); }
    void setEngine(SharedAudioEngine* engine) { engine_ = engine; }
    void setSampler(std::unique_ptr<Sampler> sampler) { sampler_ = std::move(sampler); }

private:
    SharedAudioEngine* engine_ = nullptr;
    std::unique_ptr<Sampler> sampler_;
};

/// The jam sequencer's bass.
class BassAudioEngine : public SamplerPair {};

/// The jam sequencer's drums.
class DrumAudioEngine : public SamplerPair {};

} // namespace fq::audio
