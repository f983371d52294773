#pragma once

// The one wrapper around FluidSynth: a synthesizer with its settings, a SoundFont
// loaded and a preset chosen, made entirely off the render thread.

#include "fq/audio/Sampler.h"

#include <fq/core/Error.h>

#include <fluidsynth.h>
#include <tl/expected.hpp>

#include <filesystem>
#include <memory>

namespace fq::audio::detail {

class FluidInstrument {
public:
    /// Loads the SoundFont and selects the preset on channel 0, the one the
    /// instruments play. The render thread alone uses the result afterwards, so
    /// FluidSynth's own locking is off.
    static tl::expected<std::unique_ptr<FluidInstrument>, Error>
    create(const SamplerInstrument& instrument, double sampleRate,
           const Reverb::Parameters& reverb);
    ~FluidInstrument();
    FluidInstrument(const FluidInstrument&) = delete;
    FluidInstrument& operator=(const FluidInstrument&) = delete;

    fluid_synth_t* synth() const { return synth_; }
    /// RT.
    void applyReverb(const Reverb::Parameters& reverb) noexcept;

private:
    FluidInstrument() = default;
    fluid_settings_t* settings_ = nullptr; // outlives the synth
    fluid_synth_t* synth_ = nullptr;
};

} // namespace fq::audio::detail
